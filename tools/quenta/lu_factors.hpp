// A small dense linear system, factored once.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace quenta_program {

// P A = L U with partial pivoting.
class lu_factors {
public:
    // `matrix` holds n * n entries, row by row.
    lu_factors(std::span<const double> matrix, std::size_t n);

    bool is_singular() const { return singular; } // a pivot is 0

    // The solution of A x = right. Not for a singular matrix.
    std::vector<double> solve(std::span<const double> right) const;

private:
    double& at(std::size_t row, std::size_t column) { return entries[row * size + column]; }
    double at(std::size_t row, std::size_t column) const { return entries[row * size + column]; }

    std::size_t size;
    std::vector<double> entries;
    std::vector<std::size_t> order; // row i of L U is row order[i] of A
    bool singular = false;
};

} // namespace quenta_program
