// The promises of the block solvers, one per test. The library is not started here, since block solvers do not need it.
#include "conformance/function_call.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace quenta_tests {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

block_problem blocks(block_kind kind, int N, int P, int D, std::vector<double> A, std::vector<double> b) {
    return {kind, N, P, D, std::move(A), std::move(b), {}, {}, {}, {}, {}};
}

void expect_solution(const block_problem& problem, const std::vector<double>& x, const std::vector<double>& y = {}) {
    const block_answer answer = call_block_solver(problem);
    ASSERT_EQ(answer.status, QUENTA_SOLVED) << problem.text();
    EXPECT_TRUE(equal_bits(x, answer.x.values())) << problem.text();
    EXPECT_TRUE(equal_bits(y, answer.y.values())) << problem.text();
}

void expect_singular(const block_problem& problem) {
    EXPECT_EQ(call_block_solver(problem).status, QUENTA_SINGULAR_BLOCK) << problem.text();
}

TEST(function_solve, sizes_out_of_range_return_status_1_and_nothing_is_read_or_written) {
    int refused = 0;
    for (const block_kind kind : block_kinds)
        for (const auto& [N, P, D] : {std::tuple{1, 6, 1},
                                      {1, 0, 1},
                                      {1, -1, 1},
                                      {1, INT_MAX, 1},
                                      {1, INT_MIN, 1},
                                      {0, 1, 1},
                                      {-1, 1, 1},
                                      {INT_MIN, 1, 1},
                                      {1, 1, 9},
                                      {1, 1, -1},
                                      {1, 5, 100},
                                      {1, 1, INT_MIN},
                                      {1, 1, INT_MAX},
                                      {1, 6, 9},
                                      {0, 6, 9},
                                      {-5, 0, 1}}) {
            fenced_array x{8}, y{8};
            block_problem problem = blocks(kind, N, P, D, {}, {});
            problem.y0 = {1.0};
            // All other arrays are null pointers.
            EXPECT_EQ(call_block_solver(problem, nullptr, x.data(), y.data()), QUENTA_UNSUPPORTED_SETTING)
                << problem.text();
            if (D == 1) {
                problem.D = 0;
                EXPECT_EQ(call_block_solver(problem, nullptr, x.data(), y.data()), QUENTA_UNSUPPORTED_SETTING)
                    << problem.text();
            }
            EXPECT_TRUE(x.untouched() && y.untouched()) << problem.text();
            ++refused;
        }
    EXPECT_EQ(refused, 64);
    double cell = 0.0;
    for (const int D : {0, -1, INT_MIN, 9}) {
        EXPECT_EQ(function_solve_vie1_vec(nullptr, nullptr, 1, 1, D, &cell), QUENTA_UNSUPPORTED_SETTING);
        EXPECT_EQ(function_solve_vie1_cont_vec(nullptr, nullptr, 1, 1, D, nullptr, 0.0, nullptr, &cell, &cell),
                  QUENTA_UNSUPPORTED_SETTING);
        EXPECT_EQ(function_solve_vie2_vec(nullptr, nullptr, 1, 1, D, &cell), QUENTA_UNSUPPORTED_SETTING);
        EXPECT_EQ(function_solve_vide_vec(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 1, 1, D, &cell,
                                          &cell),
                  QUENTA_UNSUPPORTED_SETTING);
    }
    EXPECT_EQ(cell, 0.0);
}

TEST(function_solve, one_step_of_the_first_kind_divides_by_its_matrix_or_reports_that_it_is_singular) {
    for (const int D : {0, 1}) {
        expect_solution(blocks(block_kind::vie1, 1, 1, D, {4.0}, {2.0}), {0.5});
        expect_solution(blocks(block_kind::vie1, 1, 1, D, {1e-300}, {1.0}), {1.0 / 1e-300});
        expect_singular(blocks(block_kind::vie1, 1, 1, D, {0.0}, {1.0}));
        expect_singular(blocks(block_kind::vie1, 1, 1, D, {-0.0}, {1.0}));
        expect_singular(blocks(block_kind::vie1, 1, 1, D, {infinity}, {1.0}));
        expect_solution(blocks(block_kind::vie1, 1, 1, D, {nan}, {1.0}), {nan});
    }
    for (const auto& [P, D] : {std::pair{2, 0}, {2, 1}, {1, 2}}) {
        const auto block = [P = P, D = D](std::vector<double> A) {
            return blocks(block_kind::vie1, 1, P, D, std::move(A), {1.0, 2.0});
        };
        expect_singular(block({1.0, 1.0, 1.0, 1.0}));
        expect_singular(block({1.0, 0.0, 0.0, 1e-16}));
        expect_solution(block({1.0, 0.0, 0.0, 1e-15}), {1.0, 2.0 / 1e-15});
        expect_solution(block({1e-16, 0.0, 0.0, 1e-16}), {1.0 / 1e-16, 2.0 / 1e-16});
        expect_solution(block({0.0, 2.0, 4.0, 0.0}), {0.5, 0.5});
        // A pivot is compared with the pivots before it only, so the order of the unknowns matters.
        expect_singular(block({1.0, 0.0, 0.0, 1e-17}));
        expect_solution(block({1e-17, 0.0, 0.0, 1.0}), {1.0 / 1e-17, 2.0});
    }
}

