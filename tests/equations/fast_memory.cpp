// Kernels of the lag on many steps are summed by transforms and by the cells of a tree. The solution is that of the
// same kernels as functions of (t, s), which are summed directly.
#include "quenta_equations.hpp"
#include "support/long_tests.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace {

using values = std::span<double>;
using state = std::span<const double>;

// The kernel of a term, D by E.
void kernel_at(double lag, int term, values K) {
    for (std::size_t i = 0; i < K.size(); ++i)
        K[i] = (term == 0 ? std::exp(-lag * (1.0 + 0.1 * double(i))) : std::cos(3.0 * lag + double(i))) *
               (i % 2 == 0 ? 0.4 : -0.2);
}

void phi_at(double s, state y, values phi) {
    for (std::size_t c = 0; c < phi.size(); ++c)
        phi[c] = y[c % y.size()] + 0.3 * std::sin(s + y[0]);
}

struct problem {
    char kind;
    int D;
    std::vector<double> singularities; // of one or two terms
    bool nonlinear, mixed;             // mixed: with a term that is not of the lag
};

std::string name_of(const problem& of) {
    return std::string("kind ") + of.kind + ", D = " + std::to_string(of.D) + (of.nonlinear ? ", nonlinear" : "") +
           ", terms: " + std::to_string(of.singularities.size()) + ", alpha = " + std::to_string(of.singularities[0]);
}

quenta::equation equation_of(const problem& of, bool as_lag) {
    const auto g = [kind = of.kind](double t, values at_t) {
        for (std::size_t a = 0; a < at_t.size(); ++a)
            at_t[a] = kind == '1' ? t * std::cos(t + double(a)) : std::cos(t + double(a));
    };
    const auto f = [](double t, state y, values at_t) {
        for (std::size_t a = 0; a < at_t.size(); ++a)
            at_t[a] = std::sin(t) - y[a];
    };
    quenta::equation equation = of.kind == '1'   ? quenta::first_kind(g, of.D)
                                : of.kind == '2' ? quenta::second_kind(g, of.D)
                                                 : quenta::integro_differential(f, std::vector<double>(of.D, 1.0));
    for (std::size_t r = 0; r < of.singularities.size(); ++r) {
        const int term = int(r), E = of.nonlinear && of.kind != '1' ? of.D + 1 : of.D;
        const double alpha = of.singularities[r];
        const double diagonal = of.kind == '1' && r == 0 ? 1.0 : 0.0;
        const auto add_diagonal = [diagonal](values K, std::size_t D) {
            for (std::size_t a = 0; a < D; ++a)
                K[a * (K.size() / D) + a] += diagonal;
        };
        const auto K = [alpha, term, add_diagonal, D = std::size_t(of.D)](double lag, values K_values) {
            kernel_at(lag, term, K_values);
            add_diagonal(K_values, D);
            for (double& value : K_values)
                value *= 1.0 - alpha; // the integral of the singular factor contains 1 / (1 - alpha)
        };
        const auto of_times = [K](double t, double s, values K_values) {
            K(std::max(0.0, t - s), K_values);
        };
        if (as_lag && of.nonlinear)
            equation.lag_memory(quenta::weakly_singular(alpha, K), phi_at, E);
        else if (as_lag)
            equation.lag_memory(quenta::weakly_singular(alpha, K));
        else if (of.nonlinear)
            equation.memory(quenta::weakly_singular(alpha, of_times), phi_at, E);
        else
            equation.memory(quenta::weakly_singular(alpha, of_times));
    }
    if (of.mixed)
        equation.memory([](double t, double s, values K) {
            for (std::size_t i = 0; i < K.size(); ++i)
                K[i] = 0.1 * std::cos(t * s + double(i));
        });
    return equation;
}

// The largest difference of the solutions relative to the largest value.
double difference(const quenta::solution& one, const quenta::solution& other) {
    double largest = 0.0, distance = 0.0;
    for (std::size_t i = 0; i < one.values().size(); ++i) {
        largest = std::max(largest, std::fabs(other.values()[i]));
        const double here = std::fabs(other.values()[i] - one.values()[i]);
        distance = here <= distance ? distance : here; // also finds NaN
    }
    EXPECT_GT(largest, 0.01);
    return distance / largest;
}

