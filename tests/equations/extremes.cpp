// Stiff equations, steps of very different lengths, very short and very long times.
#include "quenta_equations.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace {

// y = 1 / (1 + 2 k t)^(1/2): the solution of y' = -k y^3, y(0) = 1, which falls from 1 within a time of 1/k.
constexpr double k = 1e6;
double fast_decay(double t) {
    return 1.0 / std::sqrt(1.0 + 2.0 * k * t);
}

// From 0 in steps that grow by a constant factor to 1e6 times the first.
std::vector<double> geometric_mesh(double t_end, int steps) {
    const double factor = std::pow(1e6, 1.0 / (steps - 1));
    std::vector<double> mesh{0.0};
    for (int n = 0; n < steps; ++n)
        mesh.push_back(mesh.back() + std::pow(factor, n));
    for (double& t : mesh)
        t *= t_end / mesh.back();
    mesh[mesh.size() - 1] = t_end;
    return mesh;
}

double largest_error(const quenta::solution& y, const std::function<double(double)>& exact) {
    double largest = 0.0;
    for (std::size_t n = 0; n < y.mesh().size(); ++n)
        largest = std::max(largest, std::fabs(y.values()[n] - exact(y.mesh()[n])));
    return largest;
}

std::vector<quenta::equation> fast_decays() {
    const auto cube = [](double, double y) {
        return y * y * y;
    };
    return {quenta::second_kind([](double) { return 1.0; }).lag_memory([](double) { return -k; }, cube),
            quenta::integro_differential([](double, double y) { return -k * y * y * y; }, 1.0)};
}

TEST(a_stiff_equation, is_solved_on_steps_that_grow_a_millionfold) {
    for (const quenta::equation& equation : fast_decays())
        for (int P = 2; P <= 5; ++P) {
            const quenta::solution y =
                equation.solve(1.0, quenta::on_mesh(geometric_mesh(1.0, 150)).nodes(QUENTA_RADAU, P));
            EXPECT_LT(largest_error(y, fast_decay), P == 2 ? 1e-4 : 1e-6) << "P = " << P;
        }
}

// The transient is shorter than a step: the values after it are right.
TEST(a_stiff_equation, is_solved_on_steps_that_are_longer_than_its_transient) {
    for (const double strength : {1e2, 1e4, 1e6}) {
        const auto relaxing = quenta::integro_differential(
            [=](double t, double y) { return -strength * (y - std::cos(t)) * (1.0 + y * y); }, 3.0);
        const auto memory =
            quenta::second_kind([=](double t) {
                return 1.0 + strength * std::sin(t);
            }).lag_memory([=](double) { return -strength; }, [](double, double y) { return y + 0.1 * y * y * y; });
        for (int P = 1; P <= 5; ++P)
            for (const int steps : {8, 64, 512}) {
                const quenta::solution y = relaxing.solve(3.0, quenta::equal_steps(steps).nodes(QUENTA_RADAU, P));
                EXPECT_EQ(y.steps(), steps);
                EXPECT_NEAR(y(3.0), std::cos(3.0), 3.0 / strength + 3.0 / steps) << "P = " << P;
                // y + 0.1 y^3 is nearly cos t
                const double last = memory.solve(3.0, quenta::equal_steps(steps).nodes(QUENTA_RADAU, P))(3.0);
                EXPECT_NEAR(last + 0.1 * last * last * last, std::cos(3.0), 3.0 / strength + 3.0 / steps)
                    << "P = " << P;
            }
    }
}

// From an unstable state to a stable one, slower and faster than a step.
TEST(a_growing_solution, is_followed_to_its_stable_state) {
    for (const double rate : {1.0, 5.0})
        for (int P = 2; P <= 5; ++P) {
            const auto logistic =
                quenta::second_kind([](double) {
                    return 1e-3;
                }).lag_memory([=](double) { return rate; }, [](double, double y) { return y * (1.0 - y); });
            const quenta::solution y = logistic.solve(20.0, quenta::equal_steps(100).nodes(QUENTA_RADAU, P));
            const double growth = std::exp(20.0 * rate);
            EXPECT_NEAR(y(20.0), 1e-3 * growth / (1.0 + 1e-3 * (growth - 1.0)), 1e-5) << "P = " << P;
        }
}

// The rounding of y is a large part of f near the steady state.
TEST(a_steady_state, is_kept) {
    for (const double strength : {1.0, 1e6, 1e12}) {
        const auto equation =
            quenta::integro_differential([=](double, double y) { return -strength * (y - 0.7) * (1.0 + y * y); }, 0.9);
        const quenta::solution y = equation.solve(100.0, quenta::equal_steps(100));
        EXPECT_NEAR(y(100.0), 0.7, 1e-12) << strength;
    }
}

struct scaled_equation {
    std::string name;
    std::function<quenta::equation(double scale)> in_units;
};

// With the unit of time changed by a power of 2 the values of the same equation have the same bits.
TEST(units_of_time, do_not_matter) {
    const auto phi = [](double, double y) {
        return y + std::exp(-y);
    };
    const std::vector<scaled_equation> equations{
        {"linear",
         [](double u) {
             return quenta::second_kind([u](double t) { return std::cos(t / u); }).memory([u](double t, double s) {
                 return std::exp((s - t) / u) / u;
             });
         }},
        {"nonlinear",
         [=](double u) {
             return quenta::second_kind([u](double t) { return std::cos(t / u); })
                 .lag_memory([u](double lag) { return std::exp(-lag / u) / u; }, phi);
         }},
        {"first kind",
         [=](double u) {
             return quenta::first_kind([u](double t) { return std::sin(t / u); })
                 .lag_memory([u](double lag) { return std::exp(-lag / u) / u; },
                             [](double, double y) { return y + y * y * y; },
                             [](double, double y) { return 1 + 3 * y * y; });
         }},
        {"integro-differential", [=](double u) {
             return quenta::integro_differential([u](double t, double y) { return (std::sin(t / u) - y * y * y) / u; },
                                                 1.0)
                 .lag_memory([u](double lag) { return std::exp(-lag / u) / u / u; }, phi,
                             [](double, double y) { return 1.0 - std::exp(-y); });
         }}};
    for (const scaled_equation& equation : equations)
        for (const int exponent : {-40, 40, -300, 300}) { // 2^40 is about 1e12
            const double unit = std::ldexp(1.0, exponent);
            const quenta::solution a = equation.in_units(1.0).solve(4.0, quenta::equal_steps(50)),
                                   b = equation.in_units(unit).solve(4.0 * unit, quenta::equal_steps(50));
            for (std::size_t n = 0; n < a.values().size(); ++n)
                EXPECT_EQ(a.values()[n], b.values()[n]) << equation.name << " 2^" << exponent << " step " << n;
        }
}

} // namespace
