// Kernels of the lag on many equal steps are summed by transforms. The solution is that of the same kernels as
// functions of (t, s), which are summed directly.
#include "quenta_equations.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>
#include <string>
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

TEST(fast_memory, agrees_with_the_direct_sums) {
    int compared = 0;
    for (const char kind : {'1', '2', 'D'})
        for (const int D : {1, 2})
            for (const bool nonlinear : {false, true})
                for (const auto& singularities :
                     std::vector<std::vector<double>>{{0.0}, {0.5}, {0.9}, {0.3, 0.0}, {0.6, 0.2}})
                    for (const int P : {1, 4}) {
                        const bool mixed = compared % 2 == 1;
                        const problem of{kind, D, singularities, nonlinear, mixed};
                        SCOPED_TRACE(name_of(of) + ", P = " + std::to_string(P));
                        const auto options = quenta::equal_steps(260 + P).nodes(QUENTA_RADAU, P);
                        const quenta::solution fast = equation_of(of, true).solve(2.0, options),
                                               direct = equation_of(of, false).solve(2.0, options);
                        double largest = 0.0, difference = 0.0;
                        for (std::size_t i = 0; i < fast.values().size(); ++i) {
                            largest = std::max(largest, std::fabs(direct.values()[i]));
                            difference = std::max(difference, std::fabs(direct.values()[i] - fast.values()[i]));
                        }
                        // Equations of the first kind differentiate: rounding is divided by a power of the step.
                        EXPECT_LE(difference, (kind == '1' ? 2e-11 : 1e-13) * largest);
                        EXPECT_GT(largest, 0.01);
                        ++compared;
                    }
    EXPECT_EQ(compared, 120);
}

TEST(fast_memory, is_used_for_many_equal_steps_and_no_others) {
    long evaluations = 0;
    auto equation = quenta::second_kind([](double) { return 1.0; });
    equation.lag_memory([&](double lag) {
        ++evaluations;
        return -std::exp(-lag);
    });
    const auto evaluations_on = [&](const quenta::solve_options& options) {
        evaluations = 0;
        equation.solve(1.0, options.nodes(QUENTA_RADAU, 2));
        return evaluations;
    };
    const long P2 = 4;
    EXPECT_EQ(evaluations_on(quenta::equal_steps(1000)), 1000 * P2);
    EXPECT_EQ(evaluations_on(quenta::equal_steps(100)), 100 * 101 / 2 * P2);
    std::vector<double> mesh;
    for (int n = 0; n <= 1000; ++n)
        mesh.push_back(std::pow(n / 1000.0, 1.001));
    EXPECT_EQ(evaluations_on(quenta::on_mesh(mesh)), 1000 * 1001 / 2 * P2);
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