TEST(fast_memory, agrees_with_the_direct_sums) {
    const bool all = quenta_tests::long_tests();
    int compared = 0;
    for (const char kind : {'1', '2', 'D'})
        for (const int D : {1, 2})
            for (const bool nonlinear : {false, true})
                for (const auto& singularities :
                     std::vector<std::vector<double>>{{0.0}, {0.5}, {0.9}, {0.3, 0.0}, {0.6, 0.2}})
                    for (const int P : all ? std::vector{1, 4} : std::vector{compared % 3 == 0 ? 4 : 1}) {
                        const bool mixed = compared % 2 == 1;
                        const problem of{kind, D, singularities, nonlinear, mixed};
                        SCOPED_TRACE(name_of(of) + ", P = " + std::to_string(P));
                        const auto options = quenta::equal_steps(260 + P).nodes(QUENTA_RADAU, P);
                        const quenta::solution fast = equation_of(of, true).solve(2.0, options),
                                               direct = equation_of(of, false).solve(2.0, options);
                        // Equations of the first kind differentiate: rounding is divided by a power of the step.
                        EXPECT_LE(difference(fast, direct), kind == '1' ? 2e-11 : 1e-13);
                        ++compared;
                    }
    EXPECT_EQ(compared, all ? 120 : 60);
}

std::vector<double> mesh_of(int steps, double t_end, const std::function<double(double)>& time) {
    std::vector<double> mesh;
    for (int n = 0; n <= steps; ++n)
        mesh.push_back(t_end * time(n / double(steps)));
    mesh.back() = t_end;
    return mesh;
}

double quadratic(double x) {
    return x * x;
}

TEST(fast_memory, agrees_with_the_direct_sums_on_every_mesh) {
    const std::vector<std::vector<double>> meshes{
        mesh_of(600, 2.0, quadratic),
        mesh_of(300, 2.0, [](double x) { return x == 0.0 ? 0.0 : std::pow(1e-13, 1.0 - x); }),
        mesh_of(520, 2.0, [](double x) { return (x < 0.5 ? x * x : x - 0.25) / 0.75; }), // 260 of the steps are equal
        mesh_of(400, 2.0, [](double x) { return x < 0.5 ? 0.95 * x : 0.95 * x + 0.05 * (2 * x - 1) * (2 * x - 1); }),
        mesh_of(400, 2.0,
                [](double x) { return x + (std::fmod(400 * x, 100) < 50 ? 0.0 : 0.05 * std::sin(50 * x)) / 50; }),
    };
    int compared = 0;
    for (const auto& mesh : meshes)
        for (const char kind : {'1', '2', 'D'}) {
            const int D = 1 + compared % 2, P = 1 + compared / 3 % 2 * 2;
            const problem of{kind, D, {0.0, 0.0}, compared % 4 < 2, compared % 5 == 2};
            SCOPED_TRACE(name_of(of) + ", " + std::to_string(mesh.size() - 1) + " steps, P = " + std::to_string(P));
            const auto options = quenta::on_mesh(mesh).nodes(QUENTA_RADAU, P);
            const double distance =
                difference(equation_of(of, true).solve(2.0, options), equation_of(of, false).solve(2.0, options));
            // Equations of the first kind differentiate: rounding is divided by a power of the step.
            EXPECT_LE(distance, kind == '1' ? 2e-11 : 1e-13);
            ++compared;
        }
    EXPECT_EQ(compared, 15);
}

// Kernels of the lag and the same ones as functions of (t, s): two terms with two singularities, one of them nonlinear,
// in an equation with two components.
std::pair<quenta::equation, quenta::equation> singular_pair(char kind, double alpha, double t_end) {
    const auto create = [=] {
        return kind == '2'
                   ? quenta::second_kind([=](double t, values g) { g[0] = 1 + t / t_end, g[1] = std::cos(t / t_end); },
                                         2)
                   : quenta::integro_differential([=](double, state y, values f) { f[0] = f[1] = -y[0] / t_end; },
                                                  std::vector<double>{1.0, 0.5});
    };
    const auto set = [factor = (1 - alpha) * std::pow(t_end, alpha - (kind == '2' ? 1 : 2))](values K) {
        K[0] = -0.7 * factor, K[1] = 0.2 * factor, K[2] = 0.0, K[3] = -0.5 * factor;
    };
    quenta::equation of_lag = create(), of_times = create();
    of_lag.lag_memory(quenta::weakly_singular(alpha, [set](double, values K) { set(K); }));
    of_times.memory(quenta::weakly_singular(alpha, [set](double, double, values K) { set(K); }));
    const auto phi = [](double, state y, values of_y) {
        of_y[0] = std::sin(y[0] + 2 * y[1]);
    };
    const auto set_other = [factor = 0.3 * std::pow(t_end, 0.5 * alpha - (kind == '2' ? 1 : 2))](values K) {
        K[0] = factor, K[1] = -factor;
    };
    of_lag.lag_memory(quenta::weakly_singular(0.5 * alpha, [=](double, values K) { set_other(K); }), phi, 1);
    of_times.memory(quenta::weakly_singular(0.5 * alpha, [=](double, double, values K) { set_other(K); }), phi, 1);
    return {of_lag, of_times};
}