// With the rows swapped, the result would be rounded differently.
TEST(function_solve, of_two_equal_pivots_the_upper_row_is_chosen) {
    const double a = 0x1.123456789abcdp0, b = 0x1.3p-3, c = 0x1.f0f0f0f0f0f0fp-1;
    const block_problem problem = blocks(block_kind::vie1, 1, 2, 0, {a, b, -a, c}, {1.0, 3.0});
    const double u1 = (3.0 - -1.0 * 1.0) / (c - -1.0 * b);
    expect_solution(problem, {(1.0 - b * u1) / a, u1});
}

TEST(function_solve, the_matrix_of_a_pair_of_points_is_contiguous_and_row_major) {
    std::vector<double> A(16, nan);
    const double diagonal[] = {1.0, 0.0, 0.0, 1.0};
    std::copy_n(diagonal, 4, A.begin());
    std::copy_n(diagonal, 4, A.begin() + 12);
    const double pair_1_0[] = {1.0, 2.0, 3.0, 4.0};
    std::copy_n(pair_1_0, 4, A.begin() + 8);
    expect_solution(blocks(block_kind::vie1, 2, 1, 2, A, {1.0, 10.0, 100.0, 1000.0}),
                    {1.0, 10.0, 100.0 - (1.0 + 20.0), 1000.0 - (3.0 + 40.0)});
    expect_solution(blocks(block_kind::vie2, 2, 1, 2, {0, 0, 0, 0, nan, nan, nan, nan, 1, 2, 3, 4, 0, 0, 0, 0},
                           {1.0, 10.0, 100.0, 1000.0}),
                    {1.0, 10.0, 100.0 + (1.0 + 20.0), 1000.0 + (3.0 + 40.0)});
}

TEST(function_solve, one_step_of_the_second_kind_divides_by_one_minus_its_matrix_or_reports_that_it_is_singular) {
    for (const int D : {0, 1}) {
        expect_solution(blocks(block_kind::vie2, 1, 1, D, {0.5}, {1.0}), {2.0});
        expect_solution(blocks(block_kind::vie2, 1, 1, D, {0.0}, {3.0}), {3.0});
        expect_singular(blocks(block_kind::vie2, 1, 1, D, {1.0}, {1.0}));
    }
}

TEST(function_solve, the_solution_of_the_second_kind_with_zero_blocks_is_the_right_side) {
    random_data random{20260311};
    int solved = 0;
    for (int P = 1; P <= 5; ++P)
        for (int D = 0; D <= 8; ++D) {
            block_problem problem = random_blocks(random, block_kind::vie2, 9, P, D);
            for (double& entry : problem.A)
                entry = std::isnan(entry) ? entry : 0.0;
            expect_solution(problem, problem.b);
            ++solved;
        }
    EXPECT_EQ(solved, 45);
}

block_problem one_step_that_carries_a_value(int D) {
    block_problem problem = blocks(block_kind::vie1_cont, 1, 1, D, {4.0, 2.0}, {3.0});
    problem.w = {5.0};
    problem.rho = 0.5;
    problem.y0 = {0.25};
    return problem;
}

TEST(function_solve, one_step_with_a_carried_value_follows_its_formula) {
    for (const int D : {0, 1}) {
        const double x = (3.0 - 2.0 * 0.25) / 4.0;
        expect_solution(one_step_that_carries_a_value(D), {x}, {0.25, 0.5 * 0.25 + 5.0 * x});
        block_problem singular = one_step_that_carries_a_value(D);
        singular.A[0] = 0.0;
        const block_answer answer = call_block_solver(singular);
        EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
        EXPECT_TRUE(answer.x.untouched());
        EXPECT_EQ(answer.y.values()[0], 0.25);
        EXPECT_TRUE(is_marked(answer.y.values()[1]));
    }
}

TEST(function_solve, with_rho_1_and_weights_0_the_carried_value_stays_the_initial_value) {
    random_data random{20260312};
    int solved = 0;
    for (int P = 1; P <= 5; ++P)
        for (int D = 0; D <= 8; ++D) {
            block_problem problem = random_blocks(random, block_kind::vie1_cont, 9, P, D);
            problem.rho = 1.0;
            problem.w.assign(problem.w.size(), 0.0);
            const block_answer answer = call_block_solver(problem);
            ASSERT_EQ(answer.status, QUENTA_SOLVED);
            for (std::size_t index = 0; index < answer.y.values().size(); ++index)
                EXPECT_EQ(answer.y.values()[index], problem.y0[index % problem.y0.size()]) << problem.text();
            EXPECT_TRUE(matches_reference(problem, answer, block_reference(problem)));
            ++solved;
        }
    EXPECT_EQ(solved, 45);
}

