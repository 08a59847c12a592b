// Equations with weakly singular kernels: their errors on the default mesh, on equal steps, and to a tolerance.
#include "equations/singular_problems.hpp"
#include "support/long_tests.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <numbers>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace quenta_test;

double distance(const std::vector<double>& expected, const double* got) {
    double largest = 0.0;
    for (std::size_t a = 0; a < expected.size(); ++a) {
        const double here = std::fabs(got[a] - expected[a]);
        largest = here <= largest ? largest : here; // also finds NaN
    }
    return largest;
}

// The largest errors at the mesh points, between them, and of the iterated values between them (second kind).
struct errors {
    double at_mesh = 0.0, between = 0.0, iterated = 0.0;
};

errors errors_of(const equation_problem& problem, const quenta::solution& y) {
    errors result;
    const auto mesh = y.mesh();
    const std::size_t D = std::size_t(y.dimension());
    std::vector<double> some;
    for (std::size_t n = 1; n < mesh.size(); ++n) {
        result.at_mesh = std::max(result.at_mesh, distance(problem.exact(mesh[n]), y.values().data() + n * D));
        for (const double x : {0.001, 0.3, 0.9}) {
            const double t = mesh[n - 1] + x * (mesh[n] - mesh[n - 1]);
            result.between = std::max(result.between, distance(problem.exact(t), y.at(t).data()));
        }
        if (n % 4 == 1)
            some.push_back(mesh[n - 1] + 0.4 * (mesh[n] - mesh[n - 1]));
    }
    if (problem.kind != '2')
        return result;
    const std::vector<double> iterated = problem.equation.iterate(y, some);
    for (std::size_t p = 0; p < some.size(); ++p)
        result.iterated = std::max(result.iterated, distance(problem.exact(some[p]), iterated.data() + p * D));
    return result;
}

class every_singular_problem : public testing::TestWithParam<std::size_t> {
protected:
    const equation_problem problem = singular_problems().at(GetParam()).problem;
    const double alpha = singular_problems().at(GetParam()).alpha;
};

INSTANTIATE_TEST_SUITE_P(equations, every_singular_problem, testing::Range<std::size_t>(0, singular_problems().size()),
                         [](const auto& chosen) { return singular_problems()[chosen.param].problem.name; });

TEST_P(every_singular_problem, is_solved_to_a_tolerance) {
    for (const double tolerance : {1e-3, 1e-6, 1e-9}) {
        const quenta::solution y = problem.equation.solve(problem.t_end, quenta::to_tolerance(tolerance, tolerance));
        const errors error = errors_of(problem, y);
        EXPECT_LT(error.between, 2 * tolerance);
        EXPECT_LE(y.steps(), 1024);
    }
}

TEST_P(every_singular_problem, is_approximated_with_the_order_of_the_scheme) {
    for (int P = 2; P <= 5; ++P) {
        const auto solve = [&](int steps) {
            return errors_of(problem,
                             problem.equation.solve(problem.t_end, quenta::steps(steps).nodes(QUENTA_RADAU, P)));
        };
        const errors coarse = solve(96), fine = solve(384);
        const auto expect_order = [P](double before, double after, double order, const char* what) {
            EXPECT_LT(after, 2.0 * before * std::pow(4.0, -order) + 2e-11)
                << what << ", P = " << P << ": order " << std::log2(before / after) / 2.0 << " instead of " << order;
        };
        expect_order(coarse.between, fine.between, P, "between the mesh points");
        const double order = problem.kind == '1' ? P : P + 1 - alpha;
        expect_order(coarse.at_mesh, fine.at_mesh, order, "at the mesh points");
        if (problem.kind == '2')
            expect_order(coarse.iterated, fine.iterated, order, "iterated");
    }
}

equation_problem chosen_power(char kind, double alpha) {
    const double exponent = kind == '1' ? alpha : kind == '2' ? 1 - alpha : 2 - alpha;
    return power_problem("t^beta", kind, 2, {{{{kind == 'D' ? 1.0 : 0.0, 0}, {1, exponent}}}},
                         {{alpha, 0, 0, {kind == '1' ? 1.0 : -1.0}, {}, true}});
}

