// quenta_solve_vie2 and quenta_solve_vie2_vec beside the textbook loop of quadratic cost and beside the same schedule
// on FFTW, and their growth.

#include "comparison.hpp"
#include "fftw_schedule.hpp"

#include "quenta_native.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

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
};

constexpr setting<1> step_end{1, {1}};
constexpr setting<2> both_ends{1, {0, 1}};
constexpr setting<3> simpson{2, {0, 1, 2}};
constexpr setting<5> quartic{4, {0, 1, 2, 3, 4}};

template <int P>
void solve(const problem& given, const setting<P>& with, std::vector<double>& out) {
    int steps = 0;
    const int status = given.D == 1
                           ? quenta_solve_vie2(given.g.data(), given.K.data(), given.N, given.dt, with.m,
                                               with.nodes.data(), P, 0, out.data(), nullptr, &steps)
                           : quenta_solve_vie2_vec(given.g.data(), given.K.data(), given.N, given.D, given.dt, with.m,
                                                   with.nodes.data(), P, 0, out.data(), nullptr, &steps);
    if (status != QUENTA_SOLVED)
        out.assign(out.size(), std::nan(""));
}

// The trapezoidal rule of every textbook.
void trapezoid(const problem& given, std::vector<double>& y) {
    const double* const K = given.K.data();
    const double dt = given.dt;
    y[0] = given.g[0];
    for (int n = 1; n < given.N; ++n) {
        double sum = K[n] * y[0] / 2.0;
        for (int j = 1; j < n; ++j)
            sum += K[n - j] * y[j];
        y[n] = (given.g[n] + dt * sum) / (1.0 - dt * K[0] / 2.0);
    }
}

// The collocation of a setting on fftw_history. The step's matrix is inverted once.
template <int P, int D>
class fftw_solver {
public:
    fftw_solver(int samples, const setting<P>& with)
        : m(with.m), S(with.m * with.m), steps((samples - 1) / (with.m * with.m)), k(with.nodes), history(steps),
          U(std::size_t(steps)), value_at(std::size_t(S + 1)) {
        for (int l = 0; l < P; ++l)
            weight[l] = quadrature_weight(l);
        for (int e = 0; e <= S; ++e)
            for (int l = 0; l < P; ++l)
                value_at[e][l] = basis(l, double(e) / S);
    }

    void solve(const problem& given, std::vector<double>& out) {
        const double* const K = given.K.data();
        const double h = given.dt * S;
        const matrix inverse = inverted_step_matrix(K, h);
        for (int a = 0; a < n_sys; ++a)
            for (int b = 0; b < n_sys; ++b) {
                const int i = a % P, l = b % P;
                double* const lag = history.kernel(a, b);
                const double factor = h * weight[l];
                const double* const sample = K + ((k[i] - k[l]) * m * D + a / P) * D + b / P;
                for (std::int64_t j = 1; j < steps; ++j)
                    lag[j] = factor * sample[j * S * D * D];
            }
        history.start();
        for (std::int64_t n = 0; n < steps; ++n) {
            std::array<double, n_sys> rhs;
            for (int a = 0; a < n_sys; ++a)
                rhs[a] = given.g[(n * S + k[a % P] * m) * D + a / P] + history.sums(a)[n];
            U[n] = {};
            for (int b = 0; b < n_sys; ++b)
                for (int a = 0; a < n_sys; ++a)
                    U[n][a] += inverse[b][a] * rhs[b];
            history.push(U[n].data());
        }
        write(out.data());
    }

private:
    static constexpr int n_sys = P * D;
    using matrix = std::array<std::array<double, n_sys>, n_sys>;

    double basis(int l, double s) const {
        double value = 1.0;
        for (int i = 0; i < P; ++i)
            if (i != l)
                value *= (s * m - k[i]) / double(k[l] - k[i]);
        return value;
    }

    // Gauss's rule of three points is exact up to degree 5.
    double quadrature_weight(int l) const {
        const double r = std::sqrt(0.15);
        return (5.0 * basis(l, 0.5 - r) + 8.0 * basis(l, 0.5) + 5.0 * basis(l, 0.5 + r)) / 18.0;
    }

    // The transpose of (I - h W)^-1 by Gauss and Jordan; I - h W is near the identity, so no row needs to be exchanged.
    matrix inverted_step_matrix(const double* K, double h) const {
        matrix a;
        for (int row = 0; row < n_sys; ++row)
            for (int column = 0; column < n_sys; ++column) {
                const int i = row % P, l = column % P;
                double W = 0.0;
                for (int q = 0; q < P; ++q)
                    W += K[(k[i] * (m - k[q]) * D + row / P) * D + column / P] * weight[q] * k[i] / m *
                         basis(l, double(k[i] * k[q]) / S);
                a[column][row] = (row == column ? 1.0 : 0.0) - h * W;
            }
        for (int pivot = 0; pivot < n_sys; ++pivot) {
            const double factor = 1.0 / a[pivot][pivot];
            a[pivot][pivot] = 1.0;
            for (double& value : a[pivot])
                value *= factor;
            for (int i = 0; i < n_sys; ++i)
                if (i != pivot) {
                    const double multiple = a[i][pivot];
                    a[i][pivot] = 0.0;
                    for (int l = 0; l < n_sys; ++l)
                        a[i][l] -= multiple * a[pivot][l];
                }
        }
        return a;
    }

