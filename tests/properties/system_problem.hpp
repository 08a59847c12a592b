// Systems of any of the three kinds with one known solution, and a kernel and a coefficient without symmetry.
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

// y_b(t) = Re exp(lambda_b t), no derivative of which is zero at t = 0. The kernel is M k(t) + L l(t) with matrices M
// and L without symmetry, and regular at lag 0. With one component it is k(t) = exp(-t) cos 3t alone.
class system_problem {
public:
    system_problem(int dimension, equation equation_kind) : D{dimension}, kind{equation_kind} {
        for (int b = 0; b < D; ++b)
            for (const std::complex<double> rate : {std::complex{-1.0, 3.0}, std::complex{-0.5, 0.0}})
                parts.push_back(exponential_problem("", lambda(b), rate));
    }

    double y(double t, int b) const { return std::exp(lambda(b) * t).real(); }

    // On a grid from 0 to `length`. They are kept: settings share grids, and a sample takes dozens of exponentials.
    const system_samples& sampled(int N, double length) const {
        const auto [entry, is_new] = kept.try_emplace({N, length}, D);
        system_samples& data = entry->second;
        for (int i = 0; is_new && i < N; ++i) {
            const double t = length * i / (N - 1), k = parts[0].K(t), l = parts[1].K(t);
            const std::vector<double> forcing = g(t);
            data.g.insert(data.g.end(), forcing.begin(), forcing.end());
            for (int r = 0; r < D; ++r)
                for (int s = 0; s < D; ++s) {
                    data.K.push_back(M(r, s) * k + L(r, s) * l);
                    data.a.push_back(a(t, r, s));
                }
        }
        for (int r = 0; is_new && r < D; ++r)
            data.y0.push_back(y(0.0, r));
        return data;
    }

    int D;
    equation kind;

private:
    static std::complex<double> lambda(int b) { return {-0.3, 1.0 + 0.15 * b}; }
    double a(double t, int r, int b) const {
        return r == b ? -1.0 + 0.5 * std::sin(t) : 0.3 * std::cos(t + r + 2 * b) / D;
    }
    static double M(int r, int b) { return r == b ? 1.0 : 0.3 / (1 + r + 2 * b); }
    static double L(int r, int b) { return r < b ? 0.2 : 0.0; }

    // What of y, or of its derivative, the integral leaves to the forcing.
    std::vector<double> g(double t) const {
        std::vector<double> integral(std::size_t(D), 0.0);
        for (int b = 0; b < D; ++b) {
            const double with_k = parts[std::size_t(2 * b)].convolution(t);
            const double with_l = parts[std::size_t(2 * b + 1)].convolution(t);
            for (int r = 0; r < D; ++r)
                integral[std::size_t(r)] += M(r, b) * with_k + L(r, b) * with_l;
        }
        if (kind == equation::first_kind)
            return integral;
        std::vector<double> rest;
        for (int r = 0; r < D; ++r) {
            rest.push_back(kind == equation::second_kind ? y(t, r) : (lambda(r) * std::exp(lambda(r) * t)).real());
            rest.back() -= integral[std::size_t(r)];
            for (int b = 0; kind == equation::integro_differential && b < D; ++b)
                rest.back() -= a(t, r, b) * y(t, b);
        }
        return rest;
    }

    std::vector<volterra_problem> parts; // 2 b: with k, 2 b + 1: with l
    mutable std::map<std::pair<int, double>, system_samples> kept;
};

} // namespace quenta_tests
