// Shared by the peers of the solvers: problems, settings, and the numbers of a collocation scheme from their
// definitions.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

// D coupled damped oscillations. The values of the solution stay of one order of magnitude.
struct problem {
    problem(int samples, int dimension)
        : N(samples), D(dimension), dt(10.0 / samples), g(std::size_t(N) * D), K(std::size_t(N) * D * D) {
        double *to_g = g.data(), *to_K = K.data();
        for (int sample = 0; sample < N; ++sample) {
            const double t = sample * dt;
            for (int a = 0; a < D; ++a) {
                *to_g++ = 1.0 + 0.5 * std::sin(2.0 * t + a);
                for (int b = 0; b < D; ++b)
                    *to_K++ = std::exp(-t) * std::cos(3.0 * t + 0.7 * a - 0.4 * b) / D;
            }
        }
    }
    int N, D;
    double dt;
    std::vector<double> g, K;
};

template <int P>
struct setting {
    int m;
    std::array<int, P> nodes; // k_i

    int samples(int steps) const { return steps * m * m + 1; }
    int steps(int samples) const { return (samples - 1) / (m * m); }
    double node(int i) const { return double(nodes[i]) / m; } // c_i

    // Basis polynomial j: 1 at node j and 0 at the other nodes.
    double basis(int j, double s) const {
        double value = 1.0;
        for (int i = 0; i < P; ++i)
            if (i != j)
                value *= (s * m - nodes[i]) / double(nodes[j] - nodes[i]);
        return value;
    }

    // Its integral from 0 to s, by Gauss's rule with three points, which is exact up to degree 5.
    double integral(int j, double s) const {
        const double r = std::sqrt(0.15);
        return s * (5.0 * basis(j, s * (0.5 - r)) + 8.0 * basis(j, s * 0.5) + 5.0 * basis(j, s * (0.5 + r))) / 18.0;
    }

    double weight(int j) const { return integral(j, 1.0); } // b_j
};

constexpr setting<1> step_end{1, {1}};
constexpr setting<2> both_ends{1, {0, 1}};
constexpr setting<3> simpson{2, {0, 1, 2}};
constexpr setting<4> cubic{3, {0, 1, 2, 3}};
constexpr setting<5> quartic{4, {0, 1, 2, 3, 4}};

// Writes component a of the solution, value(n, a, e) at sample e = 0 .. S of step n; at a step boundary the mean of the
// two one-sided values.
template <class value_type>
void write_samples(std::int64_t steps, int S, int D, double* out, const value_type& value) {
    for (int a = 0; a < D; ++a) {
        double end_of_previous = value(0, a, 0);
        for (std::int64_t n = 0; n < steps; ++n) {
            out[n * S * D + a] = 0.5 * (end_of_previous + value(n, a, 0));
            for (int e = 1; e < S; ++e)
                out[(n * S + e) * D + a] = value(n, a, e);
            end_of_previous = value(n, a, S);
        }
        out[steps * S * D + a] = end_of_previous;
    }
}