TEST(weakly_singular, relaxation_of_every_order_is_solved_to_a_tolerance) {
    for (int tenths = 1; tenths <= 19; ++tenths) {
        if (tenths == 10)
            continue; // exp(-t)
        const equation_problem problem = relaxation(tenths / 10.0, tenths < 10 ? 1.0 : 3.0);
        const quenta::solution y = problem.equation.solve(problem.t_end, quenta::to_tolerance(0.0, 1e-8));
        EXPECT_LT(errors_of(problem, y).between, 1e-8) << "order " << tenths / 10.0;
    }
}

TEST(weakly_singular, relaxation_of_orders_close_to_whole_numbers_is_solved_to_a_tolerance) {
    for (const double a : {0.05, 0.99, 1.01, 1.99}) {
        const equation_problem problem = relaxation(a, a < 1.0 ? 1.0 : 3.0);
        const quenta::solution y = problem.equation.solve(problem.t_end, quenta::to_tolerance(0.0, 1e-6, 1024));
        EXPECT_LT(errors_of(problem, y).between, 1e-6) << "order " << a;
    }
    const equation_problem problem = relaxation(0.01, 1.0);
    const quenta::solution y = problem.equation.solve(problem.t_end, quenta::to_tolerance(0.0, 1e-2, 512));
    EXPECT_LT(errors_of(problem, y).between, 1e-2);
}

// The fractional integral of order 0 < q <= 2 of phi as a term of an equation.
template <class function>
void add_fractional_integral(quenta::equation& equation, double q, const function& phi) {
    const double factor = 1 / std::tgamma(q);
    const auto constant = [factor](double) {
        return factor;
    };
    const auto linear = [factor](double u) {
        return factor * u;
    };
    if (q <= 1)
        equation.lag_memory(quenta::weakly_singular(1 - q, constant), phi);
    else
        equation.lag_memory(quenta::weakly_singular(2 - q, linear), phi);
}

// D^a y + c D^b y = f(t, y), whose right side is made for the solution 1 + t / 2 + t^(a + 1), without t / 2 if a < 1.
equation_problem two_derivatives(double a, double b) {
    constexpr double c = 0.7;
    const double slope = a > 1 ? 0.5 : 0.0, p = a + 1;
    const auto exact = [=](double t) {
        return 1 + slope * t + std::pow(t, p);
    };
    const auto derivative = [=](double order, double t) {
        const double of_slope = order < 1 ? slope * std::pow(t, 1 - order) / std::tgamma(2 - order) : 0.0;
        return of_slope + std::tgamma(p + 1) / std::tgamma(p + 1 - order) * std::pow(t, p - order);
    };
    auto equation = quenta::second_kind([=](double t) {
        const double with_slope = b > 1 ? slope * std::pow(t, 1 + a - b) / std::tgamma(2 + a - b) : 0.0;
        return 1 + slope * t + c * (std::pow(t, a - b) / std::tgamma(1 + a - b) + with_slope);
    });
    add_fractional_integral(equation, a - b, [](double, double y) { return -c * y; });
    add_fractional_integral(equation, a, [=](double t, double y) {
        return derivative(a, t) + c * derivative(b, t) + exact(t) * exact(t) - y * y;
    });
    return {"two derivatives", equation, [=](double t) { return std::vector{exact(t)}; }, {}, 1.0, '2'};
}

TEST(weakly_singular, equations_with_two_fractional_derivatives_are_solved_to_a_tolerance) {
    for (const auto& [a, b] : {std::pair{0.8, 0.3}, {1.5, 0.8}, {1.9, 1.2}, {2.0, 1.5}}) {
        const equation_problem problem = two_derivatives(a, b);
        const quenta::solution y = problem.equation.solve(problem.t_end, quenta::to_tolerance(0.0, 1e-8));
        EXPECT_LT(errors_of(problem, y).between, 1e-8) << "orders " << a << " and " << b;
    }
}

