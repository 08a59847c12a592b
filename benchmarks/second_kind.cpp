// Compares quenta_solve_vie2 and quenta_solve_vie2_vec with the textbook loop of quadratic cost and with the same
// schedule on FFTW, and measures how their time grows with the number of steps.

#include "collocation.hpp"
#include "comparison.hpp"
#include "fftw_schedule.hpp"

#include "quenta_native.h"

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// docs/figures/textbook_trapezoid.c, compiled with additions in source order and in any order.
extern "C" {
void textbook_trapezoid_in_order(const double* g, const double* K, int N, double dt, double* y);
void textbook_trapezoid_reassociated(const double* g, const double* K, int N, double dt, double* y);
}

namespace {

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

// Collocation on fftw_history. The matrix of a step is inverted once.
template <int P, int D>
class fftw_solver {
public:
    fftw_solver(int samples, const setting<P>& with)
        : at(with), S(with.m * with.m), steps(with.steps(samples)), history(steps), U(std::size_t(steps)),
          value_at(std::size_t(S + 1)) {
        for (int e = 0; e <= S; ++e)
            for (int j = 0; j < P; ++j)
                value_at[e][j] = at.basis(j, double(e) / S);
    }

    void solve(const problem& given, std::vector<double>& out) {
        const matrix inverse = step_matrix(given).inverse();
        history.start();
        for (std::int64_t n = 0; n < steps; ++n) {
            vector rhs;
            for (int R = 0; R < n_sys; ++R) {
                const int a = R / P, i = R % P;
                rhs[R] = given.g[(n * S + at.nodes[i] * at.m) * D + a] + history.sums(R)[n];
            }
            const vector solved = inverse * rhs;
            std::copy_n(solved.data(), n_sys, U[n].data());
            history.push(U[n].data());
        }
        write_samples(steps, S, D, out.data(), [this](std::int64_t n, int a, int e) {
            double sum = 0.0;
            for (int j = 0; j < P; ++j)
                sum += U[n][a * P + j] * value_at[e][j];
            return sum;
        });
    }

private:
    static constexpr int n_sys = P * D;
    using matrix = Eigen::Matrix<double, n_sys, n_sys>;
    using vector = Eigen::Matrix<double, n_sys, 1>;

    // The identity minus h W, W = sum over q of b_q c_i K(c_i (1 - c_q) h) times basis polynomial j at c_i c_q. Also
    // fills the history with h b_j K((d + c_i - c_j) h).
    matrix step_matrix(const problem& given) {
        const double* const K = given.K.data();
        const auto& k = at.nodes;
        const double h = given.dt * S;
        matrix step;
        for (int R = 0; R < n_sys; ++R)
            for (int C = 0; C < n_sys; ++C) {
                const int a = R / P, i = R % P, b = C / P, j = C % P;
                double W = 0.0;
                for (int q = 0; q < P; ++q)
                    W += K[(k[i] * (at.m - k[q]) * D + a) * D + b] * at.weight(q) * at.node(i) *
                         at.basis(j, at.node(i) * at.node(q));
                step(R, C) = (R == C ? 1.0 : 0.0) - h * W;

                double* const entry = history.kernel(R, C);
                const double factor = h * at.weight(j);
                const double* const sample = K + ((k[i] - k[j]) * at.m * D + a) * D + b;
                for (std::int64_t d = 1; d < steps; ++d)
                    entry[d] = factor * sample[d * S * D * D];
            }
        return step;
    }

