// What must hold between solutions of systems, whatever the data, in every kind of equation.
#include "properties/random_system.hpp"
#include "quenta_solvers/collocation_settings.hpp"
#include "quenta_solvers/variants.hpp"
#include "quenta_solvers/vide.hpp"
#include "quenta_solvers/vie1.hpp"
#include "quenta_solvers/vie2.hpp"
#include "support/bits.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace quenta_tests {

namespace {

using reference::setting;

constexpr double dt = 0.05;

// A solver of systems, the solver of one equation, and the body for a dimension known at run time, which also solves
// the systems for which the exports have another.
struct system_solver {
    const char* name;
    const char* of_one_equation;
    bool (*run_time_body)(int row, const system_samples& data, sampled_answer& answer);
    bool same_bits; // from all of them
};

void PrintTo(const system_solver& solver, std::ostream* stream) {
    *stream << solver.name;
}

quenta::view<const double> view_of(const std::vector<double>& samples) {
    return {samples.size(), samples.data()};
}
quenta::view<double> view_of(fenced_array& array) {
    return {array.values().size(), array.data()};
}

// The bodies for a dimension known at run time, also for those that have a variant of their own.
constexpr auto first_kind_rows = quenta::of_every_row([]<int row>() { return quenta::vie1_solve_any<row>; });
constexpr auto second_kind_rows = quenta::of_every_row([]<int row>() { return quenta::solve_vie2_vec_any_impl<row>; });
constexpr auto derivative_rows = quenta::of_every_row([]<int row>() { return quenta::solve_vide_vec_any_impl<row>; });

template <bool continuous>
bool first_kind_body(int row, const system_samples& data, sampled_answer& answer) {
    return first_kind_rows[row]({view_of(data.g), view_of(data.K), view_of(data.y0), dt, true, continuous,
                                 view_of(answer.out), view_of(answer.coeffs), &answer.n_steps},
                                data.D);
}

bool second_kind_body(int row, const system_samples& data, sampled_answer& answer) {
    return second_kind_rows[row](
        {view_of(data.g), view_of(data.K), dt, true, view_of(answer.out), view_of(answer.coeffs), &answer.n_steps},
        data.D);
}

bool derivative_body(int row, const system_samples& data, sampled_answer& answer) {
    return derivative_rows[row]({view_of(data.g), view_of(data.K), view_of(data.a), view_of(data.y0), dt, true,
                                 view_of(answer.out), view_of(answer.coeffs), &answer.n_steps},
                                data.D);
}

constexpr system_solver system_solvers[] = {
    {"vie1_vec_discontinuous", "vie1_discontinuous", first_kind_body<false>, true},
    {"vie1_vec_continuous", "vie1_continuous", first_kind_body<true>, true},
    {"vie2_vec", "vie2", second_kind_body, true},
    {"vide_vec", "vide", derivative_body, false},
};

// The samples of another system, whose component r is component from[r] of this one; of the entries between two
// components only those are kept that `keeps` says.
template <class entry_filter>
system_samples reordered(const system_samples& data, const std::vector<int>& from, const entry_filter& keeps) {
    const int D = int(from.size());
    system_samples other{D, data.N()};
    for (int i = 0; i < data.N(); ++i)
        for (int r = 0; r < D; ++r) {
            other.g[i * D + r] = data.g[i * data.D + from[r]];
            other.y0[r] = data.y0[from[r]];
            for (int s = 0; s < D; ++s) {
                const int entry = (i * data.D + from[r]) * data.D + from[s];
                other.K[(i * D + r) * D + s] = keeps(r, s) ? data.K[entry] : 0.0;
                other.a[(i * D + r) * D + s] = keeps(r, s) ? data.a[entry] : 0.0;
            }
        }
    return other;
}

constexpr auto all_entries = [](int, int) {
    return true;
};
constexpr auto diagonal = [](int r, int s) {
    return r == s;
};

std::vector<int> in_order(int D) {
    std::vector<int> components;
    for (int r = 0; r < D; ++r)
        components.push_back(r);
    return components;
}

// Component r of one answer is component s of another to rounding, relative to its size.
void expect_same_component(const sampled_answer& expected, int D, int r, const sampled_answer& actual, int other_D,
                           int s) {
    const auto out = expected.out.values();
    double scale = 0.0;
    for (std::size_t i = std::size_t(r); i < out.size(); i += std::size_t(D))
        scale = std::max(scale, std::fabs(out[i]));
    for (int i = 0; i < int(out.size()) / D; ++i) {
        const double a = out[i * D + r], b = actual.out.values()[i * other_D + s];
        ASSERT_NEAR(a, b, 1e-9 * scale) << "component " << r << " as " << s << ", sample " << i << ": "
                                        << in_hexadecimal(a) << " and " << in_hexadecimal(b) << ", " << ulps_apart(a, b)
                                        << " ulps apart";
    }
}

class system_identity : public ::testing::TestWithParam<system_solver> {
protected:
    static const sampled_solver& solver() { return solver_named(GetParam().name); }