// A singularity so close to 1 that t^(1 - alpha) is not small at the smallest numbers: the error is not hidden.
TEST(weakly_singular, a_solution_that_numbers_cannot_resolve_is_not_accepted) {
    const auto equation =
        quenta::second_kind(one).lag_memory(quenta::weakly_singular(0.995, [](double) { return -0.005; }));
    EXPECT_THROW(equation.solve(1.0, quenta::to_tolerance(0.0, 1e-4, 512)), quenta::solve_failure);
    EXPECT_NO_THROW(equation.solve(1.0, quenta::to_tolerance(0.0, 0.5, 512)));
}

// Random sums of the powers that solutions of such equations consist of, and others; terms with random singularities.
equation_problem random_power_problem(unsigned seed) {
    std::mt19937 generator(seed);
    const auto number = [&](double lowest, double highest) {
        return std::uniform_real_distribution<double>(lowest, highest)(generator);
    };
    const char kind = "12D"[seed % 3];
    const std::size_t D = 1 + generator() % 2;
    std::vector<power_term> terms;
    double alpha = number(0.05, 0.9);
    for (unsigned count = 1 + generator() % 2; count > 0; --count, alpha *= number(0.0, 1.0)) {
        const int powers = int(generator() % 2);
        terms.push_back({alpha, powers, 0, std::vector<double>(D * D), {}, powers == 0});
        for (double& entry : terms.back().entries)
            entry = (1 - alpha) * number(-0.5, 0.2);
    }
    if (kind == '1') { // the first term determines y
        terms[0].m = 0;
        terms[0].of_lag = true;
        for (std::size_t a = 0; a < D; ++a)
            terms[0].entries[a * D + a] += 2.0;
    }
    const double beta = kind == '1' ? terms[0].alpha : 1.0 - terms[0].alpha;
    std::vector<power_sum> y(D);
    for (power_sum& component : y) {
        if (kind != '1')
            component.terms.push_back({number(-1, 1), 0});
        const double first = kind == 'D' ? 1.0 : 0.0;
        for (const double exponent : {first + beta, first + 2 * beta, 1 + beta, number(1, 6)})
            component.terms.push_back({number(-1, 1), exponent});
    }
    return power_problem("seed " + std::to_string(seed), kind, std::exp(number(-3, 1)), y, terms);
}

TEST(weakly_singular, a_tolerance_that_is_reported_as_reached_is_reached) {
    const unsigned problems = quenta_tests::long_tests() ? 60 : 20;
    int reached = 0, wrong = 0;
    for (unsigned seed = 0; seed < problems; ++seed) {
        const equation_problem problem = random_power_problem(seed);
        const double tolerance = std::pow(10.0, -2.0 - double(seed % 6));
        try {
            const quenta::solution y = problem.equation.solve(problem.t_end, quenta::to_tolerance(0.0, tolerance, 512));
            const double error = errors_of(problem, y).between;
            ++reached;
            wrong += !(error <= tolerance);
            EXPECT_LT(error, 10 * tolerance) << problem.name;
        } catch (const quenta::solve_failure& failure) {
            EXPECT_EQ(failure.status, QUENTA_EQUATION_TOLERANCE_MISSED) << problem.name;
        }
    }
    std::printf("%d of %u reached, %d of them not\n", reached, problems, wrong);
    EXPECT_GT(reached, int(problems * 3 / 4));
    EXPECT_LE(wrong, reached * 3 / 100);
}

// Other units of time: y(t) of the equation with the kernel (t - s)^-alpha / scale^(1 - alpha) is y(t / scale).
TEST(weakly_singular, the_unit_of_time_does_not_matter) {
    for (const double alpha : {0.01, 0.5, 0.9, 0.95})
        for (const double scale : {1e-12, 1e12}) {
            const auto solve = [&](double unit) {
                return quenta::second_kind(one)
                    .lag_memory(quenta::weakly_singular(
                        alpha, [=](double) { return -(1 - alpha) / std::pow(unit, 1 - alpha); }))
                    .solve(unit, quenta::to_tolerance(1e-5));
            };
            const quenta::solution expected = solve(1.0), got = solve(scale);
            for (int k = 0; k <= 20; ++k)
                EXPECT_NEAR(got(scale * (k / 20.0)), expected(k / 20.0), 2e-5) << "alpha = " << alpha;
        }
}