    setting<P> at;
    int S;
    std::int64_t steps;
    fftw_history<n_sys, n_sys> history;
    std::vector<std::array<double, n_sys>> U;
    std::vector<std::array<double, P>> value_at;
};

// `peer(given, out)` solves the same problem. If it uses the same method, the solutions must agree.
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
void growth(benchmark::State& state, int steps, int D, const setting<P>& with) {
    const problem given(with.samples(steps), D);
    std::vector<double> out(given.g.size());
    time_alone(state, [&] { solve(given, with, out); });
}

// A problem on 0 .. 10 with K = exp(-t) and the solution y(t) = 1 + sin t, and the largest error of a solution.
struct smooth_problem : problem {
    explicit smooth_problem(int samples) : problem(samples, 1) {
        dt = 10.0 / (samples - 1);
        for (int sample = 0; sample < samples; ++sample) {
            const double t = sample * dt;
            K[sample] = std::exp(-t);
            g[sample] = std::sin(t) + (std::cos(t) - std::sin(t) + K[sample]) / 2.0;
        }
    }
    double error(const std::vector<double>& y) const {
        double largest = 0.0;
        for (int sample = 0; sample < N; ++sample)
            largest = std::max(largest, std::fabs(y[sample] - 1.0 - std::sin(sample * dt)));
        return largest;
    }
};

// The smooth problem with as many samples as the setting needs for the given error.
template <int P>
smooth_problem with_error(double error, const setting<P>& with) {
    for (int steps = 10;; steps += std::max(1, steps / 50)) {
        smooth_problem given(with.samples(steps));
        std::vector<double> out(given.g.size());
        solve(given, with, out);
        if (given.error(out) <= error)
            return given;
    }
}

// Compares two settings at the same error.
template <int P, int peer_P>
void same_error(benchmark::State& state, double error, const setting<P>& with, const setting<peer_P>& peer_with) {
    const smooth_problem given = with_error(error, with), peer_given = with_error(error, peer_with);
    std::vector<double> out(given.g.size()), peer_out(peer_given.g.size());
    compare(
        state, no_limit, 10, [] {}, [&] { solve(given, with, out); }, [&] { solve(peer_given, peer_with, peer_out); });
}

// Compares D = 9, a run-time dimension, with D = 8, the largest dimension fixed at compile time.
template <int P>
void nine_against_eight(benchmark::State& state, int steps, const setting<P>& with) {
    const problem nine(with.samples(steps), 9), eight(with.samples(steps), 8);
    std::vector<double> out_nine(nine.g.size()), out_eight(eight.g.size());
    compare(
        state, no_limit, 1, [] {}, [&] { solve(nine, with, out_nine); }, [&] { solve(eight, with, out_eight); });
}

struct limited_size {
    int steps;
    double limit;
};

template <int P>
void register_trapezoid(const std::string& name, const setting<P>& with, bool same_method,
                        decltype(textbook_trapezoid_in_order)* loop, const std::vector<limited_size>& sizes) {
    for (const limited_size size : sizes)
        register_line("vie2, " + name, size.steps, size.steps < 100000 ? 15 : 1, [=](benchmark::State& state) {
            compare_solvers(state, problem(with.samples(size.steps), 1), with, size.limit, same_method,
                            [=](const problem& same, std::vector<double>& y) {
                                loop(same.g.data(), same.K.data(), same.N, same.dt, y.data());
                            });
        });
}

template <int D, int P>
void register_schedule(const std::string& name, const setting<P>& with, const std::vector<limited_size>& sizes) {
    for (const limited_size size : sizes)
        register_line("vie2, " + name + " / FFTW schedule", size.steps, pairs_for(size.steps * D * D),
                      [=](benchmark::State& state) { against_fftw<D>(state, size.steps, with, size.limit); });
}

template <int P>
void register_growth(const std::string& name, int D, const setting<P>& with, int most) {
    for (int steps = 100; steps <= most; steps *= 10)
        register_line("vie2, " + name + ", growth", steps, pairs_for(std::int64_t(steps) * D * D),
                      [=](benchmark::State& state) { growth(state, steps, D, with); });
}

template <int P>
void register_nine(const std::string& name, const setting<P>& with) {
    for (const int steps : {100, 1000})
        register_line("vie2, " + name + ", D=9 / D=8", steps, 31,
                      [=](benchmark::State& state) { nine_against_eight(state, steps, with); });
}

const bool registered = [] {
    quenta_rt_init();
    // Collocation at both ends of a step of one spacing is the trapezoidal rule.
    register_trapezoid(
        "m=1 [0,1] / textbook loop", both_ends, true, textbook_trapezoid_in_order,
        {{300, no_limit}, {1000, 1.5}, {3000, no_limit}, {10000, 1.0 / 4.0}, {30000, no_limit}, {100000, 1.0 / 20.0}});
    register_trapezoid(
        "m=1 [0,1] / reassociated loop", both_ends, true, textbook_trapezoid_reassociated,
        {{300, no_limit}, {1000, no_limit}, {3000, no_limit}, {10000, 1.0}, {30000, no_limit}, {100000, 1.0 / 5.0}});
    register_trapezoid("m=1 [1] / textbook loop", step_end, false, textbook_trapezoid_in_order,
                       {{1000, 1.5}, {10000, 1.0 / 4.0}, {100000, 1.0 / 20.0}});
    register_schedule<1>("m=1 [1]", step_end, {{1000, no_limit}, {10000, no_limit}, {100000, 3.0}, {1000000, 3.0}});
    register_schedule<1>("m=2 [0,1,2]", simpson, {{1000, no_limit}, {10000, 3.0}, {100000, no_limit}});
    register_schedule<2>("m=1 [1], D=2", step_end, {{1000, 3.0}, {10000, 3.0}, {100000, 3.0}});
    register_schedule<2>("m=2 [0,1,2], D=2", simpson, {{1000, 3.0}, {10000, 3.0}});
    register_schedule<8>("m=1 [1], D=8", step_end, {{1000, 3.0}, {10000, 3.0}});
    register_schedule<3>("m=2 [0,1,2], D=3", simpson, {{1000, 3.0}, {10000, 3.0}});
    register_schedule<8>("m=1 [0,1], D=8", both_ends, {{1000, 3.0}, {4000, 3.0}});
    register_schedule<8>("m=2 [0,1,2], D=8", simpson, {{500, 3.0}, {1000, 3.0}});
    register_schedule<8>("m=4 [0,1,2,3,4], D=8", quartic, {{100, 3.0}, {500, 3.0}});
    register_growth("m=1 [1]", 1, step_end, 1000000);
    register_growth("m=1 [0,1]", 1, both_ends, 1000000);
    register_growth("m=2 [0,1,2]", 1, simpson, 1000000);
    register_growth("m=2 [0,1,2], D=3", 3, simpson, 10000);
    register_growth("m=1 [0,1], D=8", 8, both_ends, 10000);
    for (const int digits : {5, 7})
        register_line("vie2, error 1e-N, m=3 [0,1,2,3] / m=1 [0,1]", digits, 15,
                      [=](benchmark::State& state) { same_error(state, std::pow(10.0, -digits), cubic, both_ends); });
    register_nine("m=1 [0,1]", both_ends);
    register_nine("m=2 [0,1,2]", simpson);
    return true;
}();

} // namespace
