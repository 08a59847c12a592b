// Delay terms: solutions by the method of steps and by series, of all kinds, with jumps and kinks at the breaking
// points.
#include "quenta_equations.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <random>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using quenta::steps, quenta::to_tolerance, quenta::on_mesh;

constexpr double root2 = std::numbers::sqrt2;

const auto one = [](double) {
    return 1.0;
};

double choose(int n, int k) {
    return std::round(std::exp(std::lgamma(n + 1) - std::lgamma(k + 1) - std::lgamma(n - k + 1)));
}

struct delay_problem {
    std::string name;
    quenta::equation equation;
    double (*exact)(double t); // the first component; the limit from the left at a jump
    double t_end;
    int order; // at the mesh points, for P = 3
};

// The sum over k of a^k (t - k + 1)^k / k!, for t - k + 1 > 0: y' = a y(t - 1), y = 1 up to t = 0.
double delayed_exponential(double a, double t) {
    double y = 1.0;
    for (int k = 1; t - k + 1 > 0; ++k)
        y += std::pow(a * (t - k + 1), k) / std::tgamma(k + 1);
    return y;
}

// U = 1 + the integral of U(t - u) dF(u), where F has the atom 0.4 at 0.75 and the density 0.6 * 2 exp(-2 u).
double renewal(double t) {
    constexpr double p = 0.4, lambda = 2.0, tau = 0.75, a = p * lambda, b = lambda - a;
    double U = 0.0;
    for (int k = 0; k == 0 || t - k * tau > 0; ++k) {
        const double x = a * (t - k * tau);
        double sum = 1.0, poisson = std::exp(-x), tail = 1.0; // tail: that j or more events of a Poisson process came
        for (int j = 1; j <= k + 1; ++j) {
            tail -= poisson;
            poisson *= x / j;
            sum += choose(k + 1, j) * std::pow(b / a, j) * tail;
        }
        U += std::pow(p, k) * sum;
    }
    return U;
}

// y = 1 + a y(t - 1) + b y(t - sqrt 2), or the same for y' if `integrated`.
double two_delays(double t, bool integrated) {
    double y = 0.0;
    for (int i = 0; i == 0 || i < t; ++i)
        for (int j = 0; i + j == 0 || i + j * root2 < t; ++j)
            y += choose(i + j, i) * std::pow(0.5, i) * std::pow(-0.75, j) *
                 (integrated ? std::pow(t - i - j * root2, i + j) / std::tgamma(i + j + 1) : 1.0);
    return y;
}

// y = 1 - c I^b y + p y(t - 1), where I^b is the integral of order b.
double singular(double t) {
    constexpr double c = 0.5, b = 0.5, p = 0.4;
    double y = 0.0;
    for (int k = 0; k == 0 || t - k > 0; ++k)
        for (int j = 0; j < 60; ++j)
            y += std::pow(p, k) * choose(k + j, j) * std::pow(-c, j) * std::pow(t - k, b * j) / std::tgamma(b * j + 1);
    return y;
}

std::vector<delay_problem> problems() {
    using namespace quenta;
    std::vector<delay_problem> list;
    list.push_back({"y' = -y(t - 1)", integro_differential(nullptr, 1.0).delay(1.0, -1).past(1),
                    [](double t) { return delayed_exponential(-1.0, t); }, 6.3, 5});
    list.push_back({"jumps", second_kind(one).delay(1.0, 0.5),
                    [](double t) { return 2.0 - std::pow(0.5, std::max(0.0, std::ceil(t) - 1)); }, 10.0, 5});
    list.push_back({"renewal",
                    second_kind(one).delay(0.75, 0.4).lag_memory([](double u) { return 1.2 * std::exp(-2.0 * u); }),
                    renewal, 5.1, 5});
    list.push_back({"two delays", second_kind(one).delay(1.0, 0.5).delay(root2, -0.75),
                    [](double t) { return two_delays(t, false); }, 9.0, 5});
    list.push_back({"two delays of y'", integro_differential(nullptr, 1.0).delay(1.0, 0.5).delay(root2, -0.75),
                    [](double t) { return two_delays(t, true); }, 6.0, 4});
    list.push_back({"y' = y(t - 1)^2",
                    integro_differential(nullptr, 1.0)
                        .delay(
                            1.0, [](double) { return 1.0; }, [](double, double y) { return y * y; })
                        .past([](double) { return 1.0; }),
                    [](double t) { return t <= 1.0 ? 1.0 + t : 2.0 + (t * t * t - 1.0) / 3.0; }, 2.0, 5});
    list.push_back({"smooth and nonlinear",
                    second_kind([](double t) {
                        return std::exp(-t) - (1 + t) * std::exp(-2 * (t - 0.3)) - (1 - std::exp(-2 * t)) / 2;
                    })
                        .delay(
                            0.3, [](double t) { return 1 + t; }, [](double, double y) { return y * y; })
                        .past([](double t) { return std::exp(-t); })
                        .memory([](double, double) { return 1.0; }, [](double, double y) { return y * y; }),
                    [](double t) { return std::exp(-t); }, 1.0, 5});
    return list;
}