    // The mean of the two values where steps meet.
    void write(double* out) const {
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

    double value(std::int64_t n, int r, int e) const {
        double sum = 0.0;
        for (int l = 0; l < P; ++l)
            sum += U[n][r * P + l] * value_at[e][l];
        return sum;
    }

    int m, S;
    std::int64_t steps;
    std::array<int, P> k;
    fftw_history<n_sys, n_sys> history;
    std::vector<std::array<double, n_sys>> U;
    std::array<double, P> weight;
    std::vector<std::array<double, P>> value_at;
};

// `peer(given, out)` solves too. It must agree, unless its method is another one.
template <int P, class peer_type>
void compare_solvers(benchmark::State& state, const problem& given, const setting<P>& with, double limit,
                     bool same_method, const peer_type& peer) {
    std::vector<double> out(given.g.size()), peer_out(given.g.size());
    const auto ours = [&] {
        solve(given, with, out);
    };
    const auto peers = [&] {
        peer(given, peer_out);
    };
    if (same_method) {
        ours();
        peers();
        if (!agree(state, out.data(), peer_out.data(), std::int64_t(out.size()), 1e-12))
            return;
    }
    compare(
        state, limit, std::max(1, 20000 / (given.N * given.D)), [] {}, ours, peers);
}

template <int D, int P>
void against_fftw(benchmark::State& state, int steps, const setting<P>& with, double limit) {
    const problem given(with.samples(steps), D);
    const auto peer = std::make_unique<fftw_solver<P, D>>(given.N, with);
    compare_solvers(state, given, with, limit, true,
                    [&](const problem& same, std::vector<double>& out) { peer->solve(same, out); });
}

template <int P>
void growth(benchmark::State& state, int steps, const setting<P>& with) {
    const problem given(with.samples(steps), 1);
    std::vector<double> out(given.g.size());
    time_alone(state, [&] { solve(given, with, out); });
}

int pairs_for(int steps) {
    return std::clamp(2000000 / steps, 5, 101);
}

struct limited_size {
    int steps;
    double limit;
};

template <int P>
void register_trapezoid(const std::string& name, const setting<P>& with, bool same_method) {
    for (const limited_size size : {limited_size{1000, 1.5}, {10000, 1.0 / 4.0}, {100000, 1.0 / 20.0}})
        register_line("vie2, " + name + " / quadratic trapezoid", size.steps, size.steps < 100000 ? 15 : 1,
                      [=](benchmark::State& state) {
                          compare_solvers(state, problem(with.samples(size.steps), 1), with, size.limit, same_method,
                                          trapezoid);
                      });
}

template <int D, int P>
void register_schedule(const std::string& name, const setting<P>& with, const std::vector<limited_size>& sizes) {
    for (const limited_size size : sizes)
        register_line("vie2, " + name + " / FFTW schedule", size.steps, pairs_for(size.steps * D * D),
                      [=](benchmark::State& state) { against_fftw<D>(state, size.steps, with, size.limit); });
}

template <int P>
void register_growth(const std::string& name, const setting<P>& with) {
    for (const int steps : {1000, 10000, 100000, 1000000})
        register_line("vie2, " + name + ", growth", steps, pairs_for(steps),
                      [=](benchmark::State& state) { growth(state, steps, with); });
}

const bool registered = [] {
    quenta_rt_init();
    // Collocation at both ends of a step of one sample is the trapezoidal rule.
    register_trapezoid("m=1 [0,1]", both_ends, true);
    register_trapezoid("m=1 [1]", step_end, false);
    register_schedule<1>("m=1 [1]", step_end, {{1000, no_limit}, {10000, no_limit}, {100000, 3.0}, {1000000, 3.0}});
    register_schedule<1>("m=2 [0,1,2]", simpson, {{1000, no_limit}, {10000, 3.0}, {100000, no_limit}});
    register_schedule<2>("m=1 [1], D=2", step_end, {{1000, 3.0}, {10000, 3.0}, {100000, 3.0}});
    register_schedule<2>("m=2 [0,1,2], D=2", simpson, {{1000, 3.0}, {10000, 3.0}});
    register_schedule<8>("m=1 [1], D=8", step_end, {{1000, 3.0}, {10000, 3.0}});
    register_schedule<3>("m=2 [0,1,2], D=3", simpson, {{1000, 3.0}, {10000, 3.0}});
    register_schedule<8>("m=1 [0,1], D=8", both_ends, {{1000, 3.0}, {4000, 3.0}});
    register_schedule<8>("m=2 [0,1,2], D=8", simpson, {{500, 3.0}, {1000, 3.0}});
    register_schedule<8>("m=4 [0,1,2,3,4], D=8", quartic, {{100, 3.0}, {500, 3.0}});
    register_growth("m=1 [1]", step_end);
    register_growth("m=2 [0,1,2]", simpson);
    return true;
}();

} // namespace