// y = exp(z^2) erfc(z) with z = 1e6 sqrt(pi t), which is 1 / (sqrt(pi) z) except very near 0.
TEST(weakly_singular, a_stiff_equation_needs_no_more_steps_than_its_solution) {
    const quenta::solution y = quenta::second_kind(one)
                                   .lag_memory(quenta::weakly_singular(0.5, [](double) { return -1e6; }))
                                   .solve(1.0, quenta::to_tolerance(1e-6, 1e-9));
    for (const double t : {0.01, 0.3, 1.0})
        EXPECT_NEAR(y(t), 1e-6 / (std::numbers::pi * std::sqrt(t)), 1e-9);
    EXPECT_LE(y.steps(), 1024);
}

// The status of a solve that fails, and the time up to which it was solved.
std::pair<int, double> end_of(const quenta::equation& equation, double t_end) {
    try {
        equation.solve(t_end, quenta::to_tolerance(1e-6));
    } catch (const quenta::solve_failure& failure) {
        return {failure.status, failure.partial.mesh().back()};
    }
    return {QUENTA_EQUATION_SOLVED, t_end};
}

TEST(weakly_singular, a_solution_that_becomes_infinite_ends_the_solve) {
    const auto square = [](double, double y) {
        return y * y;
    };
    const auto equation = quenta::second_kind(one).lag_memory(quenta::weakly_singular(0.5, one), square);
    const auto [status, end] = end_of(equation, 1.0);
    EXPECT_EQ(status, QUENTA_EQUATION_NO_CONVERGENCE);
    EXPECT_GT(end, 0.01);
    EXPECT_LT(end, 0.5);
    const auto [status_before, before] = end_of(equation, 0.9 * end);
    EXPECT_EQ(status_before, QUENTA_EQUATION_SOLVED);
}

TEST(weakly_singular, an_abel_equation_with_an_infinite_solution_is_not_accepted) {
    // y = 1 / (pi sqrt t).
    const auto equation = quenta::first_kind(one).lag_memory(quenta::weakly_singular(0.5, one));
    EXPECT_EQ(end_of(equation, 1.0).first, QUENTA_EQUATION_TOLERANCE_MISSED);
}

// D^a y = 1 + 2 y - y^2, y(0) = 0 (the fractional Riccati equation): compared with another scheme and another mesh.
TEST(weakly_singular, the_fractional_riccati_equation_does_not_depend_on_the_scheme) {
    for (const double a : {0.3, 0.6, 0.9}) {
        const auto equation =
            quenta::second_kind([](double) { return 0.0; })
                .lag_memory(quenta::weakly_singular(1 - a, [=](double) { return 1 / std::tgamma(a); }),
                            [](double, double y) { return 1 + 2 * y - y * y; });
        const quenta::solution y = equation.solve(2.0, quenta::to_tolerance(1e-9));
        std::vector<double> mesh;
        for (int n = 0; n <= 900; ++n)
            mesh.push_back(2.0 * std::pow(n / 900.0, 4 / a));
        const quenta::solution other = equation.solve(2.0, quenta::on_mesh(mesh).nodes(QUENTA_GAUSS, 4));
        for (int k = 0; k <= 40; ++k)
            EXPECT_NEAR(y(k / 20.0), other(k / 20.0), 1e-8) << "a = " << a << ", t = " << k / 20.0;
    }
}

TEST(weakly_singular, twelve_digits_are_reached) {
    for (const char kind : {'2', 'D'})
        for (const double alpha : {0.1, 0.5}) {
            const equation_problem problem = chosen_power(kind, alpha);
            const quenta::solution y = problem.equation.solve(problem.t_end, quenta::to_tolerance(0.0, 1e-12));
            EXPECT_LT(errors_of(problem, y).between, 1e-12);
        }
    const equation_problem problem = chosen_power('2', 0.9);
    EXPECT_LT(errors_of(problem, problem.equation.solve(problem.t_end, quenta::steps(1536))).at_mesh, 1e-12);
}