double error_at_mesh(const delay_problem& problem, const quenta::solution& y) {
    double largest = 0.0;
    const std::size_t D = std::size_t(y.dimension());
    for (std::size_t n = 1; n < y.mesh().size(); ++n)
        largest = std::max(largest, std::fabs(y.values()[n * D] - problem.exact(y.mesh()[n])));
    return largest;
}

double error_between(const delay_problem& problem, const quenta::solution& y) {
    double largest = 0.0;
    for (std::size_t n = 1; n < y.mesh().size(); ++n)
        for (const double x : {1e-3, 0.1, 0.35, 0.6, 0.9, 0.999}) {
            const double t = y.mesh()[n - 1] + x * (y.mesh()[n] - y.mesh()[n - 1]);
            largest = std::max(largest, std::fabs(y(t) - problem.exact(t)));
        }
    return largest;
}

TEST(delay_terms, keep_the_order_of_the_scheme) {
    for (const delay_problem& problem : problems()) {
        const auto coarse = problem.equation.solve(problem.t_end, steps(40)),
                   fine = problem.equation.solve(problem.t_end, steps(160));
        EXPECT_LT(error_at_mesh(problem, fine),
                  3 * std::pow(0.25, problem.order) * error_at_mesh(problem, coarse) + 1e-13)
            << problem.name << ": " << error_at_mesh(problem, coarse) << ", " << error_at_mesh(problem, fine);
        EXPECT_LT(error_between(problem, fine), 3 * std::pow(0.25, 3) * error_between(problem, coarse) + 1e-12)
            << problem.name << ": " << error_between(problem, coarse) << ", " << error_between(problem, fine);
        EXPECT_LT(error_at_mesh(problem, fine), 1e-6) << problem.name;
    }
}

// y = exp(t). Each delay differentiates the error of y, and costs one order.
TEST(delay_terms, of_the_first_kind_have_one_order_less_after_each_delay) {
    const auto equation = quenta::first_kind([](double t) { return std::exp(t) - 1 + 0.5 * std::exp(t - 0.4); })
                              .memory([](double, double) { return 1.0; })
                              .delay(0.4, 0.5)
                              .past([](double t) { return std::exp(t); });
    for (const int P : {3, 4, 5}) {
        const auto coarse = equation.solve(1.0, steps(10).nodes(QUENTA_RADAU, P)),
                   fine = equation.solve(1.0, steps(40).nodes(QUENTA_RADAU, P));
        for (const auto& [from, to, delays] : {std::tuple{0.0, 0.4, 0}, {0.41, 0.8, 1}, {0.81, 1.0, 2}}) {
            double errors[2] = {0.0, 0.0};
            for (double t = from; t < to; t += 0.013) {
                errors[0] = std::max(errors[0], std::fabs(coarse(t) - std::exp(t)));
                errors[1] = std::max(errors[1], std::fabs(fine(t) - std::exp(t)));
            }
            EXPECT_LT(errors[1], 2 * std::pow(0.25, P - delays) * errors[0] + 1e-12) << P << ", " << delays;
            EXPECT_GT(errors[1], 0.3 * std::pow(0.25, P - delays) * errors[0]) << P << ", " << delays;
        }
    }
    EXPECT_NEAR(equation.solve(1.0, to_tolerance(1e-6))(1.0), std::exp(1.0), 3e-6);

    // The integral of y, plus y(t - 0.4), is t: y = 1 up to 0.4, where the integral would have to jump.
    const auto unbounded =
        quenta::first_kind([](double t) { return t; }).memory([](double, double) { return 1.0; }).delay(0.4);
    try {
        unbounded.solve(1.0, to_tolerance(1e-3, 0.0, 512));
        ADD_FAILURE() << "expected that the tolerance is missed";
    } catch (const quenta::solve_failure& failure) {
        EXPECT_EQ(failure.status, QUENTA_EQUATION_TOLERANCE_MISSED);
    }
}

