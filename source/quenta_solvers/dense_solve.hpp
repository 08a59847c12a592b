// The dense solve of a step: Gaussian elimination with partial pivoting.
//
// A matrix is singular if a pivot is not larger than order * eps times the largest pivot so far. The scale is that of
// the pivots, not a norm of the matrix. The comparison is false for NaN, so a NaN propagates to the solution. A matrix
// with an infinite pivot is singular.
//
// Elimination and substitution are separate: a matrix that is the same in every step is eliminated once.
#pragma once

#include "utility/ieee.hpp"
#include "utility/view.hpp"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <utility>

namespace quenta {

// The spacing of doubles at 1.
inline constexpr double eps = 2.220446049250313e-16;

// For any order, on column-major matrices: (i, j) at i + j*n. For an order below 1 nothing is done. A view that is too
// short is an index failure.
//
// eliminate_in_place replaces the matrix by its multipliers and U, and pivots[k] by the row that was swapped with row
// k. False: the matrix is singular, and its new content has no use.
bool eliminate_in_place(view<double> a, int n, view<int> pivots);
// Replaces b by the solution, given the result of the elimination.
void substitute_in_place(view<const double> a, int n, view<const int> pivots, view<double> b);
// Both in one call. The solvers call the two parts; tests compare this with the reference implementation.
bool solve_dense_in_place(view<double> a, view<double> b, int n, view<int> pivots);

// Up to this order, a matrix whose order is known at build time is eliminated by scalar code with constant bounds.
// Larger orders are faster with the vectorized kernels, which are chosen at run time.
inline constexpr int largest_straight_order = 8;

// A matrix of known order, which is replaced by its factors.
template <int n>
class dense_factors {
    static constexpr bool column_major = n > largest_straight_order;

public:
    static constexpr int row_stride = column_major ? 1 : n;
    static constexpr int column_stride = column_major ? n : 1;

    // NaN makes a cell that was not filled visible in the result. The pivots are the identity until eliminate().
    dense_factors() {
        cells.fill(ieee::quiet_nan);
        std::iota(pivots.begin(), pivots.end(), 0);
    }

    double& at(int i, int j) { return cells[i * row_stride + j * column_stride]; }

    // False: the matrix is singular.
    bool eliminate();

    // Replaces b by the solution.
    void substitute(std::array<double, n>& b) const;

    // Applies the row swaps of the elimination to b, the first part of the substitution.
    void swap_rows(std::array<double, n>& b) const {
        for (int k = 0; k < n; ++k)
            std::swap(b[k], b[pivots[k]]);
    }

private:
    double& cell(int i, int j) { return cells[i * n + j]; }
    double cell(int i, int j) const { return cells[i * n + j]; }

    std::array<double, std::size_t{n} * n> cells;
    std::array<int, n> pivots;
};

template <int n>
bool dense_factors<n>::eliminate() {
    if constexpr (column_major)
        return eliminate_in_place({cells.size(), cells.data()}, n, {pivots.size(), pivots.data()});

    constexpr double tolerance = double(n) * eps;
    double biggest = 0.0;
    for (int k = 0; k < n; ++k) {
        int row = k;
        double best = std::fabs(cell(k, k));
        for (int i = k + 1; i < n; ++i)
            if (std::fabs(cell(i, k)) > best) { // strict: the first of equals wins
                best = std::fabs(cell(i, k));
                row = i;
            }
        pivots[k] = row;
        if (row != k)
            for (int j = 0; j < n; ++j) // the multipliers so far included
                std::swap(cell(k, j), cell(row, j));
        if (best > biggest)
            biggest = best;
        if (tolerance * biggest >= best)
            return false;
        for (int i = k + 1; i < n; ++i) {
            const double multiplier = cell(i, k) / cell(k, k);
            cell(i, k) = multiplier;
            for (int j = k + 1; j < n; ++j)
                cell(i, j) -= multiplier * cell(k, j);
        }
    }
    return true;
}

template <int n>
void dense_factors<n>::substitute(std::array<double, n>& b) const {
    if constexpr (column_major) {
        substitute_in_place({cells.size(), cells.data()}, n, {pivots.size(), pivots.data()}, {b.size(), b.data()});
        return;
    }
    swap_rows(b);
    for (int i = 1; i < n; ++i)
        for (int j = 0; j < i; ++j)
            b[i] -= cell(i, j) * b[j];
    for (int i = n - 1; i >= 0; --i) {
        for (int j = i + 1; j < n; ++j)
            b[i] -= cell(i, j) * b[j];
        b[i] /= cell(i, i);
    }
}

template <int n>
using square_matrix = std::array<std::array<double, n>, n>;

// Solves a x = b for a row-major matrix of known order, as solve_dense_in_place does for any order. The multipliers and
// U overwrite a. The solution overwrites b and is also returned. `ok` is false if the matrix is singular; a is then
// partly eliminated, and b is only permuted.
//
// The solvers do not call these two functions. If the matrix is the same in every step, they eliminate it once.
// Otherwise they fill dense_factors directly, which avoids the copies made here.
template <int n>
std::array<double, n> solve_dense_fixed(square_matrix<n>& a, std::array<double, n>& b, bool& ok) {
    dense_factors<n> factors;
    const auto exchange = [&](const auto& move) {
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                move(a[i][j], factors.at(i, j));
    };
    exchange([](double given, double& factor) { factor = given; });
    ok = factors.eliminate();
    if (ok)
        factors.substitute(b);
    else
        factors.swap_rows(b);
    exchange([](double& taken, double factor) { taken = factor; });
    return b;
}

} // namespace quenta
