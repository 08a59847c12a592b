// quenta_solve_vie2 beside the textbook loop of quadratic cost and beside the same schedule on FFTW, and its growth.

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

// A damped oscillation as the kernel: its values and those of the solution keep one order of magnitude.
struct problem {
    explicit problem(int samples) : N(samples), dt(10.0 / samples), g(samples), K(samples) {
        for (int i = 0; i < N; ++i) {
            const double t = i * dt;
            K[i] = std::exp(-t) * std::cos(3.0 * t);
            g[i] = 1.0 + 0.5 * std::sin(2.0 * t);
        }
    }
    int N;
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

template <int P>
void solve(const problem& given, const setting<P>& with, std::vector<double>& out) {
    int steps = 0;
    const int status = quenta_solve_vie2(given.g.data(), given.K.data(), given.N, given.dt, with.m, with.nodes.data(),
                                         P, 0, out.data(), nullptr, &steps);
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
template <int P>
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
        for (int i = 0; i < P; ++i)
            for (int l = 0; l < P; ++l) {
                double* const lag = history.kernel(i, l);
                const double factor = h * weight[l];
                const double* const sample = K + (k[i] - k[l]) * m;
                for (std::int64_t j = 1; j < steps; ++j)
                    lag[j] = factor * sample[j * S];
            }
        history.start();
        for (std::int64_t n = 0; n < steps; ++n) {
            std::array<double, P> rhs;
            for (int i = 0; i < P; ++i)
                rhs[i] = given.g[n * S + k[i] * m] + history.sums(i)[n];
            for (int i = 0; i < P; ++i) {
                double sum = 0.0;
                for (int l = 0; l < P; ++l)
                    sum += inverse[i][l] * rhs[l];
                U[n][i] = sum;
            }
            history.push(U[n].data());
        }
        write(out.data());
    }

private:
    using matrix = std::array<std::array<double, P>, P>;

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

    // (I - h W)^-1 by Gauss and Jordan; I - h W is near the identity, so no row needs to be exchanged.
    matrix inverted_step_matrix(const double* K, double h) const {
        matrix a;
        for (int i = 0; i < P; ++i)
            for (int l = 0; l < P; ++l) {
                double W = 0.0;
                for (int q = 0; q < P; ++q)
                    W += K[k[i] * (m - k[q])] * weight[q] * k[i] / m * basis(l, double(k[i] * k[q]) / S);
                a[i][l] = (i == l ? 1.0 : 0.0) - h * W;
            }
        for (int pivot = 0; pivot < P; ++pivot) {
            const double factor = 1.0 / a[pivot][pivot];
            a[pivot][pivot] = 1.0;
            for (double& value : a[pivot])
                value *= factor;
            for (int i = 0; i < P; ++i)
                if (i != pivot) {
                    const double multiple = a[i][pivot];
                    a[i][pivot] = 0.0;
                    for (int l = 0; l < P; ++l)
                        a[i][l] -= multiple * a[pivot][l];
                }
        }
        return a;
    }

    // The mean of the two values where steps meet.
    void write(double* out) const {
        double end_of_last = value(0, 0);
        for (std::int64_t n = 0; n < steps; ++n) {
            out[n * S] = 0.5 * (end_of_last + value(n, 0));
            for (int e = 1; e < S; ++e)
                out[n * S + e] = value(n, e);
            end_of_last = value(n, S);
        }
        out[steps * S] = end_of_last;
    }

    double value(std::int64_t n, int e) const {
        double sum = 0.0;
        for (int l = 0; l < P; ++l)
            sum += U[n][l] * value_at[e][l];
        return sum;
    }

    int m, S;
    std::int64_t steps;
    std::array<int, P> k;
    fftw_history<P, P> history;
    std::vector<std::array<double, P>> U;
    std::array<double, P> weight;
    std::vector<std::array<double, P>> value_at;
};

// `peer(given, out)` solves too. It must agree, unless its method is another one.
template <int P, class peer_type>
void compare_solvers(benchmark::State& state, int steps, const setting<P>& with, double limit, bool same_method,
                     const peer_type& peer) {
    const problem given(with.samples(steps));
    std::vector<double> out(given.N), peer_out(given.N);
    const auto ours = [&] {
        solve(given, with, out);
    };
    const auto peers = [&] {
        peer(given, peer_out);
    };
    if (same_method) {
        ours();
        peers();
        if (!agree(state, out.data(), peer_out.data(), given.N, 1e-12))
            return;
    }
    compare(
        state, limit, std::max(1, 20000 / steps), [] {}, ours, peers);
}

template <int P>
void against_fftw(benchmark::State& state, int steps, const setting<P>& with, double limit) {
    const auto peer = std::make_unique<fftw_solver<P>>(with.samples(steps), with);
    compare_solvers(state, steps, with, limit, true,
                    [&](const problem& given, std::vector<double>& out) { peer->solve(given, out); });
}

template <int P>
void growth(benchmark::State& state, int steps, const setting<P>& with) {
    const problem given(with.samples(steps));
    std::vector<double> out(given.N);
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
                          compare_solvers(state, size.steps, with, size.limit, same_method, trapezoid);
                      });
}

template <int P>
void register_schedule(const std::string& name, const setting<P>& with, const std::vector<limited_size>& sizes) {
    for (const limited_size size : sizes)
        register_line("vie2, " + name + " / FFTW schedule", size.steps, pairs_for(size.steps),
                      [=](benchmark::State& state) { against_fftw(state, size.steps, with, size.limit); });
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
    register_schedule("m=1 [1]", step_end, {{1000, no_limit}, {10000, no_limit}, {100000, 3.0}, {1000000, 3.0}});
    register_schedule("m=2 [0,1,2]", simpson, {{1000, no_limit}, {10000, 3.0}, {100000, no_limit}});
    register_growth("m=1 [1]", step_end);
    register_growth("m=2 [0,1,2]", simpson);
    return true;
}();

} // namespace