TEST(delay_terms, are_exact_where_the_solution_is_a_polynomial_between_the_breaking_points) {
    for (const double scale : {1.0, 0.1, 1e-150, 1e150}) // 3 * 0.1 is not 0.3
        for (const int count : {1, 3, 10, 70})
            for (const int family : {QUENTA_RADAU, QUENTA_GAUSS, QUENTA_LOBATTO})
                for (const auto& [y, exact] :
                     {std::pair{quenta::second_kind(one).delay(scale, 0.5), problems()[1].exact},
                      {quenta::second_kind(one).delay(scale, 0.5).delay(root2 * scale, -0.75), problems()[3].exact}}) {
                    const auto solved = y.solve(9.0 * scale, steps(count).nodes(family, 2));
                    for (std::size_t n = 1; n < solved.mesh().size(); ++n)
                        for (const double x : {0.01, 0.5, 0.99}) {
                            const double start = solved.mesh()[n - 1], t = start + x * (solved.mesh()[n] - start);
                            EXPECT_NEAR(solved(t), exact(t / scale), 1e-13) << scale << " " << count << " " << family;
                        }
                }
    const auto y = problems()[0].equation.solve(4.0, steps(3).nodes(QUENTA_RADAU, 5));
    for (double t = 0.0; t < 4.0; t += 0.07)
        EXPECT_NEAR(y(t), delayed_exponential(-1.0, t), 1e-14);
}

TEST(delay_terms, are_solved_to_a_tolerance) {
    for (const delay_problem& problem : problems()) {
        SCOPED_TRACE(problem.name);
        const auto y = problem.equation.solve(problem.t_end, to_tolerance(1e-8));
        EXPECT_LT(error_between(problem, y), 1e-8 * 3) << problem.name;
        EXPECT_LE(error_between(problem, y), y.error()[0] + 1e-13) << problem.name;
        EXPECT_LT(y.steps(), 400) << problem.name;
    }
}

// Up to three delays, commensurable or not, linear and nonlinear terms, with and without a past and an integral.
quenta::equation random_equation(unsigned seed, double& t_end) {
    std::mt19937 generator(seed);
    const auto number = [&](double least, double most) {
        return least + (most - least) * double(generator()) / 4294967296.0;
    };
    const double w = number(0.2, 3.0), a = number(-1.0, 0.3), c = number(-1.0, 0.5), r = number(0.0, 2.0);
    t_end = number(0.5, 6.0);
    const bool nonlinear = seed % 2 == 0;
    quenta::equation equation =
        seed % 4 < 2 ? quenta::second_kind([=](double t) { return 1 + std::sin(w * t); })
                     : quenta::integro_differential([=](double t, double y) { return a * y + std::cos(w * t); }, 1.0);
    for (int delays = 1 + int(generator() % 3); delays > 0; --delays) {
        const double tau = seed % 3 == 0 ? number(0.15, 2.0) : 0.25 * double(1 + generator() % 6),
                     b = number(-0.8, 0.8);
        const auto weight = [=](double t) {
            return b * std::cos(w * t);
        };
        if (nonlinear)
            equation.delay(tau, weight, [](double, double y) { return std::sin(y) + 0.3 * y; });
        else
            equation.delay(tau, weight);
    }
    if (seed % 5 < 2)
        equation.past([](double t) { return std::cos(2 * t); });
    if (seed % 7 < 3)
        equation.memory([=](double t, double s) { return c * std::exp(-r * (t - s)); },
                        [=](double, double y) { return nonlinear ? y / (1 + y * y) : y; });
    return equation;
}