    static sampled_answer solve(const sampled_solver& called, const system_samples& data, const setting& row) {
        sampled_answer answer = called.solve(data, dt, row, 1);
        EXPECT_EQ(answer.status, QUENTA_SOLVED);
        return answer;
    }

    // Calls visit(row number, D, random system) for all settings that suit, and fails if there is none.
    template <class visitor>
    static void for_each_system(const std::vector<int>& dimensions, const visitor& visit, int steps = 4) {
        random_data random{20260401};
        int visited = 0;
        for (int number = 0; number < quenta::supported_setting_count; ++number) {
            const setting& row = reference::settings()[std::size_t(number)];
            if (!solver().suits(row))
                continue;
            for (const int D : dimensions) {
                SCOPED_TRACE("row " + std::to_string(number) + ", D = " + std::to_string(D));
                visit(number, row, random_system(random, D, steps * row.m * row.m + 1));
                ++visited;
            }
        }
        EXPECT_GT(visited, 0);
    }
};

TEST_P(system_identity, components_that_do_not_meet_are_equations_of_their_own) {
    const sampled_solver& scalar = solver_named(GetParam().of_one_equation);
    for_each_system({1, 2, 3, 8, 9, 10}, [&](int, const setting& row, const system_samples& random) {
        const system_samples data = reordered(random, in_order(random.D), diagonal);
        const sampled_answer together = solve(solver(), data, row);
        for (int r = 0; r < data.D; ++r)
            expect_same_component(solve(scalar, reordered(data, {r}, all_entries), row), 1, 0, together, data.D, r);
    });
}

TEST_P(system_identity, one_component_is_the_scalar_equation) {
    const sampled_solver& scalar = solver_named(GetParam().of_one_equation);
    for (const int steps : {1, 3, 66, 130})
        for_each_system(
            {1},
            [&](int, const setting& row, const system_samples& data) {
                const sampled_answer system = solve(solver(), data, row), equation = solve(scalar, data, row);
                EXPECT_EQ(equation.n_steps, system.n_steps);
                if (!GetParam().same_bits)
                    return expect_same_component(equation, 1, 0, system, 1, 0);
                ASSERT_TRUE(equal_bits(equation.out.values(), system.out.values()));
                ASSERT_TRUE(equal_bits(equation.coeffs.values(), system.coeffs.values()));
            },
            steps);
}

TEST_P(system_identity, an_idle_ninth_component_changes_nothing_of_eight) {
    for_each_system({9}, [&](int, const setting& row, system_samples nine) {
        constexpr auto idle = [](int r, int s) {
            return r == s || (r < 8 && s < 8);
        };
        for (int i = 0; i < nine.N(); ++i)
            nine.g[i * 9 + 8] = 0.0;
        nine.y0[8] = 0.0;
        nine = reordered(nine, in_order(9), idle);
        const sampled_answer with = solve(solver(), nine, row);
        const sampled_answer without = solve(solver(), reordered(nine, in_order(8), all_entries), row);
        for (int r = 0; r < 8; ++r)
            expect_same_component(without, 8, r, with, 9, r);
        for (int i = 0; i < nine.N(); ++i)
            EXPECT_EQ(with.out.values()[i * 9 + 8], 0.0);
    });
}

TEST_P(system_identity, the_order_of_the_components_does_not_matter) {
    for_each_system({2, 3, 8, 9}, [&](int, const setting& row, const system_samples& data) {
        std::vector<int> from;
        for (int r = 0; r < data.D; ++r)
            from.push_back((r + 1) % data.D);
        const sampled_answer before = solve(solver(), data, row);
        const sampled_answer after = solve(solver(), reordered(data, from, all_entries), row);
        for (int r = 0; r < data.D; ++r)
            expect_same_component(before, data.D, from[r], after, data.D, r);
    });
}

// The eliminations of both update an element by the same products in the same order, so that not only the solution is
// the same but its bits are, where the step's matrix has one rounding for both.
TEST_P(system_identity, a_dimension_known_early_or_late_gives_the_same_solution) {
    for_each_system({1, 2, 3, 4, 5, 6, 7, 8}, [&](int number, const setting& row, const system_samples& data) {
        const sampled_answer early = solve(solver(), data, row);
        sampled_answer late = blank_answer(data.N(), data.D, row);
        ASSERT_TRUE(GetParam().run_time_body(number, data, late));
        EXPECT_EQ(early.n_steps, late.n_steps);
        EXPECT_TRUE(late.out.fences_hold());
        EXPECT_TRUE(late.coeffs.fences_hold());
        if (GetParam().same_bits) {
            ASSERT_TRUE(equal_bits(early.out.values(), late.out.values()));
            ASSERT_TRUE(equal_bits(early.coeffs.values(), late.coeffs.values()));
        }
        for (int r = 0; r < data.D; ++r)
            expect_same_component(early, data.D, r, late, data.D, r);
    });
}

INSTANTIATE_TEST_SUITE_P(solver, system_identity, ::testing::ValuesIn(system_solvers),
                         [](const auto& instance) { return std::string{instance.param.name}; });

// With K(t) = k(t) times the matrix that has its ones at (a, a + 1), component a + 1 solves the scalar equation whose
// forcing is component a of g. Its transpose would give it to component a - 1.
TEST(vie1_identity, a_kernel_that_turns_the_components_gives_the_scalar_solutions_turned) {
    random_data random{20260221};
    int compared = 0;
    for (const setting& row : reference::settings()) {
        if (!solver_named("vie1_vec_continuous").suits(row))
            continue;
        const int N = 4 * row.m * row.m + 1;
        for (const int D : {3, 8, 9, 10})
            for (const bool continuous : {false, true}) {
                SCOPED_TRACE(::testing::Message() << "m = " << row.m << ", nodes "
                                                  << ::testing::PrintToString(row.indices) << ", D = " << D);
                system_samples data = random_system(random, D, N);
                std::vector<double> k;
                std::fill(data.K.begin(), data.K.end(), 0.0);
                for (int i = 0; i < N; ++i) {
                    k.push_back(1.0 + 0.2 * std::cos(0.5 * i));
                    for (int a = 0; a < D; ++a)
                        data.K[(i * D + a) * D + (a + 1) % D] = k.back();
                }
                const sampled_answer system = call_vie1_vec(data.g, data.K, D, data.y0, dt, row, continuous);
                ASSERT_EQ(system.status, QUENTA_SOLVED);
                for (int a = 0; a < D; ++a) {
                    const int turned = (a + 1) % D;
                    std::vector<double> g_a;
                    for (int i = 0; i < N; ++i)
                        g_a.push_back(data.g[i * D + a]);
                    const sampled_answer scalar = call_vie1(g_a, k, data.y0[turned], dt, row, continuous);
                    ASSERT_EQ(scalar.status, QUENTA_SOLVED);
                    expect_same_component(scalar, 1, 0, system, D, turned);
                    ++compared;
                }
            }
    }
    EXPECT_GT(compared, 1000);
}

} // namespace

} // namespace quenta_tests
