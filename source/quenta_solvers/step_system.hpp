// The dense system of a step: what differs between a dimension that is known at build time and one that is not.
//
//                     matrix and right-hand side       solved by
//   fixed_dimension   in the frame                     dense_factors
//   run_time          allocated once, before the march eliminate_in_place, substitute_in_place
#pragma once

#include "quenta_solvers/dense_solve.hpp"
#include "quenta_solvers/variants.hpp"
#include "utility/ieee.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {

// The cells of a matrix in either storage order, for code that all dimensions share.
struct matrix_cells {
    double* first;
    std::int64_t row_stride, column_stride;

    double& at(std::int64_t R, std::int64_t C) const { return first[R * row_stride + C * column_stride]; }
};

template <int P, class dimension>
class step_system;

template <int P, int D>
class step_system<P, fixed_dimension<D>> {
public:
    static constexpr int n_sys = P * D;

    explicit step_system(fixed_dimension<D>) { values.fill(ieee::quiet_nan); }

    // The matrix. Refill it before each eliminate().
    double& at(int R, int C) { return factors.at(R, C); }
    matrix_cells cells() { return {&factors.at(0, 0), factors.row_stride, factors.column_stride}; }

    // The right-hand side; after solve, the solution.
    double* rhs() { return values.data(); }

    // Replaces the matrix by its factors. False: it is singular.
    bool eliminate() { return factors.eliminate(); }

    void solve() { factors.substitute(values); }

private:
    dense_factors<n_sys> factors;
    std::array<double, n_sys> values;
};

template <int P>
class step_system<P, run_time_dimension> {
public:
    explicit step_system(run_time_dimension dimension)
        : n_sys{P * dimension.D}, factors(std::size_t(n_sys) * n_sys), values(n_sys), pivots(n_sys) {}

    double& at(int R, int C) { return factors[std::size_t(C) * n_sys + R]; }
    matrix_cells cells() { return {factors.data(), 1, n_sys}; }
    double* rhs() { return values.data(); }
    bool eliminate() {
        return eliminate_in_place({factors.size(), factors.data()}, n_sys, {pivots.size(), pivots.data()});
    }
    void solve() {
        substitute_in_place({factors.size(), factors.data()}, n_sys, {pivots.size(), pivots.data()},
                            {values.size(), values.data()});
    }

    const int n_sys;

private:
    std::vector<double> factors, values;
    std::vector<int> pivots;
};

} // namespace quenta