TEST(delay_terms, reach_the_tolerance_of_random_equations) {
    int reached = 0;
    for (unsigned seed = 0; seed < 45; ++seed) {
        double t_end = 0.0, largest = 0.0, error = 0.0;
        const quenta::equation equation = random_equation(seed, t_end);
        const double rtol = std::pow(10.0, -3.0 - seed % 5);
        try {
            const auto y = equation.solve(t_end, to_tolerance(rtol, 0.0, 512)),
                       finer = equation.solve(t_end, to_tolerance(rtol / 50, 0.0, 1024));
            for (double t = t_end / 997; t < t_end; t += t_end / 499) {
                largest = std::max(largest, std::fabs(finer(t)));
                error = std::max(error, std::fabs(y(t) - finer(t)));
            }
            EXPECT_LT(error, rtol * largest) << "seed " << seed;
            ++reached;
        } catch (const quenta::equation_error& refused) {
            EXPECT_TRUE(refused.status == QUENTA_EQUATION_STEPS_ABOVE_DELAY ||
                        refused.status == QUENTA_EQUATION_TOLERANCE_MISSED)
                << refused.what();
        }
    }
    EXPECT_GT(reached, 35);
}

quenta::equation singular_equation() {
    return quenta::second_kind(one).delay(1.0, 0.4).lag_memory(
        quenta::weakly_singular(0.5, [](double) { return -0.5 / std::sqrt(std::numbers::pi); }));
}

// The mesh is graded after every breaking point.
TEST(delay_terms, and_singular_kernels_have_the_order_of_the_scheme) {
    const delay_problem problem{"", singular_equation(), singular, 2.5, 3};
    const auto coarse = problem.equation.solve(2.5, steps(40).nodes(QUENTA_RADAU, 3)),
               fine = problem.equation.solve(2.5, steps(160).nodes(QUENTA_RADAU, 3));
    EXPECT_LT(error_between(problem, fine), 4 * std::pow(0.25, 3) * error_between(problem, coarse))
        << error_between(problem, coarse) << ", " << error_between(problem, fine);
    EXPECT_LT(error_between(problem, problem.equation.solve(2.5, to_tolerance(1e-5))), 1e-5);
}

// D^0.6 y = -y(t - 1), y = 1 up to t = 0, is y = 1 - I^0.6 z with z = y(t - 1): its second component.
TEST(delay_terms, serve_fractional_equations_with_a_delay) {
    const auto equation = quenta::second_kind(
                              [](double, std::span<double> g) {
                                  g[0] = 1;
                                  g[1] = 0;
                              },
                              2)
                              .lag_memory(quenta::weakly_singular(0.4,
                                                                  [](double, std::span<double> K) {
                                                                      std::fill(K.begin(), K.end(), 0.0);
                                                                      K[1] = -1 / std::tgamma(0.6);
                                                                  }))
                              .delay(1.0,
                                     [](double, std::span<double> w) {
                                         std::fill(w.begin(), w.end(), 0.0);
                                         w[2] = 1;
                                     })
                              .past([](double, std::span<double> y) { y[0] = y[1] = 1; });
    const auto y = equation.solve(3.0, to_tolerance(1e-6));
    for (double t = 0.01; t < 3.0; t += 0.037) {
        double exact = 0.0;
        for (int k = 0; k == 0 || t - k + 1 > 0; ++k)
            exact += k == 0 ? 1.0 : std::pow(-1, k) * std::pow(t - k + 1, 0.6 * k) / std::tgamma(0.6 * k + 1);
        EXPECT_NEAR(y(t), exact, 1e-6) << t;
    }
}

// z = y1 + y2 of y1' = -z(t - 1), y2' = 2 z(t - 1) is delayed_exponential(1, t).
TEST(delay_terms, of_systems_have_weights_with_any_number_of_columns) {
    const std::array start{0.25, 0.75};
    const auto y = quenta::integro_differential(nullptr, start)
                       .delay(
                           1.0,
                           [](double, std::span<double> w) {
                               w[0] = -1;
                               w[1] = 2;
                           },
                           [](double, std::span<const double> x, std::span<double> phi) { phi[0] = x[0] + x[1]; }, 1)
                       .past([](double, std::span<double> x) { x[0] = x[1] = 0.5; })
                       .solve(3.7, steps(4).nodes(QUENTA_RADAU, 5));
    for (const double t : {0.3, 1.0, 1.9, 2.5, 3.7}) {
        const double z = delayed_exponential(1.0, t);
        EXPECT_NEAR(y.at(t)[0], 0.25 - (z - 1), 1e-13);
        EXPECT_NEAR(y.at(t)[1], 0.75 + 2 * (z - 1), 1e-13);
    }
}

