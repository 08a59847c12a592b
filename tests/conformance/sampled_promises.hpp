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
        << what << " at index " << index << ": expected " << in_hexadecimal(expected) << ", actual "
        << in_hexadecimal(actual) << ", " << ulps_apart(expected, actual) << " ulps apart";
}

// The samples of a solution that has the value U[j] all over step j, with one spacing to the step.
inline void expect_constant_steps(const std::vector<double>& U, const sampled_answer& answer) {
    const int steps = int(U.size());
    const std::span<const double> out = answer.out.values();
    expect_near(U[0], out[0], "out", 0);
    for (int x = 1; x < steps; ++x)
        expect_near((U[x - 1] + U[x]) / 2, out[x], "out", x);
    expect_near(U[steps - 1], out[steps], "out", steps);
}

} // namespace quenta_tests
