// The linear system of a step, solved by Gaussian elimination after rows and columns have been scaled by powers of two.
//
// The test for a singular matrix compares the pivots with each other. The scaling, which is exact, makes it independent
// of the units of the equations and of the unknowns.
#pragma once

#include <cstdint>
#include <vector>

namespace quenta {

class scaled_system {
public:
    explicit scaled_system(int order);

    double& at(int row, int column) { return matrix[std::int64_t{column} * n + row]; }

    // Replaces the matrix by its factors. False: it is singular to rounding.
    bool eliminate();
    // Replaces b by the solution.
    void solve(double* b);
    // Whether the determinant is positive, after eliminate().
    bool determinant_is_positive() const;

private:
    int n;
    std::vector<double> matrix; // by columns
    std::vector<double> row_scale, column_scale;
    std::vector<int> pivots;
};

} // namespace quenta
