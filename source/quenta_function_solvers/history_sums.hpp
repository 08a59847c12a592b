// Adds the contributions of known steps to sums: the loops, for a number of lanes.
//
// Each lane holds the sum of one row. The matrices are read in strips, a few adjacent columns of as many rows as there
// are lanes, which are transposed in registers. So every sum keeps its order of additions, however many are computed
// together.
//
// Everything is always inlined, since the linker must not merge the code of different instruction sets.
#pragma once

#include "quenta_function_solvers/history_terms.hpp"
#include "utility/lanes.hpp"

#include <cstdint>
#include <type_traits>
#include <utility>

#if defined(__AVX__)
#include <immintrin.h>
#endif

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

// A register from two halves, and a register with the same half twice, for registers that are wide enough. Each is one
// instruction, which compilers do not find by themselves.
template <int width>
lanes<width> load_halves(const double* lower, const double* upper);

template <int width>
lanes<width> load_twice(const double* half);

#if defined(__AVX__)
template <>
[[gnu::always_inline]] inline lanes<4> load_halves<4>(const double* lower, const double* upper) {
    // GCOVR_EXCL_BR_START: no condition, but gcov counts branches of the intrinsics
    return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(lower)), _mm_loadu_pd(upper), 1);
    // GCOVR_EXCL_BR_STOP
}

template <>
[[gnu::always_inline]] inline lanes<4> load_twice<4>(const double* half) {
    return _mm256_broadcast_pd(reinterpret_cast<const __m128d*>(half)); // of any alignment
}
#endif

#if defined(__AVX512F__)
// The form with a mask of all lanes costs nothing, and avoids a warning about an undefined register.
template <>
[[gnu::always_inline]] inline lanes<8> load_halves<8>(const double* lower, const double* upper) {
    // GCOVR_EXCL_BR_START: no condition, but gcov counts branches of the intrinsics
    return _mm512_maskz_insertf64x4(0xFF, _mm512_castpd256_pd512(_mm256_loadu_pd(lower)), _mm256_loadu_pd(upper), 1);
    // GCOVR_EXCL_BR_STOP
}

template <>
[[gnu::always_inline]] inline lanes<8> load_twice<8>(const double* half) {
    return _mm512_maskz_broadcast_f64x4(0xFF, _mm256_loadu_pd(half));
}
#endif

// The number of columns in a strip: half the lanes of a register, at least two.
template <int width>
inline constexpr int columns_of_a_strip = width == 2 ? 2 : width / 2;

// strip[c] = rows[lane][at + c] * factors[c], in every lane. The products are computed before the lanes are permuted,
// and the rows are loaded in the order that needs the fewest permutations.
template <class unknown, int width>
[[gnu::always_inline]] inline void multiply_strip(lanes<width>* strip, const double* const* rows, std::int64_t at,
                                                  const double* values, double h) {
    static_assert(width == 2 || width == 4 || width == 8);
    const auto product = [&](int row) __attribute__((always_inline)) {
        if constexpr (width == 2)
            return load<2>(rows[row] + at) * unknown::factor(load<2>(values), h);
        else
            return load_halves<width>(rows[row] + at, rows[row + 2] + at) *
                   unknown::factor(load_twice<width>(values), h);
    };
    strip[0] = product(0);
    strip[1] = product(1);
    if constexpr (width == 8) {
        const lanes<8> rows_0_2 = strip[0], rows_1_3 = strip[1], rows_4_6 = product(4), rows_5_7 = product(5);
        strip[0] = __builtin_shufflevector(rows_0_2, rows_4_6, 0, 1, 4, 5, 8, 9, 12, 13);
        strip[1] = __builtin_shufflevector(rows_1_3, rows_5_7, 0, 1, 4, 5, 8, 9, 12, 13);
        strip[2] = __builtin_shufflevector(rows_0_2, rows_4_6, 2, 3, 6, 7, 10, 11, 14, 15);
        strip[3] = __builtin_shufflevector(rows_1_3, rows_5_7, 2, 3, 6, 7, 10, 11, 14, 15);
        exchange_lanes<8, 1>(strip[2], strip[3], std::make_integer_sequence<int, 8>{});
    }
    exchange_lanes<width, 1>(strip[0], strip[1], std::make_integer_sequence<int, width>{});
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
        // GCOVR_EXCL_BR_START: always inlined, so that every caller has branches of its own
        for (; c + columns_of_a_strip<width> <= count; c += columns_of_a_strip<width>)
            multiply_strip<unknown, width>(products + c, rows, at + c, values + c, h);
        for (; c < count; ++c)
            products[c] = column<width>(rows, at + c, every_lane) * unknown::factor(values[c], h);
        // GCOVR_EXCL_BR_STOP
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

// `count` adjacent points; the matrix of the first is at `at` in each row.
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

// `groups` registers of sums are computed together. rows[q] points to the row of sum q, in slot 0 of step 0. The number
// of points of a step may be given as a constant.
template <class history, int D, int width, int groups, int constant_points = 0>
[[gnu::always_inline]] inline void add_steps(double* sums, const double* const* rows, const known_steps& known) {
    constexpr std::int64_t slot = D * D;
    const int points = constant_points != 0 ? constant_points : known.points;
    sums_type<width> sum[groups];
    for (int g = 0; g < groups; ++g)
        sum[g] = load_sums<width>(sums + g * width);

    if constexpr (history::has_carried_value) {
        for (std::int64_t k = known.first; k < known.end; ++k) {
            const std::int64_t at = k * (points + 1) * slot;
            const double* const x = known.x + k * points * D;
            const double h = history::has_step_lengths ? known.h[k] : 1.0;
            for (int g = 0; g < groups; ++g)
                add_carried<history, D, width>(sum[g], rows + g * width, at + points * slot, known.y + k * D);
            for (int j = 0; j < points; ++j)
                for (int g = 0; g < groups; ++g)
                    add_points<history, D, width, 1>(sum[g], rows + g * width, at + j * slot, x + j * D, h);
        }
    } else {
        // Without carried values between the points of two steps, the slots are one sequence.
        constexpr int together = D == 1 && width > 1 ? 8 : 1;
        std::int64_t s = known.first * points;
        const std::int64_t end = known.end * points;
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
