// Relations between solutions of systems that hold for any data, for every kind of equation.
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

// A solver of systems, its scalar solver, and its implementation for run-time dimensions. The tests also call the
// latter for dimensions for which the exports use a variant of their own.
struct system_solver {
    const char* name;
    const char* scalar_solver;
    bool (*run_time_dimension)(int row, const system_samples& data, sampled_answer& answer);
    bool same_bits; // from all three implementations
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

// The implementations for run-time dimensions, by row.
constexpr auto first_kind_rows = quenta::of_every_row([]<int row>() { return quenta::vie1_solve_any<row>; });
constexpr auto second_kind_rows = quenta::of_every_row([]<int row>() { return quenta::solve_vie2_vec_any_impl<row>; });
constexpr auto integro_differential_rows =
    quenta::of_every_row([]<int row>() { return quenta::solve_vide_vec_any_impl<row>; });

template <bool continuous>
bool solve_first_kind(int row, const system_samples& data, sampled_answer& answer) {
    return first_kind_rows[row]({view_of(data.g), view_of(data.K), view_of(data.y0), dt, true, continuous,
                                 view_of(answer.out), view_of(answer.coeffs), &answer.n_steps},
                                data.D);
}

bool solve_second_kind(int row, const system_samples& data, sampled_answer& answer) {
    return second_kind_rows[row](
        {view_of(data.g), view_of(data.K), dt, true, view_of(answer.out), view_of(answer.coeffs), &answer.n_steps},
        data.D);
}

bool solve_integro_differential(int row, const system_samples& data, sampled_answer& answer) {
    return integro_differential_rows[row]({view_of(data.g), view_of(data.K), view_of(data.a), view_of(data.y0), dt,
                                           true, view_of(answer.out), view_of(answer.coeffs), &answer.n_steps},
                                          data.D);
}

constexpr system_solver system_solvers[] = {
    {"vie1_vec_discontinuous", "vie1_discontinuous", solve_first_kind<false>, true},
    {"vie1_vec_continuous", "vie1_continuous", solve_first_kind<true>, true},
    {"vie2_vec", "vie2", solve_second_kind, true},
    {"vide_vec", "vide", solve_integro_differential, false},
};

// The samples of a system whose component a is component from[a] of the given one. Entries (a, b) of the matrices are
// zero unless keeps(a, b).
template <class entry_filter>
system_samples reordered(const system_samples& data, const std::vector<int>& from, const entry_filter& keeps) {
    const int D = int(from.size());
    system_samples other{D, data.N()};
    for (int sample = 0; sample < data.N(); ++sample)
        for (int a = 0; a < D; ++a) {
            other.g[sample * D + a] = data.g[sample * data.D + from[a]];
            other.y0[a] = data.y0[from[a]];
            for (int b = 0; b < D; ++b) {
                const int entry = (sample * data.D + from[a]) * data.D + from[b];
                other.K[(sample * D + a) * D + b] = keeps(a, b) ? data.K[entry] : 0.0;
                other.a[(sample * D + a) * D + b] = keeps(a, b) ? data.a[entry] : 0.0;
            }
        }
    return other;
}

constexpr auto all_entries = [](int, int) {
    return true;
};
constexpr auto diagonal = [](int a, int b) {
    return a == b;
};

std::vector<int> in_order(int D) {
    std::vector<int> components;
    for (int a = 0; a < D; ++a)
        components.push_back(a);
    return components;
}

// Component a of one answer equals component b of another to rounding, relative to its largest magnitude.
void expect_same_component(const sampled_answer& expected, int D, int a, const sampled_answer& actual, int other_D,
                           int b) {
    const auto out = expected.out.values();
    double scale = 0.0;
    for (std::size_t index = std::size_t(a); index < out.size(); index += std::size_t(D))
        scale = std::max(scale, std::fabs(out[index]));
    for (int sample = 0; sample < int(out.size()) / D; ++sample) {
        const double wanted = out[sample * D + a], got = actual.out.values()[sample * other_D + b];
        ASSERT_NEAR(wanted, got, 1e-9 * scale)
            << "component " << a << " compared with component " << b << ", sample " << sample << ": expected "
            << in_hexadecimal(wanted) << ", got " << in_hexadecimal(got) << ", " << ulps_apart(wanted, got)
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

    // Calls visit(row number, setting, random system) for all suitable settings, and fails if there is none.
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

TEST_P(system_identity, components_that_are_not_coupled_are_solved_as_scalar_equations) {
    const sampled_solver& scalar = solver_named(GetParam().scalar_solver);
    for_each_system({1, 2, 3, 8, 9, 10}, [&](int, const setting& row, const system_samples& random) {
        const system_samples data = reordered(random, in_order(random.D), diagonal);
        const sampled_answer together = solve(solver(), data, row);
        for (int a = 0; a < data.D; ++a)
            expect_same_component(solve(scalar, reordered(data, {a}, all_entries), row), 1, 0, together, data.D, a);
    });
}

TEST_P(system_identity, a_system_of_one_component_is_solved_as_the_scalar_equation) {
    const sampled_solver& scalar = solver_named(GetParam().scalar_solver);
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

TEST_P(system_identity, a_ninth_component_that_is_zero_and_not_coupled_changes_nothing_in_eight) {
    for_each_system({9}, [&](int, const setting& row, system_samples nine) {
        constexpr auto uncoupled = [](int a, int b) {
            return a == b || (a < 8 && b < 8);
        };
        for (int sample = 0; sample < nine.N(); ++sample)
            nine.g[sample * 9 + 8] = 0.0;
        nine.y0[8] = 0.0;
        nine = reordered(nine, in_order(9), uncoupled);
        const sampled_answer with = solve(solver(), nine, row);
        const sampled_answer without = solve(solver(), reordered(nine, in_order(8), all_entries), row);
        for (int a = 0; a < 8; ++a)
            expect_same_component(without, 8, a, with, 9, a);
        for (int sample = 0; sample < nine.N(); ++sample)
            EXPECT_EQ(with.out.values()[sample * 9 + 8], 0.0);
    });
}

TEST_P(system_identity, reordering_the_components_reorders_the_solution) {
    for_each_system({2, 3, 8, 9}, [&](int, const setting& row, const system_samples& data) {
        std::vector<int> from;
        for (int a = 0; a < data.D; ++a)
            from.push_back((a + 1) % data.D);
        const sampled_answer before = solve(solver(), data, row);
        const sampled_answer after = solve(solver(), reordered(data, from, all_entries), row);
        for (int a = 0; a < data.D; ++a)
            expect_same_component(before, data.D, from[a], after, data.D, a);
    });
}

// Both eliminations update an entry by the same products in the same order. So the bits agree if both round the matrix
// of a step in the same way, which the integro-differential variants do not.
TEST_P(system_identity, fixed_and_run_time_dimensions_give_the_same_solution) {
    for_each_system({1, 2, 3, 4, 5, 6, 7, 8}, [&](int number, const setting& row, const system_samples& data) {
        const sampled_answer fixed = solve(solver(), data, row);
        sampled_answer run_time = blank_answer(data.N(), data.D, row);
        ASSERT_TRUE(GetParam().run_time_dimension(number, data, run_time));
        EXPECT_EQ(fixed.n_steps, run_time.n_steps);
        EXPECT_TRUE(run_time.out.fences_hold());
        EXPECT_TRUE(run_time.coeffs.fences_hold());
        if (GetParam().same_bits) {
            ASSERT_TRUE(equal_bits(fixed.out.values(), run_time.out.values()));
            ASSERT_TRUE(equal_bits(fixed.coeffs.values(), run_time.coeffs.values()));
        }
        for (int a = 0; a < data.D; ++a)
            expect_same_component(fixed, data.D, a, run_time, data.D, a);
    });
}

INSTANTIATE_TEST_SUITE_P(solver, system_identity, ::testing::ValuesIn(system_solvers),
                         [](const auto& instance) { return std::string{instance.param.name}; });

// K(t) is k(t) times the permutation matrix with ones at (a, a + 1). Component a + 1 then solves the scalar equation
// whose forcing is component a of g. With the kernel transposed, component a - 1 would solve it.
TEST(vie1_identity, a_kernel_that_permutes_the_components_permutes_the_scalar_solutions) {
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
                for (int sample = 0; sample < N; ++sample) {
                    k.push_back(1.0 + 0.2 * std::cos(0.5 * sample));
                    for (int a = 0; a < D; ++a)
                        data.K[(sample * D + a) * D + (a + 1) % D] = k.back();
                }
                const sampled_answer system = call_vie1_vec(data.g, data.K, D, data.y0, dt, row, continuous);
                ASSERT_EQ(system.status, QUENTA_SOLVED);
                for (int a = 0; a < D; ++a) {
                    const int b = (a + 1) % D;
                    std::vector<double> g_a;
                    for (int sample = 0; sample < N; ++sample)
                        g_a.push_back(data.g[sample * D + a]);
                    const sampled_answer scalar = call_vie1(g_a, k, data.y0[b], dt, row, continuous);
                    ASSERT_EQ(scalar.status, QUENTA_SOLVED);
                    expect_same_component(scalar, 1, 0, system, D, b);
                    ++compared;
                }
            }
    }
    EXPECT_GT(compared, 1000);
}

} // namespace

} // namespace quenta_tests
