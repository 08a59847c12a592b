// The dense system of a step, whose matrix is the same in every step: what differs between a dimension that is known
// when the library is built and one that is not.
//
//                     matrix, copy, right-hand side    layout         solved by
//   fixed_dimension   in the frame                     row-major      solve_dense_fixed
//   run_time          allocated once, before the march column-major   solve_dense_in_place
#pragma once

#include "quenta_solvers/dense_solve.hpp"
#include "quenta_solvers/variant_dispatch.hpp"
#include "utility/ieee.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace quenta {

template <int P, class dimension>
class step_system;

template <int P, int D>
class step_system<P, fixed_dimension<D>> {
public:
    static constexpr int n_sys = P * D;

    explicit step_system(fixed_dimension<D>) {
        // A forgotten cell shows in the result.
        for (auto& row : matrix)
            row.fill(ieee::quiet_nan);
        values.fill(ieee::quiet_nan);
    }

    double& at(int r, int c) { return matrix[r][c]; }

    // The right-hand side; after solve, the solution.
    double* rhs() { return values.data(); }

    // Eliminates a copy of the matrix. False: it is singular.
    bool solve() {
        square_matrix<n_sys> factors = matrix;
        bool regular = false;
        values = solve_dense_fixed<n_sys>(factors, values, regular);
        return regular;
    }

private:
    square_matrix<n_sys> matrix;
    std::array<double, n_sys> values;
};

template <int P>
class step_system<P, run_time_dimension> {
public:
    explicit step_system(run_time_dimension dimension)
        : n_sys{P * dimension.D}, matrix(square()), factors(square()), values(n_sys), pivots(n_sys) {}

    double& at(int r, int c) { return matrix[std::size_t(c) * n_sys + r]; }

    double* rhs() { return values.data(); }

    bool solve() {
        std::copy(matrix.begin(), matrix.end(), factors.begin());
        return solve_dense_in_place({factors.size(), factors.data()}, {values.size(), values.data()}, n_sys,
                                    {pivots.size(), pivots.data()});
    }

    const int n_sys;

private:
    std::size_t square() const { return std::size_t(n_sys) * n_sys; }

    std::vector<double> matrix, factors, values;
    std::vector<int> pivots;
};

} // namespace quenta
