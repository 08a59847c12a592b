// The dense solve of a step: Gaussian elimination with partial pivoting, in one fused pass with its solution.
//
// A step's block is singular when a pivot is not larger than order * eps times the largest pivot so far. The scale is
// that of the pivots, not a norm of the matrix. The comparison is false for NaN, so that a NaN flows on into the
// solution; an infinite pivot counts as singular.
#pragma once

#include "utility/view.hpp"

#include <array>
#include <cmath>
#include <cstdint>
#include <utility>

namespace quenta {

// The spacing of doubles at 1.
inline constexpr double eps = 2.220446049250313e-16;

template <int n>
using square_matrix = std::array<std::array<double, n>, n>;

// Solves a x = b for an order known when the library is built. a is row-major; it and b are overwritten. `ok` tells
// whether the matrix was regular; if it was not, what is returned is of no use.
template <int n>
std::array<double, n> solve_dense_fixed(square_matrix<n>& a, std::array<double, n>& b, bool& ok) {
    constexpr double tolerance = double(n) * eps;
    ok = true;
    double biggest = 0.0;
    for (int k = 0; k < n; ++k) {
        int row = k;
        double best = std::fabs(a[k][k]);
        for (int i = k + 1; i < n; ++i)
            if (std::fabs(a[i][k]) > best) { // strict: the first of equals wins
                best = std::fabs(a[i][k]);
                row = i;
            }
        if (row != k) {
            std::swap(a[k], a[row]); // whole rows, the multipliers so far included
            std::swap(b[k], b[row]);
        }
        if (best > biggest)
            biggest = best;
        if (tolerance * biggest >= best) {
            ok = false;
            return b;
        }
        for (int i = k + 1; i < n; ++i) {
            const double multiplier = a[i][k] / a[k][k];
            a[i][k] = multiplier;
            for (int j = k + 1; j < n; ++j)
                a[i][j] -= multiplier * a[k][j];
        }
    }
    for (int i = 1; i < n; ++i)
        for (int j = 0; j < i; ++j)
            b[i] -= a[i][j] * b[j];
    for (int i = n - 1; i >= 0; --i) {
        for (int j = i + 1; j < n; ++j)
            b[i] -= a[i][j] * b[j];
        b[i] /= a[i][i];
    }
    return b;
}

// Solves a x = b for an order known at run time: x replaces b. a is n by n and column-major, (i, j) at i + j*n; it is
// overwritten by the multipliers and U. pivots[k] receives the row that was swapped with row k. Returns false when the
// matrix is singular; a and b are then of no use. An order below 1 is solved with nothing done; a view that is too
// short is an index failure.
bool solve_dense_in_place(view<double> a, view<double> b, int n, view<int> pivots);

} // namespace quenta
