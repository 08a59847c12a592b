// What the tests of the promises share: data, and expectations of an answer.
#pragma once

#include "conformance/sampled_call.hpp"
#include "support/bits.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <vector>

namespace quenta_tests {

// Forcing and kernel without any structure that a wrong index could hide behind.
inline double g_at(int i) {
    return 1.0 + std::sin(1.7 * i + 0.3);
}
inline double K_at(int i) {
    return 0.5 + std::cos(0.9 * i - 0.2);
}
inline std::vector<double> sampled(double (*value)(int), int N) {
    std::vector<double> samples;
    for (int i = 0; i < N; ++i)
        samples.push_back(value(i));
    return samples;
}
inline std::vector<double> constant(double value, int N) {
    return std::vector<double>(std::size_t(N), value);
}

inline void expect_solved(const sampled_answer& answer, int steps) {
    EXPECT_EQ(answer.status, QUENTA_SOLVED);
    EXPECT_EQ(answer.n_steps, steps);
    EXPECT_TRUE(answer.out.fences_hold());
    EXPECT_TRUE(answer.coeffs.fences_hold());
}

inline void expect_near(double expected, double actual, const char* what, int index) {
    EXPECT_NEAR(expected, actual, 1e-13 * std::fabs(expected) + 1e-14)
        << what << " at index " << index << ": expected " << in_hexadecimal(expected) << ", actual "
        << in_hexadecimal(actual) << ", " << ulps_apart(expected, actual) << " ulps apart";
}

} // namespace quenta_tests
