// Gaussian elimination with partial pivoting, in plain loops.
#pragma once

#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace reference {

enum class matrix_order { row_major, column_major };

// Solves a x = b of order n. x replaces b, the multipliers and U replace a, and pivots[k] is the row that was swapped
// with row k. Returns false if the matrix is singular, and leaves a, b and pivots as they are at that pivot.
inline bool solve_dense(matrix_order order, int n, std::vector<double>& a, std::vector<double>& b,
                        std::vector<int>& pivots) {
    const double eps = 2.220446049250313e-16;
    const auto at = [&](int i, int j) -> double& {
        return a[static_cast<std::size_t>(order == matrix_order::row_major ? i * n + j : i + j * n)];
    };
    const auto rhs = [&](int i) -> double& {
        return b[static_cast<std::size_t>(i)];
    };

    double biggest = 0.0;
    for (int k = 0; k < n; ++k) {
        double best = std::fabs(at(k, k));
        int row = k;
        for (int i = k + 1; i < n; ++i)
            if (std::fabs(at(i, k)) > best) {
                best = std::fabs(at(i, k));
                row = i;
            }
        pivots[static_cast<std::size_t>(k)] = row;
        if (row != k) {
            for (int j = 0; j < n; ++j)
                std::swap(at(k, j), at(row, j));
            std::swap(rhs(k), rhs(row));
        }
        if (best > biggest)
            biggest = best;
        if ((double(n) * eps) * biggest >= best)
            return false;
        for (int i = k + 1; i < n; ++i) {
            const double l = at(i, k) / at(k, k);
            at(i, k) = l;
            for (int j = k + 1; j < n; ++j)
                at(i, j) = at(i, j) - l * at(k, j);
        }
    }
    for (int i = 1; i < n; ++i)
        for (int j = 0; j < i; ++j)
            rhs(i) = rhs(i) - at(i, j) * rhs(j);
    for (int i = n - 1; i >= 0; --i) {
        for (int j = i + 1; j < n; ++j)
            rhs(i) = rhs(i) - at(i, j) * rhs(j);
        rhs(i) = rhs(i) / at(i, i);
    }
    return true;
}

} // namespace reference
