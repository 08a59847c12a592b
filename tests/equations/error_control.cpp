// The control of the error: what is reported as reached is reached, also where the solution is not smooth, and what
// cannot be reached is reported soon.
#include "equations/problems.hpp"
#include "equations/tolerance_problems.hpp"
#include "support/long_tests.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

namespace {

using namespace quenta_test;

// How a solve ended, and how much work it was.
struct outcome {
    int status;
    quenta::solution y;
    std::int64_t all_pairs, last_pairs; // of steps, in all solves and in the last one
};

outcome solve(const quenta::equation& equation, double t_end, double rtol, double atol, int max_steps, int P = 0) {
    struct {
        std::int64_t all = 0, last = 0;
    } pairs;
    quenta_equation_set_progress(
        equation.get(),
        [](void* context, int done, int) {
            auto& [all, last] = *static_cast<decltype(pairs)*>(context);
            last = done == 1 ? 1 : last + done;
            all += done;
            return 0;
        },
        &pairs);
    quenta_solution* solution = nullptr;
    const int status =
        quenta_equation_solve_to_tolerance(equation.get(), t_end, rtol, atol, max_steps, nullptr, P, &solution);
    quenta_equation_set_progress(equation.get(), nullptr, nullptr);
    return {status, quenta::solution(solution), pairs.all, pairs.last};
}

// The largest error of a solution, at any time: as a part of the tolerance, and as a part of the estimate.
struct true_error {
    double in_tolerances = 0.0, in_estimates = 0.0;
};

std::vector<double> times_of(const tolerance_problem& problem, const quenta::solution& y) {
    std::vector<double> times;
    for (std::size_t n = 1; n < y.mesh().size(); ++n)
        for (const double x : {1e-9, 0.03, 0.1, 0.3, 0.5, 0.7, 0.9, 1.0})
            times.push_back(y.mesh()[n - 1] + x * (y.mesh()[n] - y.mesh()[n - 1]));
    for (const shape& component : problem.exact)
        for (std::size_t i = 0; i < std::min<std::size_t>(component.breaks.size(), 20); ++i)
            for (const double distance : {1e-2, 1e-3, 1e-4, 1e-5, 1e-6, 1e-9})
                for (const double side : {-1.0, 1.0})
                    times.push_back(component.breaks[i] + side * distance * problem.t_end);
    std::erase_if(times, [&](double t) { return t < 0.0 || t > problem.t_end; });
    return times;
}

true_error error_of(const tolerance_problem& problem, const quenta::solution& y) {
    true_error result;
    const std::vector<double> times = times_of(problem, y);
    std::vector<double> got(times.size() * problem.exact.size());
    quenta_solution_evaluate(y.get(), int(times.size()), times.data(), got.data());
    for (std::size_t a = 0; a < problem.exact.size(); ++a) {
        double largest = 0.0;
        for (const double t : times)
            largest = std::max(largest, std::fabs(problem.exact[a].value(t)));
        for (std::size_t i = 0; i < times.size(); ++i) {
            const double expected = problem.exact[a].value(times[i]);
            const double error = std::fabs(got[i * problem.exact.size() + a] - expected);
            result.in_tolerances = std::max(result.in_tolerances, error / problem.allowed(expected, largest));
            result.in_estimates = std::max(result.in_estimates, error / y.error()[a]);
        }
    }
    return result;
}

TEST(error_control, reaches_what_it_reports_for_random_problems) {
    const int problems = quenta_tests::long_tests() ? 505 : 101;
    constexpr int max_steps = 256;
    int reached = 0, wrong = 0, missed = 0, wrong_estimates = 0;
    for (int seed = 0; seed < problems; ++seed) {
        const tolerance_problem problem = problem_maker(std::uint64_t(seed)).make();
        const auto [status, y, all, last] =
            solve(*problem.equation, problem.t_end, problem.rtol, problem.atol, max_steps);
        if (status != QUENTA_EQUATION_SOLVED && status != QUENTA_EQUATION_TOLERANCE_MISSED)
            continue;
        const true_error error = error_of(problem, y);
        if (status == QUENTA_EQUATION_SOLVED) {
            ++reached;
            wrong += error.in_tolerances > 1.0;
            EXPECT_LT(error.in_tolerances, 10.0) << "seed " << seed << ": " << problem.name;
        } else {
            ++missed;
            wrong_estimates += error.in_estimates > 10.0;
        }
    }
    std::printf("%d reached, %d of them not; %d missed, %d of them with an estimate that is much too small\n", reached,
                wrong, missed, wrong_estimates);
    EXPECT_GT(reached, problems / 4);
    EXPECT_GT(missed, problems / 4);
    EXPECT_GT(reached + missed, problems * 98 / 100);
    EXPECT_LE(wrong, reached * 3 / 100);
    EXPECT_LE(wrong_estimates, missed / 10);
}

double constant_kernel(double) {
    return 1.0;
}

// y = integral of y + the rest of the chosen y.
template <class F>
quenta::equation with_integral(F y_minus_integral) {
    return quenta::second_kind(y_minus_integral).lag_memory(constant_kernel);
}

TEST(error_control, finds_a_kink_and_a_jump_between_the_nodes_of_two_steps) {
    // The first node of a step is far behind the kink, in all solves.
    const double a = 0.5 + 1e-4;
    const auto kink = with_integral([=](double t) {
        const double u = std::max(0.0, t - a);
        return 100 * (u - u * u / 2);
    });
    const auto jump = with_integral([=](double t) { return t < a ? 0.0 : 1 - (t - a); });
    for (const int P : {3, 5}) {
        EXPECT_EQ(solve(kink, 1.0, 0.0, 1e-4, 64, P).status, QUENTA_EQUATION_TOLERANCE_MISSED);
        const outcome missed = solve(jump, 1.0, 0.0, 1e-4, 512, P);
        EXPECT_EQ(missed.status, QUENTA_EQUATION_TOLERANCE_MISSED);
        EXPECT_GT(missed.y.error()[0], 0.5);
        EXPECT_LT(missed.y.error()[0], 4.0);
    }
}

TEST(error_control, finds_a_layer_that_ends_before_the_first_node) {
    // y = exp(-1e6 t).
    const auto second = quenta::second_kind([](double) { return 1.0; }).lag_memory([](double) { return -1e6; });
    EXPECT_EQ(solve(second, 1.0, 0.0, 1e-3, 512).status, QUENTA_EQUATION_TOLERANCE_MISSED);
    const auto with_derivative =
        quenta::integro_differential([](double t, double) { return -1e6 * std::exp(-1e6 * t); }, 1.0)
            .lag_memory([](double) { return 0.0; });
    EXPECT_EQ(solve(with_derivative, 1.0, 0.0, 1e-3, 512).status, QUENTA_EQUATION_TOLERANCE_MISSED);
}

TEST(error_control, does_not_need_a_value_at_0) {
    // y = 1
    const auto equation =
        quenta::second_kind([](double t) { return t > 0.0 ? 1.0 - t : HUGE_VAL; }).lag_memory(constant_kernel);
    const outcome solved = solve(equation, 1.0, 0.0, 1e-10, 0);
    EXPECT_EQ(solved.status, QUENTA_EQUATION_SOLVED);
    EXPECT_NEAR(solved.y(0.0), 1.0, 1e-10);
    EXPECT_NEAR(solved.y(0.7), 1.0, 1e-10);

    const auto with_slope = quenta::integro_differential([](double t, double) { return t > 0.0 ? 0.0 : HUGE_VAL; }, 1.0)
                                .lag_memory([](double) { return 0.0; });
    const outcome constant = solve(with_slope, 1.0, 0.0, 1e-10, 0);
    EXPECT_EQ(constant.status, QUENTA_EQUATION_SOLVED);
    EXPECT_NEAR(constant.y(0.7), 1.0, 1e-10);
}

TEST(error_control, finds_narrow_features) {
    // y = 1, with a bump in the kernel; and y = a bump.
    for (int i = 0; i < 10; ++i) {
        const double a = 0.03 + 0.0974 * i, width = 0.003;
        const auto bump = [=](double x) {
            return std::exp(-std::pow((x - a) / width, 2));
        };
        const auto integral = [=](double x) {
            return width * std::sqrt(std::numbers::pi) / 2 * (std::erf((x - a) / width) + std::erf(a / width));
        };
        const auto expect = [&](const quenta::equation& equation, double tolerance, const auto& exact) {
            const outcome solved = solve(equation, 1.0, 0.0, tolerance, 0);
            ASSERT_EQ(solved.status, QUENTA_EQUATION_SOLVED);
            for (int n = 0; n <= 2000; ++n)
                ASSERT_NEAR(solved.y(n / 2000.0), exact(n / 2000.0), tolerance) << "a = " << a;
        };
        const auto one = [](double) {
            return 1.0;
        };
        const auto g = [=](double t) {
            return 1 - integral(t);
        };
        expect(quenta::second_kind(g).lag_memory(bump), 1e-5, one);
        expect(quenta::second_kind(g).memory([=](double, double s) { return bump(s); }), 1e-5, one);
        expect(with_integral([=](double t) { return bump(t) - integral(t); }), 1e-3, bump);
    }
}

TEST(error_control, gives_up_soon) {
    // y = sqrt t needs some 1e16 steps.
    const auto root = with_integral([](double t) { return std::sqrt(t) - 2.0 / 3.0 * t * std::sqrt(t); });
    const outcome hopeless = solve(root, 1.0, 0.0, 1e-10, 0);
    EXPECT_EQ(hopeless.status, QUENTA_EQUATION_TOLERANCE_MISSED);
    EXPECT_LE(hopeless.y.steps(), 1024);
    double largest = 0.0;
    for (int k = 0; k <= 100000; ++k)
        largest = std::max(largest, std::fabs(hopeless.y(k * 1e-7) - std::sqrt(k * 1e-7)));
    EXPECT_LT(largest, hopeless.y.error()[0]);
    EXPECT_GT(largest, 0.1 * hopeless.y.error()[0]);

    const double a = 1 / std::numbers::pi;
    const auto jump = with_integral([=](double t) { return t < a ? 0.0 : 1 - (t - a); });
    const outcome stagnating = solve(jump, 1.0, 0.0, 1e-3, 0, 1);
    EXPECT_EQ(stagnating.status, QUENTA_EQUATION_TOLERANCE_MISSED);
    EXPECT_LE(stagnating.y.steps(), 4096);
}

TEST(error_control, ends_at_rounding_level) {
    for (const equation_problem& problem : closed_forms())
        if (problem.name != "A7") // whose Bessel functions take long
            for (const double tolerance : {1e-13, 1e-17}) {
                const auto [status, y, all, last] = solve(problem.equation, problem.t_end, tolerance, tolerance, 0);
                EXPECT_TRUE(status == QUENTA_EQUATION_SOLVED || status == QUENTA_EQUATION_TOLERANCE_MISSED);
                if (tolerance == 1e-17) {
                    EXPECT_EQ(status, QUENTA_EQUATION_TOLERANCE_MISSED) << problem.name;
                    EXPECT_LT(y.error()[0], 1e-9) << problem.name;
                }
                // Transforms have larger rounding errors than direct sums, and take less time for more steps.
                EXPECT_LT(all, 12'000'000) << problem.name << ", " << tolerance;
            }
    // Nearly exact with any number of steps: differences that do not decrease are small enough.
    const auto line =
        quenta::second_kind([](double t) { return 0.1 + t / 3 - t * (0.1 + t / 6); }).lag_memory(constant_kernel);
    const outcome exact = solve(line, 1.0, 1e-12, 0.0, 0);
    EXPECT_EQ(exact.status, QUENTA_EQUATION_SOLVED);
    EXPECT_LE(exact.y.steps(), 128);
}

TEST(error_control, does_little_more_work_than_the_last_solve) {
    for (const equation_problem& problem : closed_forms()) {
        const outcome solved = solve(problem.equation, problem.t_end, 1e-6, 1e-6, 0);
        EXPECT_EQ(solved.status, QUENTA_EQUATION_SOLVED);
        EXPECT_LT(double(solved.all_pairs), 1.5 * double(solved.last_pairs));
    }
}

TEST(error_control, goes_on_if_few_steps_fail) {
    // y' = -1000 (y^3 - cos^3 t) - sin t fails in long steps.
    const auto stiff = quenta::second_kind([](double t) {
                           return std::cos(t) + 3000 * (t + std::sin(t) * std::cos(t)) / 2;
                       }).lag_memory([](double) { return -3000.0; }, [](double, double y) { return y * y; });
    const outcome solved = solve(stiff, 1.0, 0.0, 1e-6, 0);
    EXPECT_EQ(solved.status, QUENTA_EQUATION_SOLVED);
    EXPECT_NEAR(solved.y(1.0), std::cos(1.0), 1e-6);
}

TEST(error_control, ends_at_a_blow_up_and_at_values_that_are_not_finite) {
    // y = 1 / (1 - t).
    const auto blow_up = quenta::second_kind([](double) {
                             return 1.0;
                         }).lag_memory(constant_kernel, [](double, double y) { return y * y; });
    const outcome ended = solve(blow_up, 2.0, 1e-6, 0.0, 0);
    EXPECT_EQ(ended.status, QUENTA_EQUATION_NO_CONVERGENCE);
    EXPECT_NEAR(ended.y.mesh()[std::size_t(ended.y.steps())], 1.0, 0.01);
    EXPECT_NEAR(ended.y(0.5), 2.0, 1e-6);
    EXPECT_LT(ended.all_pairs, 4'000'000);

    const auto no_root = quenta::second_kind([](double t) { return std::sqrt(1.0 - t); }).lag_memory(constant_kernel);
    const outcome not_finite = solve(no_root, 2.0, 1e-6, 0.0, 0);
    EXPECT_EQ(not_finite.status, QUENTA_EQUATION_NOT_FINITE);
    EXPECT_NEAR(not_finite.y.mesh()[std::size_t(not_finite.y.steps())], 1.0, 0.01);
    EXPECT_LT(not_finite.all_pairs, 4'000'000);

    const auto never_finite = quenta::second_kind([](double) { return NAN; }).lag_memory(constant_kernel);
    const outcome without_a_step = solve(never_finite, 2.0, 1e-6, 0.0, 0);
    EXPECT_EQ(without_a_step.status, QUENTA_EQUATION_NOT_FINITE);
    EXPECT_EQ(without_a_step.y.steps(), 0);
}

TEST(error_control, stops_at_once) {
    for (const int last_call : {1, 2, 5, 20, 100}) {
        int calls = 0;
        const auto counted = [&](double t, double) -> double {
            if (t >= 0 && ++calls >= 64 * last_call)
                throw last_call;
            return 1.0;
        };
        const auto equation = quenta::integro_differential([](double, double y) { return -y; }, 1.0).memory(counted);
        EXPECT_THROW(equation.solve(1.0, quenta::to_tolerance(1e-13)), int);
        EXPECT_EQ(calls, 64 * last_call);
    }
    // Also in f(0, y0), which only the error control asks for.
    int alone = 0;
    const auto equation = quenta::integro_differential(
                              [&](double t, double y) {
                                  if (t == 0.0 && ++alone == 2)
                                      throw 1;
                                  return -y;
                              },
                              1.0)
                              .lag_memory(constant_kernel);
    EXPECT_THROW(equation.solve(1.0, quenta::to_tolerance(1e-13)), int);
    EXPECT_EQ(alone, 2);
}

// Only rounding errors are left, and in the first kind they grow with the number of steps.
TEST(error_control, accepts_a_solution_that_the_scheme_represents) {
    const auto one = [](double) {
        return 1.0;
    };
    const auto y = quenta::first_kind([](double t) { return t + t * t / 2; })
                       .lag_memory(one)
                       .solve(1.0, quenta::to_tolerance(1e-6));
    EXPECT_NEAR(y(0.7), 1.7, 1e-12);
    EXPECT_LE(y.steps(), 128);
    const auto z = quenta::second_kind([](double t) { return 0.1 + 0.9 * t - t * t / 2; }).lag_memory(one);
    EXPECT_LE(z.solve(1.0, quenta::to_tolerance(1e-6)).steps(), 128);
    const auto falling = [](double u) {
        return std::exp(-u);
    };
    const auto x =
        quenta::first_kind([](double t) { return t; }).lag_memory(falling).solve(1.0, quenta::to_tolerance(1e-8));
    EXPECT_NEAR(x(0.5), 1.5, 1e-11);
}

} // namespace
