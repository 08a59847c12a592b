// What the peers of the solvers have in common: problems, settings, and the numbers of a collocation scheme from their
// definitions.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

// D damped oscillations, each in the other's way: the values of the solution keep one order of magnitude.
struct problem {
    problem(int samples, int dimension)
        : N(samples), D(dimension), dt(10.0 / samples), g(std::size_t(N) * D), K(std::size_t(N) * D * D) {
        double *to_g = g.data(), *to_K = K.data();
        for (int i = 0; i < N; ++i) {
            const double t = i * dt;
            for (int r = 0; r < D; ++r) {
                *to_g++ = 1.0 + 0.5 * std::sin(2.0 * t + r);
                for (int c = 0; c < D; ++c)
                    *to_K++ = std::exp(-t) * std::cos(3.0 * t + 0.7 * r - 0.4 * c) / D;
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
    std::array<int, P> nodes;

    int samples(int steps) const { return steps * m * m + 1; }
    int steps(int samples) const { return (samples - 1) / (m * m); }
    double node(int i) const { return double(nodes[i]) / m; }

    // The polynomial that is 1 at node l and 0 at the others.
    double basis(int l, double s) const {
        double value = 1.0;
        for (int i = 0; i < P; ++i)
            if (i != l)
                value *= (s * m - nodes[i]) / double(nodes[l] - nodes[i]);
        return value;
    }

    // Its integral from 0 to s. Gauss's rule of three points is exact up to degree 5.
    double integral(int l, double s) const {
        const double r = std::sqrt(0.15);
        return s * (5.0 * basis(l, s * (0.5 - r)) + 8.0 * basis(l, s * 0.5) + 5.0 * basis(l, s * (0.5 + r))) / 18.0;
    }
};

constexpr setting<1> step_end{1, {1}};
constexpr setting<2> both_ends{1, {0, 1}};
constexpr setting<3> simpson{2, {0, 1, 2}};
constexpr setting<4> cubic{3, {0, 1, 2, 3}};
constexpr setting<5> quartic{4, {0, 1, 2, 3, 4}};

// The output of a scheme of D components: value(n, r, e) at sample e = 0 .. S of step n, and the mean of the two where
// steps meet.
template <class value_type>
void write_samples(std::int64_t steps, int S, int D, double* out, const value_type& value) {
    for (int r = 0; r < D; ++r) {
        double end_of_last = value(0, r, 0);
        for (std::int64_t n = 0; n < steps; ++n) {
            out[n * S * D + r] = 0.5 * (end_of_last + value(n, r, 0));
            for (int e = 1; e < S; ++e)
                out[(n * S + e) * D + r] = value(n, r, e);
            end_of_last = value(n, r, S);
        }
        out[steps * S * D + r] = end_of_last;
    }
}
