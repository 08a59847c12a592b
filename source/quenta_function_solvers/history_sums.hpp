// Adds the history of known steps to sums: the loops, for a number of lanes.
//
// A lane is a sum, of whatever row: the matrices are read two neighbouring columns of several rows at a time, and these
// small tiles are transposed in registers. So every sum keeps its order of additions, however many advance together.
//
// Everything is inlined by force: code for one instruction set must not be merged with that for another by the linker.
#pragma once

#include "quenta_function_solvers/history_terms.hpp"
#include "utility/lanes.hpp"

#include <cstdint>
#include <type_traits>
#include <utility>

namespace quenta {

template <int width>
using sums_type = std::conditional_t<width == 1, double, lanes<width == 1 ? 2 : width>>;

template <int width>
[[gnu::always_inline]] inline sums_type<width> load_sums(const double* from) {
    if constexpr (width == 1)
        return *from;
    else
        return load<width>(from);
}

template <int width>
[[gnu::always_inline]] inline void store_sums(double* to, sums_type<width> value) {
    if constexpr (width == 1)
        *to = value;
    else
        store<width>(to, value);
}

// ---- Columns of products ------------------------------------------------------------------------------------------

// rows[lane][at] of every lane.
template <int width, int... lane>
[[gnu::always_inline]] inline lanes<width> column(const double* const* rows, std::int64_t at,
                                                  std::integer_sequence<int, lane...>) {
    return lanes<width>{rows[lane][at]...};
}

// rows[lane][at] and rows[lane][at + 1], for the even lanes if `from` is 0, for the odd ones if it is 1.
template <int width>
[[gnu::always_inline]] inline lanes<width> alternate_pairs(const double* const* rows, std::int64_t at, int from) {
    static_assert(width == 4);
    return __builtin_shufflevector(load<2>(rows[from] + at), load<2>(rows[from + 2] + at), 0, 1, 2, 3);
}

// products[c] = rows[lane][at + c] * factor(values[c], h), in every lane.
template <class unknown, int width, int count>
[[gnu::always_inline]] inline void multiply_columns(sums_type<width> (&products)[count], const double* const* rows,
                                                    std::int64_t at, const double* values, double h) {
    if constexpr (width == 1) {
        for (int c = 0; c < count; ++c)
            products[c] = rows[0][at + c] * unknown::factor(values[c], h);
    } else {
        constexpr auto every_lane = std::make_integer_sequence<int, width>{};
        int c = 0;
        for (; c + width <= count; c += width) { // a square
            lanes<width> square[width];
            for (int lane = 0; lane < width; ++lane)
                square[lane] = load<width>(rows[lane] + at + c) * unknown::factor(load<width>(values + c), h);
            transpose<width>(square);
            for (int column = 0; column < width; ++column)
                products[c + column] = square[column];
        }
        if constexpr (width == 4 && count % 4 >= 2) { // half a square
            const lanes<2> pair = unknown::factor(load<2>(values + c), h);
            const lanes<4> factors = __builtin_shufflevector(pair, pair, 0, 1, 0, 1);
            const lanes<4> even = alternate_pairs<4>(rows, at + c, 0) * factors;
            const lanes<4> odd = alternate_pairs<4>(rows, at + c, 1) * factors;
            products[c] = __builtin_shufflevector(even, odd, 0, 4, 2, 6);
            products[c + 1] = __builtin_shufflevector(even, odd, 1, 5, 3, 7);
            c += 2;
        }
        for (; c < count; ++c)
            products[c] = column<width>(rows, at + c, every_lane) * unknown::factor(values[c], h);
    }
}

template <form F, int D, class number>
[[gnu::always_inline]] inline number row_product(const number* products) {
    if constexpr (F == form::scalar) {
        static_assert(D == 1);
        return products[0];
    } else {
        number sum{};
        for (int c = 0; c < D; ++c)
            sum += products[c];
        return sum;
    }
}

// ---- Slots and steps ----------------------------------------------------------------------------------------------

// `count` neighbouring points, the first of which has its matrix at `at` in each row.
template <class history, int D, int width, int count>
[[gnu::always_inline]] inline void add_points(sums_type<width>& sum, const double* const* rows, std::int64_t at,
                                              const double* x, double h) {
    sums_type<width> products[count * D];
    multiply_columns<typename history::point, width>(products, rows, at, x, h);
    for (int point = 0; point < count; ++point)
        history::add_point(sum, row_product<history::written_in, D>(products + point * D), h);
}

template <class history, int D, int width>
[[gnu::always_inline]] inline void add_carried(sums_type<width>& sum, const double* const* rows, std::int64_t at,
                                               const double* y) {
    sums_type<width> products[D];
    multiply_columns<unknown_itself, width>(products, rows, at, y, 1.0);
    history::add_carried(sum, row_product<history::written_in, D>(products));
}

// `groups` registers of sums advance together. rows[q] points at the row of sum q, in slot 0 of step 0.
template <class history, int D, int width, int groups>
[[gnu::always_inline]] inline void add_steps(double* sums, const double* const* rows, const known_steps& known) {
    constexpr std::int64_t slot = D * D;
    sums_type<width> sum[groups];
    for (int g = 0; g < groups; ++g)
        sum[g] = load_sums<width>(sums + g * width);

    if constexpr (history::has_carried_value) {
        for (std::int64_t k = known.first; k < known.end; ++k) {
            const std::int64_t at = k * (known.points + 1) * slot;
            const double* const x = known.x + k * known.points * D;
            const double h = history::has_step_lengths ? known.h[k] : 1.0;
            for (int g = 0; g < groups; ++g)
                add_carried<history, D, width>(sum[g], rows + g * width, at + known.points * slot, known.y + k * D);
            for (int j = 0; j < known.points; ++j)
                for (int g = 0; g < groups; ++g)
                    add_points<history, D, width, 1>(sum[g], rows + g * width, at + j * slot, x + j * D, h);
        }
    } else {
        // With nothing between the points of two steps, the slots are one sequence.
        constexpr int together = D == 1 && width > 1 ? 8 : 1;
        std::int64_t s = known.first * known.points;
        const std::int64_t end = known.end * known.points;
        for (; s + together <= end; s += together)
            for (int g = 0; g < groups; ++g)
                add_points<history, D, width, together>(sum[g], rows + g * width, s * slot, known.x + s * D, 1.0);
        if constexpr (together > 1)
            for (; s < end; ++s)
                for (int g = 0; g < groups; ++g)
                    add_points<history, D, width, 1>(sum[g], rows + g * width, s * slot, known.x + s * D, 1.0);
    }

    for (int g = 0; g < groups; ++g)
        store_sums<width>(sums + g * width, sum[g]);
}

} // namespace quenta