TEST(fast_memory, agrees_with_the_direct_sums_on_the_mesh_of_a_singular_equation) {
    struct one_case {
        char kind;
        double alpha, t_end;
        int steps, P;
    };
    // So many steps that those that are not graded are summed by transforms, and fewer.
    for (const auto& [kind, alpha, t_end, steps, P] : std::vector<one_case>{{'2', 0.01, 1e-12, 530, 3},
                                                                            {'2', 0.01, 1e12, 530, 2},
                                                                            {'2', 0.5, 1.0, 700, 3},
                                                                            {'2', 0.9, 1.0, 1040, 2},
                                                                            {'2', 0.99, 1e-12, 1040, 1},
                                                                            {'2', 0.99, 1e12, 300, 5},
                                                                            {'D', 0.1, 1e12, 530, 2},
                                                                            {'D', 0.5, 1.0, 300, 4},
                                                                            {'D', 0.9, 1e-12, 1040, 2}}) {
        const auto [of_lag, of_times] = singular_pair(kind, alpha, t_end);
        const auto options = quenta::steps(steps).nodes(QUENTA_RADAU, P);
        EXPECT_LE(difference(of_lag.solve(t_end, options), of_times.solve(t_end, options)), 1e-13)
            << "kind " << kind << ", alpha = " << alpha << ", " << steps << " steps to " << t_end;
    }
}

// Kernels that no polynomial resolves, in the whole or in a part of the lags.
TEST(fast_memory, agrees_with_the_direct_sums_for_kernels_that_are_not_smooth) {
    const std::vector<std::function<double(double)>> kernels{
        [](double u) { return std::fabs(u - 0.3); },
        [](double u) { return u < 0.6 ? 1.0 : 0.0; },
        [](double u) { return std::exp(-std::pow((u - 0.5) / 0.004, 2)); },
        [](double u) { return std::cos(400.0 * u); },
        [](double u) { return std::exp(-1000.0 * u); },
        [](double u) { return std::sin(1e6 * u); }, // not by the steps either
    };
    for (std::size_t k = 0; k < kernels.size(); ++k)
        for (const auto& mesh : {mesh_of(600, 1.0, quadratic), mesh_of(800, 1.0, [](double x) {
                                     return x < 0.3 ? x * x : 0.09 + 1.3 * (x - 0.3);
                                 })}) {
            const auto g = [](double t) {
                return 1.0 + t;
            };
            const auto K = kernels[k];
            const auto fast = quenta::second_kind(g).lag_memory(K),
                       direct = quenta::second_kind(g).memory([K](double t, double s) { return K(t - s); });
            const auto options = quenta::on_mesh(mesh).nodes({0.3, 0.7});
            EXPECT_LE(difference(fast.solve(1.0, options), direct.solve(1.0, options)), k < 5 ? 1e-13 : 1e-9) << k;
        }
}

// Evaluations of a kernel on a mesh, for each step.
double evaluations_on(double alpha, const quenta::solve_options& options) {
    long evaluations = 0;
    const auto kernel = [&](double lag) {
        ++evaluations;
        return -std::exp(-lag);
    };
    auto equation = quenta::second_kind([](double) { return 1.0; });
    if (alpha > 0.0)
        equation.lag_memory(quenta::weakly_singular(alpha, kernel));
    else
        equation.lag_memory(kernel);
    const quenta::solution y = equation.solve(1.0, options.nodes(QUENTA_RADAU, 2));
    return double(evaluations) / y.steps();
}

TEST(fast_memory, evaluates_a_kernel_a_fixed_number_of_times_for_each_step) {
    EXPECT_EQ(evaluations_on(0.0, quenta::equal_steps(1000)), 4);
    EXPECT_EQ(evaluations_on(0.0, quenta::equal_steps(100)), 101 / 2.0 * 4) << "few steps are summed directly";
    for (const int steps : {500, 1000, 4000, 16000}) {
        EXPECT_LT(evaluations_on(0.0, quenta::on_mesh(mesh_of(steps, 1.0, quadratic))), 400);
        EXPECT_LT(evaluations_on(0.5, quenta::steps(steps)), 400);
    }
}

