// The stiff fractional Riccati equation of the rough Heston model (O. El Euch and M. Rosenbaum, The characteristic
// function of rough Heston models, Mathematical Finance 29, 2019), a complex equation as a real system of twice the
// size:
//
//     D^a h = F(h) = (-u^2 - iu)/2 + (i u rho sigma - kappa) h + sigma^2 h^2 / 2,  I^(1-a) h(0) = 0,  a = H + 1/2.
//
// With variance v0 at the start, the logarithm of the characteristic function of the logarithm of the price is
// kappa theta times the integral of h plus v0 times I^(1-a) h, which is the integral of F(h).
#include "equations/fractional_adams.hpp"

#include "quenta_equations.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <span>
#include <vector>

namespace {

using complex = std::complex<double>;

constexpr double H = 0.1, a = H + 0.5, kappa = 0.3, sigma = 0.4, rho = -0.7, theta = 0.04, v0 = 0.04, T = 1.0;

struct riccati {
    double u;

    complex F(complex h) const {
        return complex(-u * u, -u) / 2.0 + complex(-kappa, u * rho * sigma) * h + sigma * sigma / 2.0 * h * h;
    }
    complex derivative(complex h) const { return complex(-kappa, u * rho * sigma) + sigma * sigma * h; }
};

complex as_complex(std::span<const double> y) {
    return {y[0], y[1]};
}

quenta::equation system_of(riccati of) {
    auto equation = quenta::second_kind([](double, std::span<double> g) { g[0] = g[1] = 0.0; }, 2);
    const auto identity = [](double, std::span<double> K) {
        K[0] = K[3] = 1.0 / std::tgamma(a);
        K[1] = K[2] = 0.0;
    };
    const auto phi = [of](double, std::span<const double> h, std::span<double> values) {
        const complex F = of.F(as_complex(h));
        values[0] = F.real();
        values[1] = F.imag();
    };
    const auto derivative = [of](double, std::span<const double> h, std::span<double> values) {
        const complex slope = of.derivative(as_complex(h));
        values[0] = values[3] = slope.real();
        values[1] = -slope.imag();
        values[2] = slope.imag();
    };
    return equation.lag_memory(quenta::weakly_singular(1.0 - a, identity), phi, derivative);
}

std::vector<complex> adams(riccati of, int steps) {
    const fractional_adams::weights weights(a, steps);
    fractional_adams::direct_sums<complex> sums(weights, steps);
    return fractional_adams::solve(
        a, [of](double, complex h) { return of.F(h); }, complex(0.0), T / steps, steps, weights, sums);
}

// Of the values at n / steps, by the trapezoidal rule, and of a solution, by Simpson's rule on each of its steps.
complex log_characteristic_function(riccati of, const std::vector<complex>& h) {
    complex sum = 0.0;
    for (std::size_t n = 0; n < h.size(); ++n)
        sum += (n == 0 || n + 1 == h.size() ? 0.5 : 1.0) * (kappa * theta * h[n] + v0 * of.F(h[n]));
    return sum * T / double(h.size() - 1);
}
complex log_characteristic_function(riccati of, const quenta::solution& h) {
    complex sum = 0.0;
    for (std::size_t n = 1; n < h.mesh().size(); ++n) {
        const double start = h.mesh()[n - 1], length = h.mesh()[n] - start;
        for (const double x : {0.0, 0.5, 1.0}) {
            const complex value = as_complex(h.at(start + x * length));
            sum += length * (x == 0.5 ? 4.0 : 1.0) / 6.0 * (kappa * theta * value + v0 * of.F(value));
        }
    }
    return sum;
}

// Where F(h) = 0 and perturbations decay: h tends to it, the faster the larger u is.
complex equilibrium(riccati of) {
    const complex b = of.derivative(0.0);
    const complex root = std::sqrt(b * b + sigma * sigma * complex(of.u * of.u, of.u));
    return -(b + root) / (sigma * sigma);
}

TEST(rough_heston, the_solution_does_not_depend_on_the_scheme) {
    for (const double u : {1.0, 100.0, 1000.0, 10000.0}) {
        const quenta::equation equation = system_of({u});
        const quenta::solution h = equation.solve(T, quenta::to_tolerance(1e-6));
        std::vector<double> mesh;
        for (int n = 0; n <= 240; ++n)
            mesh.push_back(T * std::pow(n / 240.0, 4.0 / a));
        const quenta::solution other = equation.solve(T, quenta::on_mesh(mesh).nodes(QUENTA_GAUSS, 4));
        const double size = std::abs(as_complex(h.at(T)));
        for (int k = 0; k <= 60; ++k) {
            const double t = T * std::pow(10.0, -k / 10.0);
            EXPECT_NEAR(std::abs(as_complex(h.at(t)) - as_complex(other.at(t))), 0.0, 2e-6 * size)
                << "u = " << u << ", t = " << t;
        }
        EXPECT_LE(h.steps(), 512) << "u = " << u;
    }
}

TEST(rough_heston, a_stiff_solution_is_near_its_equilibrium) {
    double last = 1.0;
    for (const double u : {100.0, 1000.0, 10000.0}) {
        const riccati problem{u};
        const complex h = as_complex(system_of(problem).solve(T, quenta::to_tolerance(1e-6)).at(T)),
                      limit = equilibrium(problem);
        const double distance = std::abs(h - limit) / std::abs(limit);
        EXPECT_LT(distance, 0.15 * last) << "u = " << u;
        last = distance;
    }
}

TEST(rough_heston, the_fractional_adams_method_agrees_with_short_steps) {
    for (const double u : {10.0, 100.0}) {
        const riccati problem{u};
        const quenta::solution h = system_of(problem).solve(T, quenta::to_tolerance(1e-8));
        const complex expected = as_complex(h.at(T)), exponent = log_characteristic_function(problem, h);
        const auto coarse = adams(problem, 1000), fine = adams(problem, 4000);
        EXPECT_LT(std::abs(fine.back() - expected), 1e-6 * std::abs(expected)) << "u = " << u;
        // The order is 1 + a.
        EXPECT_GT(std::abs(coarse.back() - expected), 7.0 * std::abs(fine.back() - expected)) << "u = " << u;
        EXPECT_LT(std::abs(log_characteristic_function(problem, fine) - exponent), 5e-4 * std::abs(exponent))
            << "u = " << u;
    }
}

// The method overflows unless h^a times the stiffness, which is about u sigma sqrt(1 - rho^2), is below 1.
TEST(rough_heston, the_explicit_adams_method_overflows) {
    for (const double u : {1000.0, 10000.0})
        EXPECT_FALSE(std::isfinite(std::abs(adams({u}, 1000).back()))) << "u = " << u;
}

} // namespace
