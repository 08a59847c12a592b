// Compares quenta_solve_vide and quenta_solve_vide_vec with the same scheme on FFTW.

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

namespace {

// The coefficient damps and couples the components, and varies in time.
struct damped_problem : problem {
    damped_problem(int samples, int dimension)
        : problem(samples, dimension), coefficient(K.size()), y0(std::size_t(dimension)) {
        for (int sample = 0; sample < N; ++sample)
            for (int a = 0; a < D; ++a)
                for (int b = 0; b < D; ++b)
                    coefficient[(sample * D + a) * D + b] = a == b ? -2.0 - std::sin(sample * dt) : (a - b) / double(D);
        for (int a = 0; a < D; ++a)
            y0[a] = 1.0 / (1.0 + a);
    }
    std::vector<double> coefficient, y0;
};

template <int P>
void solve(const damped_problem& given, const setting<P>& with, std::vector<double>& out) {
    int steps = 0;
    const int status =
        given.D == 1 ? quenta_solve_vide(given.g.data(), given.K.data(), given.coefficient.data(), given.N, given.y0[0],
                                         given.dt, with.m, with.nodes.data(), P, 0, out.data(), nullptr, &steps)
                     : quenta_solve_vide_vec(given.g.data(), given.K.data(), given.coefficient.data(), given.N, given.D,
                                             given.y0.data(), given.dt, with.m, with.nodes.data(), P, 0, out.data(),
                                             nullptr, &steps);
    if (status != QUENTA_SOLVED)
        out.assign(out.size(), std::nan(""));
}

// Collocation on fftw_history. The system of a step changes with the coefficient and is factored in every step.
template <int P, int D>
class fftw_solver {
public:
    fftw_solver(int samples, const setting<P>& with)
        : at(with), S(with.m * with.m), steps(with.steps(samples)), history(steps), x(std::size_t(steps)),
          value_at(std::size_t(S + 1)) {
        for (int e = 0; e <= S; ++e)
            for (int j = 0; j < P; ++j)
                value_at[e][j] = at.integral(j, double(e) / S);
        for (int i = 0; i < P; ++i)
            for (int j = 0; j < P; ++j)
                node_value[i][j] = at.integral(j, at.node(i));
    }

    void solve(const damped_problem& given, std::vector<double>& out) {
        h = given.dt * S;
        fill_blocks(given.K.data());
        history.start();
        component_vector y;
        std::copy_n(given.y0.data(), D, y.data());
        for (std::int64_t n = 0; n < steps; ++n) {
            const vector Z = solve_step(given, n, y);
            std::copy_n(Z.data(), n_sys, x[n].data());
            std::copy_n(y.data(), D, x[n].data() + n_sys);
            history.push(x[n].data());
            for (int a = 0; a < D; ++a)
                y[a] = value(n, a, S);
        }
        write_samples(steps, S, D, out.data(), [this](std::int64_t n, int a, int e) { return value(n, a, e); });
    }

private:
    static constexpr int n_sys = P * D, width = n_sys + D;
    using matrix = Eigen::Matrix<double, n_sys, n_sys>;
    using vector = Eigen::Matrix<double, n_sys, 1>;
    using component_vector = Eigen::Matrix<double, D, 1>;

    // The unknowns Z of step n, the values of y' at the nodes; y is the value at the beginning of the step.
    vector solve_step(const damped_problem& given, std::int64_t n, const component_vector& y) {
        matrix step;
        vector rhs;
        for (int R = 0; R < n_sys; ++R) {
            const int a = R / P, i = R % P;
            const std::int64_t sample = n * S + at.nodes[i] * at.m;
            rhs[R] = given.g[sample * D + a] + history.sums(R)[n];
            for (int b = 0; b < D; ++b) {
                const double coefficient = given.coefficient[(sample * D + a) * D + b];
                rhs[R] += (coefficient + h * V(R, b)) * y[b];
                for (int j = 0; j < P; ++j) {
                    const int C = b * P + j;
                    step(R, C) = (R == C ? 1.0 : 0.0) - h * (coefficient * node_value[i][j] + h * W(R, C));
                }
            }
        }
        return step.partialPivLu().solve(rhs);
    }

