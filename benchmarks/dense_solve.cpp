// Compares the dense solve of a step with LAPACK's dgesv and Eigen's LU of fixed size, for every order of a step from 3
// up.

#include "comparison.hpp"
#include "dense_systems.hpp"

#include <Eigen/Dense>

#include <algorithm>
#include <random>
#include <vector>

extern "C" void dgesv_(const int* n, const int* columns, double* a, const int* lda, int* pivots, double* b,
                       const int* ldb, int* info);

namespace {

template <int n>
struct eigen_lu {
    static void solve(const double* a, const double* b, double* x) {
        using matrix = Eigen::Matrix<double, n, n>;
        using vector = Eigen::Matrix<double, n, 1>;
        const Eigen::Map<const Eigen::Matrix<double, n, n, Eigen::RowMajor>> given(a);
        const Eigen::PartialPivLU<matrix> lu(given);
        Eigen::Map<vector>(x, n) = lu.solve(Eigen::Map<const vector>(b, n));
    }
};

// A matrix near the identity, like that of a step.
struct linear_system {
    explicit linear_system(int order) : n(order), a(n * n), transposed(n * n), b(n) {
        std::mt19937_64 generator(n);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        for (int R = 0; R < n; ++R) {
            b[R] = uniform(generator);
            for (int C = 0; C < n; ++C)
                transposed[C * n + R] = a[R * n + C] = (R == C ? 1.0 : 0.0) + 0.1 * uniform(generator);
        }
    }
    int n;
    std::vector<double> a, transposed, b;
};

template <class peer_type>
void against(benchmark::State& state, const linear_system& system, const peer_type& peer) {
    const int n = system.n;
    const dense_solver solver = our_dense_solver(n);
    std::vector<double> x(n), peer_x(n);
    const auto ours = [&] {
        solver(system.a.data(), system.b.data(), x.data());
    };
    const auto peers = [&] {
        peer(peer_x.data());
    };
    ours();
    peers();
    if (agree(state, x.data(), peer_x.data(), n, 1e-12))
        compare(
            state, 1.0, std::max(20, 1000000 / (n * n * n)), [] {}, ours, peers);
}

void against_eigen(benchmark::State& state, int n) {
    const linear_system system(n);
    const dense_solver solver = solver_of_order<eigen_lu>(n, dense_orders{});
    against(state, system, [&](double* x) { solver(system.a.data(), system.b.data(), x); });
}

void against_lapack(benchmark::State& state, int n) {
    const linear_system system(n);
    std::vector<double> factors(n * n);
    std::vector<int> pivots(n);
    against(state, system, [&](double* x) {
        std::copy(system.transposed.begin(), system.transposed.end(), factors.begin());
        std::copy(system.b.begin(), system.b.end(), x);
        const int one = 1;
        int info = 0;
        dgesv_(&n, &one, factors.data(), &n, pivots.data(), x, &n, &info);
    });
}

template <int... orders>
void register_orders(std::integer_sequence<int, orders...>) {
    for (const int n : {orders...}) {
        register_line("dense solve / Eigen", n, 51, [=](benchmark::State& state) { against_eigen(state, n); });
        register_line("dense solve / LAPACK", n, 51, [=](benchmark::State& state) { against_lapack(state, n); });
    }
}

const bool registered = [] {
    register_orders(dense_orders{});
    return true;
}();

} // namespace
