// A register of several doubles, and the operations on it that are not plain arithmetic.
//
// Everything here and in the kernels is a template on the instruction set or on the width, since the linker must not
// merge the code of different instruction sets.
#pragma once

#include <cstdint>
#include <cstring>
#include <utility>

namespace quenta {

template <int width>
struct lanes_type {
    typedef double type __attribute__((vector_size(width * sizeof(double))));
};
template <int width>
using lanes = typename lanes_type<width>::type;

// The address may have any alignment.
template <int width>
[[gnu::always_inline]] inline lanes<width> load(const double* from) {
    lanes<width> value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <int width>
[[gnu::always_inline]] inline void store(double* to, lanes<width> value) {
    std::memcpy(to, &value, sizeof value);
}

template <int width>
[[gnu::always_inline]] inline lanes<width> broadcast(double value) {
    return value - lanes<width>{}; // value - 0.0 is value, also for -0.0
}

template <int width>
struct lane_mask_type {
    typedef std::int64_t type __attribute__((vector_size(width * sizeof(std::int64_t))));
};

// The result of a comparison of lanes, which selects lanes in mask ? a : b. Also used for lanes of integers.
template <int width>
using lane_mask = typename lane_mask_type<width>::type;

// 0, 1, 2, ..
template <int width>
[[gnu::always_inline]] inline lane_mask<width> lane_numbers() {
    lane_mask<width> numbers{};
    for (int lane = 0; lane < width; ++lane)
        numbers[lane] = lane;
    return numbers;
}

template <int width>
[[gnu::always_inline]] inline lanes<width> magnitude(lanes<width> value) {
    constexpr std::int64_t all_but_the_sign = 0x7FFFFFFFFFFFFFFF;
    return (lanes<width>)((lane_mask<width>)value & all_but_the_sign);
}

// One round of the transposition below, for two rows `distance` apart: the lanes of `upper` whose number has the bit
// `distance` set are exchanged with the lanes of `lower` whose number has it clear.
template <int width, int distance, int... lane>
[[gnu::always_inline]] inline void exchange_lanes(lanes<width>& upper, lanes<width>& lower,
                                                  std::integer_sequence<int, lane...>) {
    const lanes<width> a = upper, b = lower;
    upper = __builtin_shufflevector(a, b, ((lane & distance) != 0 ? width + lane - distance : lane)...);
    lower = __builtin_shufflevector(a, b, ((lane & distance) != 0 ? width + lane : lane + distance)...);
}

// Transposes `width` rows of `width` lanes.
template <int width, int distance = width / 2>
[[gnu::always_inline]] inline void transpose(lanes<width> (&rows)[width]) {
    for (int row = 0; row < width; ++row)
        if ((row & distance) == 0)
            exchange_lanes<width, distance>(rows[row], rows[row + distance], std::make_integer_sequence<int, width>{});
    if constexpr (distance > 1)
        transpose<width, distance / 2>(rows);
}

} // namespace quenta