// With zero blocks and coefficients, the derivative is the forcing.
TEST(function_solve, the_solution_of_vide_with_zero_blocks_is_the_integral_of_the_forcing) {
    random_data random{20260313};
    int solved = 0;
    for (int P = 1; P <= 5; ++P)
        for (int D = 0; D <= 8; ++D) {
            block_problem problem = random_blocks(random, block_kind::vide, 7, P, D);
            for (double& entry : problem.A)
                entry = std::isnan(entry) ? entry : 0.0;
            problem.C.assign(problem.C.size(), 0.0);
            problem.E.assign(problem.E.size(), 0.0);
            const int components = int(problem.shape().D);
            std::vector<double> y = problem.y0;
            for (int n = 0; n < problem.N; ++n)
                for (int a = 0; a < components; ++a) {
                    double sum = 0.0;
                    for (int j = 0; j < P; ++j)
                        sum += problem.b[std::size_t((n * P + j) * components + a)] * problem.w[std::size_t(j)];
                    y.push_back(y[std::size_t(n * components + a)] + problem.h[std::size_t(n)] * sum);
                }
            expect_solution(problem, problem.b, y);
            ++solved;
        }
    EXPECT_EQ(solved, 45);
}

block_problem implicit_euler(int N, int D, double c, double h) {
    const std::size_t steps = std::size_t(N);
    block_problem problem =
        blocks(block_kind::vide, N, 1, D, std::vector(steps * steps * 2, 0.0), std::vector(steps, 0.0));
    problem.C.assign(steps, c);
    problem.E = {1.0};
    problem.w = {1.0};
    problem.h.assign(steps, h);
    problem.y0 = {1.0};
    return problem;
}

TEST(function_solve, one_point_at_the_end_of_the_step_gives_the_implicit_euler_method) {
    constexpr double c = -2.0, h = 0.125;
    for (const int D : {0, 1}) {
        const block_answer answer = call_block_solver(implicit_euler(50, D, c, h));
        ASSERT_EQ(answer.status, QUENTA_SOLVED);
        double y = 1.0;
        for (std::size_t n = 0; n < 50; ++n) {
            EXPECT_NEAR(answer.x.values()[n], c * y / (1.0 - c * h), 1e-14) << n;
            y /= 1.0 - c * h;
            EXPECT_NEAR(answer.y.values()[n + 1], y, 1e-14) << n;
        }
    }
}

TEST(function_solve, a_step_whose_matrix_is_zero_is_singular_and_the_previous_steps_stay) {
    for (const int D : {0, 1}) {
        block_problem problem = implicit_euler(3, D, -1.0, 0.5);
        problem.C[2] = 1.0;
        problem.A[problem.entry(2, 0, 0, 2, 0, 0)] = 1.0; // 1 - 0.5 - 0.5
        const block_answer answer = call_block_solver(problem);
        EXPECT_EQ(answer.status, QUENTA_SINGULAR_BLOCK);
        EXPECT_TRUE(is_marked(answer.x.values()[2]) && is_marked(answer.y.values()[3]));
        EXPECT_GT(answer.y.values()[2], 0.0);
    }
}

TEST(function_solve, a_step_of_length_zero_leaves_the_solution_unchanged) {
    for (const int D : {0, 1}) {
        block_problem problem = implicit_euler(3, D, -1.0, 0.5);
        problem.h[1] = 0.0;
        problem.A[problem.entry(1, 0, 0, 1, 0, 0)] = 77.0;
        const block_answer answer = call_block_solver(problem);
        EXPECT_EQ(answer.status, QUENTA_SOLVED);
        EXPECT_EQ(answer.y.values()[2], answer.y.values()[1]);
        EXPECT_EQ(answer.x.values()[1], -answer.y.values()[1]);
    }
}

// The vector form of one component gives the same bits as the scalar form, provided that no sum is zero: the sign of a
// zero may differ. The integro-differential forms agree to rounding.
TEST(function_solve, the_vector_form_of_one_component_equals_the_scalar_form) {
    random_data random{20260314};
    int compared = 0;
    for (const block_kind kind : block_kinds)
        for (int P = 1; P <= 5; ++P)
            for (const int N : {1, 2, 17, 60}) {
                block_problem problem = random_blocks(random, kind, N, P, 0);
                const block_answer scalar = call_block_solver(problem);
                problem.D = 1;
                const block_answer vector = call_block_solver(problem);
                ASSERT_EQ(scalar.status, QUENTA_SOLVED);
                ASSERT_EQ(vector.status, QUENTA_SOLVED);
                if (kind != block_kind::vide) {
                    EXPECT_TRUE(equal_bits(scalar.x.values(), vector.x.values())) << problem.text();
                    EXPECT_TRUE(equal_bits(scalar.y.values(), vector.y.values())) << problem.text();
                } else {
                    for (std::size_t index = 0; index < scalar.x.values().size(); ++index)
                        EXPECT_NEAR(scalar.x.values()[index], vector.x.values()[index], 1e-12)
                            << problem.text() << ", x at index " << index;
                    for (std::size_t index = 0; index < scalar.y.values().size(); ++index)
                        EXPECT_NEAR(scalar.y.values()[index], vector.y.values()[index], 1e-12)
                            << problem.text() << ", y at index " << index;
                }
                ++compared;
            }
    EXPECT_EQ(compared, 80);
}

} // namespace

} // namespace quenta_tests