TEST(delay_terms, without_weights_and_phi_of_systems_are_y_itself) {
    const auto y = quenta::second_kind(
                       [](double t, std::span<double> g) {
                           g[0] = 1;
                           g[1] = t;
                       },
                       2)
                       .delay(0.5)
                       .solve(2.2, steps(7));
    for (const double t : {0.2, 0.7, 1.4, 2.1}) {
        const double k = std::floor(t / 0.5);
        EXPECT_NEAR(y.at(t)[0], 1 + k, 1e-14);
        EXPECT_NEAR(y.at(t)[1], (k + 1) * t - 0.5 * k * (k + 1) / 2, 1e-14);
    }
}

TEST(delay_terms, before_0_take_the_past_or_are_0) {
    double earliest = 1.0, latest = -10.0, earliest_phi = 1.0;
    auto equation = quenta::second_kind([](double) { return 2.0; }).delay(5.0, [](double t) { return t; });
    EXPECT_EQ(equation.solve(3.0, steps(4))(2.5), 2.0);
    equation.past([&](double t) {
        earliest = std::min(earliest, t);
        latest = std::max(latest, t);
        return t;
    });
    EXPECT_NEAR(equation.solve(3.0, steps(4))(2.5), 2.0 - 2.5 * 2.5, 1e-14);
    EXPECT_GE(earliest, -5.0);
    EXPECT_LE(latest, -2.0);
    EXPECT_EQ(equation.solve(3.0, steps(4)).values()[0], 2.0); // w(0) = 0
    const auto y = quenta::second_kind(one)
                       .delay(0.1, 1.0,
                              [&](double s, double value) {
                                  earliest_phi = std::min(earliest_phi, s);
                                  return std::sqrt(s) + 0 * value;
                              })
                       .solve(1.0, steps(30));
    EXPECT_NEAR(y(0.75), 1 + std::sqrt(0.65), 1e-4);
    EXPECT_GE(earliest_phi, 0.0);
    EXPECT_LT(earliest_phi, 0.01);
    EXPECT_EQ(quenta::second_kind(one).delay(0.1, 2).past(3).solve(1.0, steps(30)).values()[0], 7.0);
}

// The sums by transforms for kernels of the lag: the breaking points leave the steps equal.
TEST(delay_terms, leave_equal_steps_that_contain_the_breaking_points) {
    const auto of_lag = problems()[2].equation.solve(6.0, steps(800));
    const auto direct = quenta::second_kind(one)
                            .delay(0.75, 0.4)
                            .memory([](double t, double s) { return 1.2 * std::exp(-2.0 * (t - s)); })
                            .solve(6.0, steps(800));
    ASSERT_EQ(of_lag.steps(), 800);
    for (std::size_t n = 0; n <= 800; ++n) {
        EXPECT_NEAR(of_lag.mesh()[n], 6.0 * double(n) / 800, 1e-14);
        EXPECT_NEAR(of_lag.values()[n], direct.values()[n], 1e-11);
    }
}

TEST(delay_terms, are_iterated) {
    const delay_problem problem = problems()[2];
    const auto y = problem.equation.solve(problem.t_end, steps(40));
    std::vector<double> times{0.0};
    for (double t = 0.05; t < problem.t_end; t += 0.013)
        times.push_back(t);
    const std::vector<double> iterated = problem.equation.iterate(y, times);
    double error = 0.0;
    for (std::size_t p = 0; p < times.size(); ++p)
        error = std::max(error, std::fabs(iterated[p] - problem.exact(times[p])));
    EXPECT_EQ(iterated[0], 1.0);
    EXPECT_LT(error, 0.6 * error_between(problem, y));
    const std::vector<double> at_jumps = problem.equation.iterate(y, std::vector{0.75, 1.5, 2.25});
    for (int k = 1; k <= 3; ++k)
        EXPECT_NEAR(at_jumps[std::size_t(k - 1)], renewal(0.75 * k), 1e-7); // from the left
}

