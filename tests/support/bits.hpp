// Comparison of doubles bit for bit. The two zeros differ. All NaNs are equal, because their payload is not part of a
// result.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cinttypes>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <span>
#include <string>

namespace quenta_tests {

inline bool same_bits(double a, double b) {
    if (std::isnan(a) || std::isnan(b))
        return std::isnan(a) && std::isnan(b);
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

// The distance in units in the last place. -0.0 and +0.0 have distance 1. A NaN and a number have the largest distance.
inline std::uint64_t ulps_apart(double a, double b) {
    if (same_bits(a, b))
        return 0;
    if (std::isnan(a) || std::isnan(b))
        return std::numeric_limits<std::uint64_t>::max();
    // Numbers all doubles in ascending order.
    const auto position = [](double x) {
        constexpr std::uint64_t sign = std::uint64_t{1} << 63;
        const auto bits = std::bit_cast<std::uint64_t>(x);
        return (bits & sign) != 0 ? ~bits : bits | sign;
    };
    const std::uint64_t pa = position(a), pb = position(b);
    return pa > pb ? pa - pb : pb - pa;
}

inline std::string in_hexadecimal(double x) {
    char text[80];
    std::snprintf(text, sizeof text, "0x%016" PRIx64 " (%a)", std::bit_cast<std::uint64_t>(x), x);
    return text;
}

// For EXPECT_TRUE: one value.
inline ::testing::AssertionResult equal_bits(double expected, double actual) {
    if (same_bits(expected, actual))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "expected " << in_hexadecimal(expected) << ",\n     got "
                                         << in_hexadecimal(actual) << ",\n     which differs by "
                                         << ulps_apart(expected, actual) << " ulps";
}

// For EXPECT_TRUE: an array. The message has the first difference and the number of differences.
inline ::testing::AssertionResult equal_bits(std::span<const double> expected, std::span<const double> actual) {
    if (expected.size() != actual.size())
        return ::testing::AssertionFailure() << "expected " << expected.size() << " values, got " << actual.size();
    std::size_t differences = 0, first = 0;
    for (std::size_t i = 0; i < expected.size(); ++i)
        if (!same_bits(expected[i], actual[i]) && differences++ == 0)
            first = i;
    if (differences == 0)
        return ::testing::AssertionSuccess();
    return equal_bits(expected[first], actual[first]) << "\n     at index " << first << ", the first of " << differences
                                                      << " differences in " << expected.size() << " values";
}

} // namespace quenta_tests
