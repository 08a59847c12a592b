// Systems of any of the three kinds with one known solution, and a kernel and a coefficient without symmetry.
#pragma once

#include "conformance/every_solver.hpp"
#include "properties/volterra_problem.hpp"

#include <cmath>
#include <complex>
#include <vector>

namespace quenta_tests {

// y_b(t) = Re exp(lambda_b t), no derivative of which is zero at t = 0. The kernel is M k(t) + L l(t) with matrices M
// and L without symmetry, and regular at lag 0. With one component it is k(t) = exp(-t) cos 3t alone.
class system_problem {
public:
    explicit system_problem(int dimension) : D{dimension} {
        for (int b = 0; b < D; ++b)
            for (const std::complex<double> rate : {std::complex{-1.0, 3.0}, std::complex{-0.5, 0.0}})
                parts.push_back(exponential_problem("", lambda(b), rate));
    }

    double y(double t, int b) const { return std::exp(lambda(b) * t).real(); }

    // The forcing of each kind of equation.
    double g_of_first_kind(double t, int r) const {
        double integral = 0.0;
        for (int b = 0; b < D; ++b)
            integral += M(r, b) * parts[std::size_t(2 * b)].convolution(t) +
                        L(r, b) * parts[std::size_t(2 * b + 1)].convolution(t);
        return integral;
    }
    double g_of_second_kind(double t, int r) const { return y(t, r) - g_of_first_kind(t, r); }
    double g_of_derivative(double t, int r) const {
        double rest = (lambda(r) * std::exp(lambda(r) * t)).real() - g_of_first_kind(t, r);
        for (int b = 0; b < D; ++b)
            rest -= a(t, r, b) * y(t, b);
        return rest;
    }

    system_samples sampled(int N, double dt, double (system_problem::*g)(double t, int r) const) const {
        system_samples data{D, N};
        for (int i = 0; i < N; ++i)
            for (int r = 0; r < D; ++r) {
                data.g[std::size_t(i * D + r)] = (this->*g)(i * dt, r);
                for (int s = 0; s < D; ++s) {
                    data.K[std::size_t((i * D + r) * D + s)] = K(i * dt, r, s);
                    data.a[std::size_t((i * D + r) * D + s)] = a(i * dt, r, s);
                }
            }
        for (int r = 0; r < D; ++r)
            data.y0[std::size_t(r)] = y(0.0, r);
        return data;
    }

    int D;

private:
    static std::complex<double> lambda(int b) { return {-0.3, 1.0 + 0.15 * b}; }
    double K(double t, int r, int b) const { return M(r, b) * parts[0].K(t) + L(r, b) * parts[1].K(t); }
    double a(double t, int r, int b) const {
        return r == b ? -1.0 + 0.5 * std::sin(t) : 0.3 * std::cos(t + r + 2 * b) / D;
    }
    static double M(int r, int b) { return r == b ? 1.0 : 0.3 / (1 + r + 2 * b); }
    static double L(int r, int b) { return r < b ? 0.2 : 0.0; }

    std::vector<volterra_problem> parts; // 2 b: with k, 2 b + 1: with l
};

} // namespace quenta_tests
