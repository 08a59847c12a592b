// Vectorized Gaussian elimination with partial pivoting, on a column-major matrix: (i, j) at i + j*n. The products are
// subtracted from every element one by one, in ascending order of the pivot.
#pragma once

#include "quenta_solvers/dense_kernels.hpp"
#include "quenta_solvers/dense_solve.hpp"
#include "utility/instruction_sets.hpp"
#include "utility/lanes.hpp"

#include <cmath>
#include <cstdint>

namespace quenta {

// `width` is that of the instruction set, or less for a matrix with few rows, which would use only a part of a
// register.
template <class instruction_set, int width = instruction_set::width>
struct elimination_kernel {
    using vector = lanes<width>;
    using mask = lane_mask<width>;

    static constexpr std::int64_t wide_enough = 2 * width; // more rows than these

    // The rows below row k in a column of n >= width rows: whole registers from the end of the column upwards, and one
    // partial register for the remaining rows, with a mask that selects them.
    struct rows_below {
        rows_below(std::int64_t n, std::int64_t k) : end(n) {
            const std::int64_t rows = n - 1 - k;
            const std::int64_t left = rows % width;
            first_whole = k + 1 + left;
            partial = left == 0 ? none : first_whole >= width ? first_whole - width : 0;
            const mask row = lane_numbers<width>() + partial;
            counts = (row > k) & (row < first_whole);
        }
        static constexpr std::int64_t none = -1;
        std::int64_t end, first_whole, partial;
        mask counts;
    };

    // column[i] = value(i, column[i]) for the rows i below.
    template <class new_value>
    [[gnu::always_inline]] static void update(double* column, const rows_below& rows, const new_value& value) {
        if (rows.partial != rows_below::none) {
            const vector old = load<width>(column + rows.partial);
            store<width>(column + rows.partial, rows.counts ? value(rows.partial, old) : old);
        }
        for (std::int64_t i = rows.first_whole; i < rows.end; i += width)
            store<width>(column + i, value(i, load<width>(column + i)));
    }

    // column -= multipliers * factor
    [[gnu::always_inline]] static void subtract(double* column, const double* multipliers, double factor,
                                                const rows_below& rows) {
        const vector by = broadcast<width>(factor);
        update(column, rows, [&](std::int64_t i, vector value) { return value - load<width>(multipliers + i) * by; });
    }

    // The largest magnitude below; NaN is never the largest.
    [[gnu::always_inline]] static double largest_below(const double* column, const rows_below& rows) {
        vector largest{};
        if (rows.partial != rows_below::none) {
            const vector value = magnitude<width>(load<width>(column + rows.partial));
            largest = (rows.counts & (value > largest)) ? value : largest;
        }
        for (std::int64_t i = rows.first_whole; i < rows.end; i += width) {
            const vector value = magnitude<width>(load<width>(column + i));
            largest = value > largest ? value : largest;
        }
        double result = 0.0;
        for (int lane = 0; lane < width; ++lane)
            result = largest[lane] > result ? largest[lane] : result;
        return result;
    }

    static std::int64_t eliminate(double* a, std::int64_t n, int* pivots) {
        if constexpr (width > 2)
            if (n <= wide_enough)
                return elimination_kernel<instruction_set, width / 2>::eliminate(a, n, pivots);

        const double tolerance = double(n) * eps;
        double biggest = 0.0;
        for (std::int64_t k = 0; k < n; ++k) {
            double* const pivot_column = a + k * n;
            const rows_below rows(n, k);
            std::int64_t row = k;
            double best = std::fabs(pivot_column[k]);
            const double largest = largest_below(pivot_column, rows);
            if (largest > best) { // strict: of equal pivots the first is taken
                best = largest;
                for (row = k + 1; std::fabs(pivot_column[row]) != best; ++row) {
                }
            }
            pivots[k] = static_cast<int>(row);
            if (row != k)
                for (double* column = a; column != a + n * n; column += n) { // the multipliers so far included
                    const double upper = column[k];
                    column[k] = column[row];
                    column[row] = upper;
                }
            if (best > biggest)
                biggest = best;
            if (tolerance * biggest >= best)
                return k;
            const vector pivot = broadcast<width>(pivot_column[k]);
            update(pivot_column, rows, [&](std::int64_t, vector value) { return value / pivot; });
            for (double* column = pivot_column + n; column != a + n * n; column += n)
                subtract(column, pivot_column, column[k], rows);
        }
        return n;
    }

    static void substitute(const double* a, std::int64_t n, const int* pivots, double* b) {
        if constexpr (width > 2)
            if (n <= wide_enough)
                return elimination_kernel<instruction_set, width / 2>::substitute(a, n, pivots, b);

        for (std::int64_t k = 0; k < n; ++k) {
            const double upper = b[k];
            b[k] = b[pivots[k]];
            b[pivots[k]] = upper;
        }
        // By columns, as the multipliers are stored: the products are still subtracted from b[i] in ascending order.
        for (std::int64_t j = 0; j + 1 < n; ++j)
            subtract(b, a + j * n, b[j], rows_below(n, j));
        // By rows: by columns the order would be descending.
        for (std::int64_t i = n - 1; i >= 0; --i) {
            double value = b[i];
            for (std::int64_t j = i + 1; j < n; ++j)
                value -= a[i + j * n] * b[j];
            b[i] = value / a[i + i * n];
        }
    }
};

template <class instruction_set>
const dense_kernels& dense_kernels::of() {
    static constexpr dense_kernels table{instruction_set::name, elimination_kernel<instruction_set>::eliminate,
                                         elimination_kernel<instruction_set>::substitute};
    return table;
}

} // namespace quenta
