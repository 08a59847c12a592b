// quenta_solve_vide and quenta_solve_vide_vec beside the same scheme on FFTW.

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

// A coefficient that damps, turns the components into each other, and varies in time.
struct damped_problem : problem {
    damped_problem(int samples, int dimension) : problem(samples, dimension), a(K.size()), y0(std::size_t(dimension)) {
        for (int i = 0; i < N; ++i)
            for (int r = 0; r < D; ++r)
                for (int c = 0; c < D; ++c)
                    a[(i * D + r) * D + c] = r == c ? -2.0 - std::sin(i * dt) : (r - c) / double(D);
        for (int r = 0; r < D; ++r)
            y0[r] = 1.0 / (1.0 + r);
    }
    std::vector<double> a, y0;
};

template <int P>
void solve(const damped_problem& given, const setting<P>& with, std::vector<double>& out) {
    int steps = 0;
    const int status =
        given.D == 1
            ? quenta_solve_vide(given.g.data(), given.K.data(), given.a.data(), given.N, given.y0[0], given.dt, with.m,
                                with.nodes.data(), P, 0, out.data(), nullptr, &steps)
            : quenta_solve_vide_vec(given.g.data(), given.K.data(), given.a.data(), given.N, given.D, given.y0.data(),
                                    given.dt, with.m, with.nodes.data(), P, 0, out.data(), nullptr, &steps);
    if (status != QUENTA_SOLVED)
        out.assign(out.size(), std::nan(""));
}

// The collocation of a setting on fftw_history. The step's system is solved anew in every step.
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
        const double* const K = given.K.data();
        const auto& k = at.nodes;
        h = given.dt * S;
        matrix W = matrix::Zero();
        Eigen::Matrix<double, n_sys, D> V = Eigen::Matrix<double, n_sys, D>::Zero();
        for (int row = 0; row < n_sys; ++row)
            for (int c = 0; c < D; ++c) {
                const int r = row / P, i = row % P;
                for (int l = 0; l < P; ++l) {
                    const double present = at.node(i) * at.integral(l, 1.0) * K[(k[i] * (at.m - k[l]) * D + r) * D + c];
                    V(row, c) += present;
                    for (int j = 0; j < P; ++j)
                        W(row, c * P + j) += present * at.integral(j, at.node(i) * at.node(l));
                }
                fill_lags(K, row, c);
            }

        history.start();
        Eigen::Matrix<double, D, 1> y;
        std::copy_n(given.y0.data(), D, y.data());
        for (std::int64_t n = 0; n < steps; ++n) {
            matrix step;
            vector rhs;
            for (int row = 0; row < n_sys; ++row) {
                const int r = row / P, i = row % P;
                const std::int64_t sample = n * S + k[i] * at.m;
                rhs[row] = given.g[sample * D + r] + history.sums(row)[n];
                for (int c = 0; c < D; ++c) {
                    const double a = given.a[(sample * D + r) * D + c];
                    rhs[row] += (a + h * V(row, c)) * y[c];
                    for (int j = 0; j < P; ++j)
                        step(row, c * P + j) =
                            (row == c * P + j ? 1.0 : 0.0) - h * (a * node_value[i][j] + h * W(row, c * P + j));
                }
            }
            const vector Z = step.partialPivLu().solve(rhs);
            std::copy_n(Z.data(), n_sys, x[n].data());
            std::copy_n(y.data(), D, x[n].data() + n_sys);
            history.push(x[n].data());
            for (int r = 0; r < D; ++r)
                y[r] = value(n, r, S);
        }
        write_samples(steps, S, D, out.data(), [this](std::int64_t n, int r, int e) { return value(n, r, e); });
    }

private:
    static constexpr int n_sys = P * D, width = n_sys + D;
    using matrix = Eigen::Matrix<double, n_sys, n_sys>;
    using vector = Eigen::Matrix<double, n_sys, 1>;

    void fill_lags(const double* K, int row, int c) {
        for (std::int64_t d = 1; d < steps; ++d) {
            std::array<double, P> z{};
            double y = 0.0;
            for (int l = 0; l < P; ++l) {
                const std::int64_t sample = d * S + (at.nodes[row % P] - at.nodes[l]) * at.m;
                const double weighted = K[(sample * D + row / P) * D + c] * value_at[S][l];
                y += weighted;
                for (int j = 0; j < P; ++j)
                    z[j] += weighted * node_value[l][j];
            }
            for (int j = 0; j < P; ++j)
                history.kernel(row, c * P + j)[d] = h * h * z[j];
            history.kernel(row, n_sys + c)[d] = h * y;
        }
    }

    double value(std::int64_t n, int r, int e) const {
        double sum = 0.0;
        for (int j = 0; j < P; ++j)
            sum += x[n][r * P + j] * value_at[e][j];
        return x[n][n_sys + r] + h * sum;
    }

    setting<P> at;
    int S;
    std::int64_t steps;
    double h = 0.0;
    fftw_history<n_sys, width> history;
    std::vector<std::array<double, width>> x; // Z[n], then y[n]
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