// 35 by 35 numbers in a block.
TEST(fast_memory, of_large_blocks_is_direct) {
    long evaluations = 0;
    const auto equation = quenta::second_kind([](double, values g) { std::fill(g.begin(), g.end(), 1.0); }, 7)
                              .lag_memory([&](double, values K) {
                                  ++evaluations;
                                  std::fill(K.begin(), K.end(), 0.1);
                              });
    equation.solve(1.0, quenta::equal_steps(300).nodes(QUENTA_RADAU, 5));
    EXPECT_EQ(evaluations, 300 * 301 / 2 * 25);
}

// Relative to the solution so far, also if it grows by 14 orders of magnitude.
TEST(fast_memory, is_accurate_for_a_solution_that_grows) {
    const auto y = quenta::second_kind([](double t) {
                       return t;
                   }).lag_memory([](double lag) {
                         return lag;
                     }).solve(32.0, quenta::equal_steps(2000).nodes(QUENTA_RADAU, 5));
    for (int k = 1; k <= 100; ++k)
        EXPECT_NEAR(y(0.32 * k) / std::sinh(0.32 * k), 1.0, 1e-12) << "t = " << 0.32 * k;
}

TEST(fast_memory, takes_100000_nonlinear_steps) {
    const auto y =
        quenta::second_kind([](double t) { return std::exp(-t); })
            .lag_memory([](double lag) { return std::exp(-lag); }, [](double, double z) { return z + std::exp(-z); },
                        [](double, double z) { return 1 - std::exp(-z); })
            .solve(20.0, quenta::equal_steps(100000));
    for (const double t : {0.1, 3.0, 20.0})
        EXPECT_NEAR(y(t), std::log(t + std::exp(1.0)), 1e-12);
}

// The largest relative error at the mesh points where y = exp(-rate t), of component a.
double relative_error(const quenta::solution& y, double rate, std::size_t a = 0) {
    double largest = 0.0;
    for (std::size_t n = 0; n < y.mesh().size(); ++n) {
        const double ratio = y.values()[n * std::size_t(y.dimension()) + a] / std::exp(-rate * y.mesh()[n]);
        largest = std::fabs(ratio - 1) <= largest ? largest : std::fabs(ratio - 1);
    }
    return largest;
}

// y = exp(-rate t) = g + integral of exp(-rate (t - s)) y(s). With a negative rate early values are small.
TEST(fast_memory, keeps_the_digits_of_small_values) {
    for (const double rate : {-100.0, -40.0, 1.0, 10.0, 20.0, 40.0, 100.0}) {
        const auto equation = quenta::second_kind([=](double t) {
                                  return (1 - t) * std::exp(-rate * t);
                              }).lag_memory([=](double lag) { return std::exp(-rate * lag); });
        EXPECT_LT(relative_error(equation.solve(1.0, quenta::equal_steps(2048)), rate), 1e-11) << rate;
        for (const auto& mesh :
             {mesh_of(2048, 1.0, quadratic), mesh_of(2048, 1.0, [](double x) { return x * (2 - x); })})
            EXPECT_LT(relative_error(equation.solve(1.0, quenta::on_mesh(mesh)), rate), 1e-9) << rate;
    }
}

// exp(-900 lag) is 0 for lags above 0.83.
TEST(fast_memory, does_not_try_to_resolve_values_that_underflow) {
    long evaluations = 0;
    const auto equation =
        quenta::second_kind([](double t) { return (1 - t) * std::exp(-900 * t); }).lag_memory([&](double lag) {
            ++evaluations;
            return std::exp(-900 * lag);
        });
    const quenta::solution y = equation.solve(1.0, quenta::equal_steps(24000));
    for (int k = 1; k <= 30; ++k)
        EXPECT_NEAR(y(k / 64.0) / std::exp(-900 * k / 64.0), 1.0, 1e-9) << k;
    EXPECT_LT(evaluations, 24000 * 2200);
}

// The progress function sees it, and can stop it.
TEST(fast_memory, begins_again_where_small_values_lose_digits) {
    auto equation = quenta::second_kind([](double t) { return (1 - t) * std::exp(-40 * t); });
    equation.lag_memory([](double lag) { return std::exp(-40 * lag); });
    struct {
        int starts = 0, last = 0, starts_allowed = 10;
    } seen;
    const auto progress = [](void* context, int done, int) {
        auto& calls = *static_cast<decltype(seen)*>(context);
        calls.starts += done == 1;
        calls.last = done;
        return int(calls.starts > calls.starts_allowed);
    };
    quenta_equation_set_progress(equation.get(), progress, &seen);
    equation.solve(1.0, quenta::equal_steps(1000));
    EXPECT_EQ(seen.starts, 2);
    EXPECT_EQ(seen.last, 1000);
    seen = {0, 0, 1};
    try {
        equation.solve(1.0, quenta::equal_steps(1000));
        ADD_FAILURE() << "expected to be stopped";
    } catch (const quenta::solve_failure& failure) {
        EXPECT_EQ(failure.status, QUENTA_EQUATION_STOPPED);
        EXPECT_EQ(failure.partial.steps(), 1);
    }
}

