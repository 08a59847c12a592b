// Systems of each of the three kinds with a known solution. Kernel and coefficient are not symmetric.
#pragma once

#include "conformance/every_solver.hpp"
#include "properties/volterra_problem.hpp"

#include <cmath>
#include <complex>
#include <cstddef>
#include <map>
#include <utility>
#include <vector>

namespace quenta_tests {

// y_b(t) = Re exp(lambda_b t), no derivative of which is zero at t = 0. The kernel is M k(t) + L l(t), with matrices M
// and L that are not symmetric. It is regular at lag 0. With one component it is k(t) = exp(-t) cos 3t.
class system_problem {
public:
    system_problem(int dimension, equation equation_kind) : D{dimension}, kind{equation_kind} {
        for (int b = 0; b < D; ++b)
            for (const std::complex<double> rate : {std::complex{-1.0, 3.0}, std::complex{-0.5, 0.0}})
                parts.push_back(exponential_problem("", lambda(b), rate));
    }

    double y(double t, int b) const { return std::exp(lambda(b) * t).real(); }

    // The samples on a grid from 0 to `length`. They are cached, since settings share grids and a sample needs dozens
    // of exponentials.
    const system_samples& sampled(int N, double length) const {
        const auto [entry, is_new] = cache.try_emplace({N, length}, D);
        system_samples& data = entry->second;
        for (int sample = 0; is_new && sample < N; ++sample) {
            const double t = length * sample / (N - 1), k = parts[0].K(t), l = parts[1].K(t);
            const std::vector<double> forcing = g(t);
            data.g.insert(data.g.end(), forcing.begin(), forcing.end());
            for (int a = 0; a < D; ++a)
                for (int b = 0; b < D; ++b) {
                    data.K.push_back(M(a, b) * k + L(a, b) * l);
                    data.a.push_back(coefficient(t, a, b));
                }
        }
        for (int a = 0; is_new && a < D; ++a)
            data.y0.push_back(y(0.0, a));
        return data;
    }

    int D;
    equation kind;

private:
    static std::complex<double> lambda(int b) { return {-0.3, 1.0 + 0.15 * b}; }
    double coefficient(double t, int a, int b) const {
        return a == b ? -1.0 + 0.5 * std::sin(t) : 0.3 * std::cos(t + a + 2 * b) / D;
    }
    static double M(int a, int b) { return a == b ? 1.0 : 0.3 / (1 + a + 2 * b); }
    static double L(int a, int b) { return a < b ? 0.2 : 0.0; }

    // The forcing: the integral for the first kind, else y or its derivative minus the other terms of the equation.
    std::vector<double> g(double t) const {
        std::vector<double> integral(std::size_t(D), 0.0);
        for (int b = 0; b < D; ++b) {
            const double with_k = parts[std::size_t(2 * b)].convolution(t);
            const double with_l = parts[std::size_t(2 * b + 1)].convolution(t);
            for (int a = 0; a < D; ++a)
                integral[std::size_t(a)] += M(a, b) * with_k + L(a, b) * with_l;
        }
        if (kind == equation::first_kind)
            return integral;
        std::vector<double> rest;
        for (int a = 0; a < D; ++a) {
            rest.push_back(kind == equation::second_kind ? y(t, a) : (lambda(a) * std::exp(lambda(a) * t)).real());
            rest.back() -= integral[std::size_t(a)];
            for (int b = 0; kind == equation::integro_differential && b < D; ++b)
                rest.back() -= coefficient(t, a, b) * y(t, b);
        }
        return rest;
    }

    std::vector<volterra_problem> parts; // of component b: 2 b with k, 2 b + 1 with l
    mutable std::map<std::pair<int, double>, system_samples> cache;
};

} // namespace quenta_tests