// As many times as are known in one call.
TEST(delay_terms, call_their_functions_for_many_steps_at_once) {
    struct {
        int calls = 0, points = 0;
    } counts;
    const auto count_points = [](void* context, int count, const double*, const double*, double* values) {
        auto& [calls, points] = *static_cast<decltype(counts)*>(context);
        ++calls;
        points += count;
        std::fill_n(values, count, 1.0);
        return 0;
    };
    quenta_equation* equation = nullptr;
    quenta_solution* solution = nullptr;
    ASSERT_EQ(quenta_equation_integro_differential(1, nullptr, nullptr, std::array{1.0}.data(), &equation), 0);
    ASSERT_EQ(quenta_equation_add_delay(equation, 1, 1.0, count_points, &counts), 0);
    ASSERT_EQ(quenta_equation_solve(equation, 10.0, 1000, nullptr, 0, &solution), 0);
    EXPECT_EQ(counts.points, 900 * 3);
    EXPECT_LE(counts.calls, 10);
    quenta_solution_destroy(solution);
    quenta_equation_destroy(equation);
}

// Steps of a caller's mesh of which some begin or end, minus a delay, at mesh points up to rounding.
TEST(delay_terms, on_a_mesh_of_the_caller) {
    std::vector<double> equal, random;
    for (int n = 0; n <= 30; ++n)
        equal.push_back(n * 0.1);
    for (double t = 0.0; t < 2.95; t += 0.03 + 0.06 * std::fabs(std::sin(1e3 * t)))
        random.push_back(t);
    random.push_back(3.0);
    const auto jumps = quenta::second_kind(one).delay(0.3, 0.5).delay(0.1, 0.25);
    const auto reference = jumps.solve(3.0, steps(30));
    const auto smooth =
        quenta::integro_differential([](double t, double) { return -std::exp(-t) - std::exp(0.1 - t); }, 1.0)
            .delay(0.1)
            .past([](double t) { return std::exp(-t); });
    for (const int family : {QUENTA_RADAU, QUENTA_GAUSS, QUENTA_LOBATTO}) {
        const auto y = jumps.solve(3.0, on_mesh(equal).nodes(family, 3));
        for (double t = 0.05; t < 3.0; t += 0.1)
            EXPECT_NEAR(y(t), reference(t), 1e-14);
        EXPECT_NEAR(smooth.solve(3.0, on_mesh(random).nodes(family, 4))(3.0), std::exp(-3.0), 1e-7);
    }
    EXPECT_EQ(jumps.solve(3.0, quenta::equal_steps(30)).steps(), 30);
    EXPECT_THROW(jumps.solve(3.0, quenta::equal_steps(29)), quenta::equation_error);
}

TEST(delay_terms, of_functions_that_fail_end_the_solve_before_their_step) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    const auto expect_failure = [](const quenta::equation& equation, double reached) {
        try {
            equation.solve(3.0, steps(30));
            ADD_FAILURE() << "expected a failure";
        } catch (const quenta::solve_failure& failure) {
            EXPECT_EQ(failure.status, QUENTA_EQUATION_NOT_FINITE);
            EXPECT_NEAR(failure.partial.mesh().back(), reached, 1e-12);
        }
    };
    const auto after_1 = [](double t) {
        return t > 1.45 ? nan : 1.0;
    };
    expect_failure(quenta::second_kind(one).delay(1.0, after_1), 1.4);
    expect_failure(quenta::second_kind(one).delay(1.0, 1, [&](double s, double) { return after_1(s); }), 2.4);
    expect_failure(quenta::second_kind(one).delay(2.0, 1).past([](double t) { return t > -0.55 ? nan : 1.0; }), 1.4);
    for (const int failing : {0, 1, 2}) {
        int calls = 0;
        const auto function_that_throws = [&calls, failing](int which) {
            if (which == failing && ++calls > 1)
                throw std::string("stop");
            return 1.0;
        };
        const auto equation = quenta::second_kind(one)
                                  .delay(
                                      1.0, [=](double) { return function_that_throws(0); },
                                      [=](double, double) { return function_that_throws(1); })
                                  .past([=](double) { return function_that_throws(2); });
        EXPECT_THROW(equation.solve(3.0, steps(30)), std::string);
    }
}

} // namespace
