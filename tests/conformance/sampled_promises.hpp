// Shared by the tests of promises: data, and checks of an answer.
#pragma once

#include "conformance/sampled_call.hpp"
#include "support/bits.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <vector>

namespace quenta_tests {

// Forcing and kernel. Each sample has a different value, so that a wrong index changes the result.
inline double g_at(int sample) {
    return 1.0 + std::sin(1.7 * sample + 0.3);
}
inline double K_at(int sample) {
    return 0.5 + std::cos(0.9 * sample - 0.2);
}
inline std::vector<double> sampled(double (*value)(int), int N) {
    std::vector<double> samples;
    for (int sample = 0; sample < N; ++sample)
        samples.push_back(value(sample));
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

// Calls visit(row) for the settings that have the property, and fails if there is none.
template <class property, class visitor>
void for_each_setting(const property& wanted, const visitor& visit) {
    int visited = 0;
    for (const reference::setting& row : reference::settings())
        if (wanted(row)) {
            SCOPED_TRACE(::testing::Message()
                         << "m = " << row.m << ", nodes " << ::testing::PrintToString(row.indices));
            visit(row);
            ++visited;
        }
    EXPECT_GT(visited, 0);
}

inline void expect_near(double expected, double actual, const char* what, int index) {
    EXPECT_NEAR(expected, actual, 1e-13 * std::fabs(expected) + 1e-14)
        << what << " at index " << index << ": expected " << in_hexadecimal(expected) << ", got "
        << in_hexadecimal(actual) << ", " << ulps_apart(expected, actual) << " ulps apart";
}

// Checks the samples of a solution that has the value U[n] throughout step n, for steps of one spacing.
inline void expect_constant_steps(const std::vector<double>& U, const sampled_answer& answer) {
    const int steps = int(U.size());
    const std::span<const double> out = answer.out.values();
    expect_near(U[0], out[0], "out", 0);
    for (int n = 1; n < steps; ++n)
        expect_near((U[n - 1] + U[n]) / 2, out[n], "out", n);
    expect_near(U[steps - 1], out[steps], "out", steps);
}

} // namespace quenta_tests