    // The kernel integrals of the current step, V for y at its beginning and W for Z, and the blocks of all lags.
    void fill_blocks(const double* K) {
        const auto& k = at.nodes;
        V.setZero();
        W.setZero();
        for (int R = 0; R < n_sys; ++R)
            for (int b = 0; b < D; ++b) {
                const int a = R / P, i = R % P;
                for (int q = 0; q < P; ++q) {
                    const double weighted = at.node(i) * at.weight(q) * K[(k[i] * (at.m - k[q]) * D + a) * D + b];
                    V(R, b) += weighted;
                    for (int j = 0; j < P; ++j)
                        W(R, b * P + j) += weighted * at.integral(j, at.node(i) * at.node(q));
                }
                fill_lags(K, R, b);
            }
    }

    void fill_lags(const double* K, int R, int b) {
        const int a = R / P, i = R % P;
        const std::array<double, P>& weight = value_at[S]; // b_q
        for (std::int64_t d = 1; d < steps; ++d) {
            std::array<double, P> of_Z{};
            double of_y = 0.0;
            for (int q = 0; q < P; ++q) {
                const std::int64_t sample = d * S + (at.nodes[i] - at.nodes[q]) * at.m;
                const double weighted = K[(sample * D + a) * D + b] * weight[q];
                of_y += weighted;
                for (int j = 0; j < P; ++j)
                    of_Z[j] += weighted * node_value[q][j];
            }
            for (int j = 0; j < P; ++j)
                history.kernel(R, b * P + j)[d] = h * h * of_Z[j];
            history.kernel(R, n_sys + b)[d] = h * of_y;
        }
    }

    double value(std::int64_t n, int a, int e) const {
        double sum = 0.0;
        for (int j = 0; j < P; ++j)
            sum += x[n][a * P + j] * value_at[e][j];
        return x[n][n_sys + a] + h * sum;
    }

    setting<P> at;
    int S;
    std::int64_t steps;
    double h = 0.0;
    matrix W;
    Eigen::Matrix<double, n_sys, D> V;
    fftw_history<n_sys, width> history;
    std::vector<std::array<double, width>> x; // Z, then y at the beginning of the step
    std::vector<std::array<double, P>> value_at;
    std::array<std::array<double, P>, P> node_value;
};

template <int D, int P>
void against_fftw(benchmark::State& state, int steps, const setting<P>& with) {
    const damped_problem given(with.samples(steps), D);
    const auto peer = std::make_unique<fftw_solver<P, D>>(given.N, with);
    std::vector<double> out(given.g.size()), peer_out(given.g.size());
    const auto ours = [&] {
        solve(given, with, out);
    };
    const auto peers = [&] {
        peer->solve(given, peer_out);
    };
    ours();
    peers();
    if (agree(state, out.data(), peer_out.data(), std::int64_t(out.size()), 1e-12))
        compare(
            state, 3.0, std::max(1, 20000 / (given.N * given.D)), [] {}, ours, peers);
}

template <int D, int P>
void register_schedule(const std::string& name, const setting<P>& with, const std::vector<int>& sizes) {
    for (const int steps : sizes)
        register_line("vide, " + name + " / FFTW schedule", steps, pairs_for(std::int64_t{steps} * D * D),
                      [=](benchmark::State& state) { against_fftw<D>(state, steps, with); });
}

const bool registered = [] {
    quenta_rt_init();
    register_schedule<1>("m=1 [1]", step_end, {1000, 10000, 100000});
    register_schedule<1>("m=2 [0,1,2]", simpson, {1000, 10000, 100000});
    register_schedule<1>("m=4 [0,1,2,3,4]", quartic, {1000, 10000});
    register_schedule<2>("m=1 [1], D=2", step_end, {1000, 10000});
    register_schedule<3>("m=2 [0,1,2], D=3", simpson, {1000, 10000});
    register_schedule<8>("m=1 [0,1], D=8", both_ends, {1000, 4000});
    register_schedule<8>("m=4 [0,1,2,3,4], D=8", quartic, {100, 500});
    return true;
}();

} // namespace
