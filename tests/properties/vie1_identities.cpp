// What must hold between solutions of first-kind equations, whatever the data.
#include "conformance/vie1_call.hpp"
#include "quenta_solvers/collocation_settings.hpp"
#include "quenta_solvers/variant_dispatch.hpp"
#include "quenta_solvers/vie1.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace quenta_tests {

namespace {

using quenta::run_time_dimension;
using quenta::view;

// The body for a dimension known at run time, asked for one that the exports solve with another body.
sampled_answer call_with_run_time_dimension(int row, const std::vector<double>& g, const std::vector<double>& K, int D,
                                            const std::vector<double>& y0, double dt, bool continuous) {
    const reference::setting& setting = reference::settings()[std::size_t(row)];
    const std::size_t steps = std::size_t(steps_of(g.size() / std::size_t(D), setting));
    sampled_answer answer{.status = -1,
                          .out = fenced_array{g.size()},
                          .coeffs = fenced_array{steps * (setting.indices.size() + 1) * std::size_t(D)}};
    const auto view_of = [](const std::vector<double>& samples) {
        return view<const double>{samples.size(), samples.data()};
    };
    const bool solved = quenta::dispatch_row(row, [&]<int number>() {
        return quenta::vie1_solve<number>(view_of(g), view_of(K), run_time_dimension{D}, view_of(y0), dt, true,
                                          continuous, {g.size(), answer.out.data()},
                                          {answer.coeffs.values().size(), answer.coeffs.data()}, &answer.n_steps);
    });
    answer.status = solved ? QUENTA_SOLVED : QUENTA_SINGULAR_BLOCK;
    return answer;
}

// The eliminations of both update an element by the same products in the same order, so that not only the solution is
// the same but its bits are.
TEST(vie1_identity, a_dimension_known_early_or_late_gives_the_same_bits) {
    random_data random{20260220};
    int compared = 0;
    for (int row = 0; row < quenta::supported_setting_count; ++row) {
        const reference::setting& setting = reference::settings()[std::size_t(row)];
        const int N = 5 * setting.m * setting.m + 1;
        if (refused_by_vie1(setting))
            continue;
        for (int D = 1; D <= 8; ++D)
            for (const bool continuous : {false, true}) {
                SCOPED_TRACE(::testing::Message() << "row " << row << ", D = " << D << ", continuous " << continuous);
                const std::vector<double> g = random.uniform(std::size_t(N * D)),
                                          K = random.uniform(std::size_t(N * D * D)),
                                          y0 = random.uniform(std::size_t(D));
                const sampled_answer early = call_vie1(g, K, D, y0, 0.1, setting, continuous);
                const sampled_answer late = call_with_run_time_dimension(row, g, K, D, y0, 0.1, continuous);
                ASSERT_EQ(early.status, late.status);
                ASSERT_TRUE(equal_bits(early.out.values(), late.out.values()));
                ASSERT_TRUE(equal_bits(early.coeffs.values(), late.coeffs.values()));
                ++compared;
            }
    }
    EXPECT_EQ(compared, 53 * 8 * 2);
}

// With K(t) = k(t) times the matrix that has its ones at (a, a + 1), component a + 1 solves the scalar equation whose
// forcing is component a of g. Its transpose would give it to component a - 1.
TEST(vie1_identity, a_kernel_that_turns_the_components_gives_the_scalar_solutions_turned) {
    random_data random{20260221};
    int compared = 0;
    for (const reference::setting& setting : reference::settings()) {
        if (has_node_0(setting) || refused_by_vie1(setting))
            continue;
        const int steps = 4, N = steps * setting.m * setting.m + 1;
        for (const int D : {3, 8, 9, 10})
            for (const bool continuous : {false, true}) {
                const std::vector<double> g = random.uniform(std::size_t(N * D)), y0 = random.uniform(std::size_t(D));
                std::vector<double> k, K(std::size_t(N * D * D), 0.0);
                for (int i = 0; i < N; ++i) {
                    k.push_back(1.0 + 0.2 * std::cos(0.5 * i));
                    for (int a = 0; a < D; ++a)
                        K[std::size_t((i * D + a) * D + (a + 1) % D)] = k.back();
                }
                const sampled_answer system = call_vie1(g, K, D, y0, 0.1, setting, continuous);
                ASSERT_EQ(system.status, QUENTA_SOLVED);
                for (int a = 0; a < D; ++a) {
                    const std::size_t turned = std::size_t((a + 1) % D);
                    std::vector<double> g_a;
                    for (int i = 0; i < N; ++i)
                        g_a.push_back(g[std::size_t(i * D + a)]);
                    const sampled_answer scalar = call_vie1(g_a, k, 1, {y0[turned]}, 0.1, setting, continuous);
                    ASSERT_EQ(scalar.status, QUENTA_SOLVED);
                    double scale = 0.0;
                    for (const double value : scalar.out.values())
                        scale = std::max(scale, std::fabs(value));
                    for (int i = 0; i < N; ++i) {
                        const double expected = scalar.out.values()[std::size_t(i)];
                        const double actual = system.out.values()[std::size_t(i * D) + turned];
                        ASSERT_NEAR(expected, actual, 1e-9 * scale)
                            << "m = " << setting.m << ", nodes " << ::testing::PrintToString(setting.indices)
                            << ", D = " << D << ", N = " << N << ", component " << a << ", sample " << i << ": "
                            << in_hexadecimal(expected) << " and " << in_hexadecimal(actual) << ", "
                            << ulps_apart(expected, actual) << " ulps apart";
                    }
                    ++compared;
                }
            }
    }
    EXPECT_GT(compared, 1000);
}

} // namespace

} // namespace quenta_tests