// The other component does not decrease, and does not hide it.
TEST(fast_memory, keeps_the_digits_of_a_small_component) {
    const auto equation =
        quenta::second_kind([](double t, values g) { g[0] = 1 - t, g[1] = (1 - t) * std::exp(-40 * t); }, 2)
            .lag_memory([](double lag, values K) {
                std::fill(K.begin(), K.end(), 0.0);
                K[0] = 1.0;
                K[3] = std::exp(-40 * lag);
            });
    const quenta::solution y = equation.solve(1.0, quenta::equal_steps(2048));
    EXPECT_LT(relative_error(y, 0.0, 0), 1e-12);
    EXPECT_LT(relative_error(y, 40.0, 1), 1e-11);
}

// Only a kernel and a solution that both decrease, or both grow, need other sums than transforms.
TEST(fast_memory, takes_transforms_unless_small_values_need_others) {
    const auto evaluations_for = [](double of_kernel, double of_g) {
        long evaluations = 0;
        quenta::second_kind([=](double t) { return std::cos(30 * t) * std::exp(-of_g * t); })
            .lag_memory([&, of_kernel](double lag) {
                ++evaluations;
                return std::exp(-of_kernel * lag);
            })
            .solve(1.0, quenta::equal_steps(2000).nodes(QUENTA_RADAU, 1));
        return evaluations;
    };
    for (const double rate : {0.0, 5.0, 50.0, 500.0}) {
        EXPECT_EQ(evaluations_for(rate, 0.0), 2000);
        EXPECT_EQ(evaluations_for(0.0, rate), 2000);
    }
    EXPECT_GT(evaluations_for(50.0, 50.0), 2000 * 10);
    EXPECT_GT(evaluations_for(-50.0, -50.0), 2000 * 10);
}

// A value that is not finite must not spread to earlier steps: the direct sums are taken.
TEST(fast_memory, keeps_the_steps_before_a_kernel_that_is_not_finite) {
    const auto kernel = [](double lag) {
        return lag < 0.7 ? std::exp(-lag) : std::numeric_limits<double>::quiet_NaN();
    };
    const auto end_of = [](const quenta::equation& equation) {
        try {
            equation.solve(1.0, quenta::equal_steps(400));
        } catch (const quenta::solve_failure& failure) {
            EXPECT_EQ(failure.status, QUENTA_EQUATION_NOT_FINITE);
            return failure.partial.mesh().back();
        }
        return -1.0;
    };
    const auto one = [](double) {
        return 1.0;
    };
    const double end = end_of(quenta::second_kind(one).lag_memory(kernel));
    EXPECT_EQ(end, end_of(quenta::second_kind(one).memory([=](double t, double s) { return kernel(t - s); })));
    EXPECT_NEAR(end, 0.7, 0.01);
    const auto end_on_mesh = [](const quenta::equation& equation) {
        try {
            equation.solve(1.0, quenta::on_mesh(mesh_of(400, 1.0, quadratic)));
        } catch (const quenta::solve_failure& failure) {
            return failure.partial.mesh().back();
        }
        return -1.0;
    };
    EXPECT_EQ(end_on_mesh(quenta::second_kind(one).lag_memory(kernel)),
              end_on_mesh(quenta::second_kind(one).memory([=](double t, double s) { return kernel(t - s); })));
    // Also if this value is among those of the current step.
    const auto at_0 = [](double lag) {
        return lag > 0.0 ? 1.0 : std::numeric_limits<double>::infinity();
    };
    EXPECT_THROW(quenta::second_kind(one).lag_memory(at_0).solve(1.0, quenta::equal_steps(400)), quenta::solve_failure);
}

TEST(fast_memory, lets_an_exception_of_a_kernel_pass) {
    const auto kernel = [](double lag) {
        return lag < 0.7 ? 1.0 : throw std::string("long");
    };
    const auto equation = quenta::second_kind([](double) { return 1.0; }).lag_memory(kernel);
    EXPECT_THROW(equation.solve(1.0, quenta::equal_steps(400)), std::string);
}

} // namespace