// y = (t / t_end)^(1 - alpha). With alpha = 0.99 it is not small at the smallest numbers: 1e-300^0.01 = 0.001.
TEST(weakly_singular, singularities_near_0_and_near_1_are_solved_to_a_tolerance) {
    for (const auto& [alpha, tolerance] : {std::pair{0.001, 1e-10}, {0.01, 1e-10}, {0.97, 1e-4}, {0.99, 3e-2}})
        for (const double t_end : {1e-12, 1.0, 1e12}) {
            const double beta = 1 - alpha;
            const double factor = std::pow(std::tgamma(1 + beta), 2) / std::tgamma(1 + 2 * beta);
            const auto g = [=](double t) {
                return std::pow(t / t_end, beta) + factor * std::pow(t / t_end, 2 * beta);
            };
            const auto equation = quenta::second_kind(g).lag_memory(
                quenta::weakly_singular(alpha, [=](double) { return -beta * std::pow(t_end, -beta); }));
            const quenta::solution y = equation.solve(t_end, quenta::to_tolerance(0.0, tolerance));
            for (int k = 0; k <= 1000; ++k)
                EXPECT_NEAR(y(t_end * (k / 1000.0)), std::pow(k / 1000.0, beta), tolerance) << "alpha = " << alpha;
        }
}

TEST(weakly_singular, any_nodes_have_the_order_P) {
    for (const char kind : {'2', 'D'})
        for (const double alpha : {0.3, 0.8}) {
            const equation_problem problem = chosen_power(kind, alpha);
            const auto expect_order = [&](const auto& options, int P) {
                const double coarse = errors_of(problem, problem.equation.solve(2, options(96))).between,
                             fine = errors_of(problem, problem.equation.solve(2, options(384))).between;
                EXPECT_LT(fine, 2.0 * coarse * std::pow(4.0, -P) + 2e-11)
                    << "kind " << kind << ", alpha = " << alpha << ", P = " << P;
            };
            for (const int family : {QUENTA_GAUSS, QUENTA_LOBATTO})
                for (int P = 2; P <= 5; ++P)
                    expect_order([=](int steps) { return quenta::steps(steps).nodes(family, P); }, P);
            expect_order([](int steps) { return quenta::steps(steps).nodes({0.3, 0.6}); }, 2);
            expect_order([](int steps) { return quenta::steps(steps).nodes({0.0, 0.4, 0.9}); }, 3);
            expect_order([](int steps) { return quenta::steps(steps).nodes({0.2, 0.5, 0.7, 0.95}); }, 4);
        }
}

// Without the grading the error between the nodes decreases like h^(1 - alpha).
TEST(weakly_singular, equal_steps_are_equal_also_for_a_singular_kernel) {
    const equation_problem problem = chosen_power('2', 0.5);
    const quenta::solution coarse = problem.equation.solve(2, quenta::equal_steps(64)),
                           fine = problem.equation.solve(2, quenta::equal_steps(256));
    for (int n = 0; n <= 64; ++n)
        EXPECT_EQ(coarse.mesh()[std::size_t(n)], n / 32.0);
    EXPECT_NEAR(errors_of(problem, coarse).between / errors_of(problem, fine).between, 2.0, 0.05);
    EXPECT_THROW(problem.equation.solve(2, quenta::equal_steps(0)), quenta::equation_error);
}

TEST(weakly_singular, five_nodes_are_the_default) {
    const equation_problem problem = chosen_power('2', 0.5);
    const quenta::solution chosen = problem.equation.solve(2, quenta::steps(20)),
                           five = problem.equation.solve(2, quenta::steps(20).nodes(QUENTA_RADAU, 5));
    EXPECT_EQ(chosen(1.3), five(1.3));
}

} // namespace
