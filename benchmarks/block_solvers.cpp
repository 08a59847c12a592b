// Compares the block solvers with one read of the memory that they need, and with BLAS where it solves the same system.

#include "comparison.hpp"
#include "plain_read.hpp"

#include "quenta_native.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

extern "C" void dtrsv_(const char* triangle, const char* transposed, const char* diagonal, const int* n,
                       const double* a, const int* lda, double* x, const int* increment);

namespace {

enum class kind { vie1, vie1_cont, vie2, vide };
constexpr std::array kinds{kind::vie1, kind::vie1_cont, kind::vie2, kind::vide};

// Small random blocks. In the first kind 1 is added to the diagonal, which keeps the solution bounded. D = 0 selects
// the scalar solver.
struct block_system {
    block_system(kind of_kind, int points, int dimension, int unknowns)
        : equation(of_kind), P(points), D(dimension), components(D == 0 ? 1 : D), N(unknowns / (P * components)),
          slots(equation == kind::vie1 || equation == kind::vie2 ? P : P + 1), square(components * components),
          row(std::int64_t(N) * slots * square), A(std::size_t(row) * N * P), b(std::size_t(N) * P * components),
          C(std::size_t(N) * P * square, -0.5), E(std::size_t(P) * P, 0.1), w(std::size_t(P), 0.2),
          h(std::size_t(N), 0.3), y0(std::size_t(components), 1.0), x(b.size()), y(std::size_t(N + 1) * components) {
        std::mt19937_64 generator(2026);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        const double size = 1.0 / unknowns;
        for (double& value : A)
            value = size * uniform(generator);
        for (double& value : b)
            value = uniform(generator);
        if (equation == kind::vie1 || equation == kind::vie1_cont)
            for (int n = 0; n < N; ++n)
                for (int i = 0; i < P; ++i)
                    for (int a = 0; a < components; ++a)
                        A[(n * P + i) * row + (n * slots + i) * square + a * components + a] += 1.0;
    }

    int solve() {
        const double *const blocks = A.data(), *const forcing = b.data();
        double *const to = x.data(), *const carried = y.data();
        switch (equation) {
        case kind::vie1:
            return D == 0 ? function_solve_vie1(blocks, forcing, N, P, to)
                          : function_solve_vie1_vec(blocks, forcing, N, P, D, to);
        case kind::vie1_cont:
            return D == 0
                       ? function_solve_vie1_cont(blocks, forcing, N, P, w.data(), 0.5, y0[0], to, carried)
                       : function_solve_vie1_cont_vec(blocks, forcing, N, P, D, w.data(), 0.5, y0.data(), to, carried);
        case kind::vie2:
            return D == 0 ? function_solve_vie2(blocks, forcing, N, P, to)
                          : function_solve_vie2_vec(blocks, forcing, N, P, D, to);
        default:
            return D == 0 ? function_solve_vide(blocks, forcing, C.data(), E.data(), w.data(), h.data(), y0[0], N, P,
                                                to, carried)
                          : function_solve_vide_vec(blocks, forcing, C.data(), E.data(), w.data(), h.data(), y0.data(),
                                                    N, P, D, to, carried);
        }
    }

    // Reads the part of A that a solver reads: each row up to its step.
    double read() const {
        double sum = 0.0;
        for (std::int64_t point = 0; point < std::int64_t(N) * P; ++point)
            sum += read_all(A.data() + point * row, (point / P + 1) * slots * square);
        return sum;
    }

    kind equation;
    int P, D, components, N, slots, square;
    std::int64_t row;
    std::vector<double> A, b, C, E, w, h, y0, x, y;
};

template <class peer_type>
void against(benchmark::State& state, block_system& system, double limit, const peer_type& peer) {
    if (system.solve() != QUENTA_SOLVED || !std::isfinite(system.x.back()))
        state.SkipWithError("not solved");
    else
        compare(
            state, limit, 1, [] {}, [&] { benchmark::DoNotOptimize(system.solve()); },
            [&] { benchmark::DoNotOptimize(peer()); });
}

// With one sum per step, and a value carried from step to step, each addition depends on the previous one.
bool is_one_chain(kind equation, int P, int D) {
    return (equation == kind::vie1_cont || equation == kind::vide) && P == 1 && D == 0;
}

void against_one_read(benchmark::State& state, kind equation, int P, int D, int unknowns) {
    block_system system(equation, P, D, unknowns);
    against(state, system, is_one_chain(equation, P, D) ? no_limit : 1.6, [&] { return system.read(); });
}

// Compares with the same number of dependent additions alone.
void against_chain(benchmark::State& state, kind equation, int unknowns) {
    block_system system(equation, 1, 0, unknowns);
    against(state, system, 1.6, [&] {
        const std::int64_t additions = std::int64_t(system.N) * (system.N - 1);
        double sum = 1.0, term = 1e-10;
        benchmark::DoNotOptimize(term);
        for (std::int64_t addition = 0; addition < additions; ++addition)
            sum += term;
        return sum;
    });
}

// A lower triangle by rows is the transpose of an upper triangle by columns.
void against_blas(benchmark::State& state, int unknowns) {
    block_system system(kind::vie1, 1, 0, unknowns);
    std::vector<double> peer_x(system.b.size());
    const auto peer = [&] {
        const int one = 1;
        peer_x = system.b;
        dtrsv_("U", "T", "N", &system.N, system.A.data(), &system.N, peer_x.data(), &one);
    };
    const auto ours = [&] {
        benchmark::DoNotOptimize(system.solve());
    };
    ours();
    peer();
    if (agree(state, system.x.data(), peer_x.data(), system.N, 1e-12))
        compare(
            state, 1.0, unknowns < 1000 ? 10 : 1, [] {}, ours, peer);
}

const bool registered = [] {
    constexpr std::array names{"vie1", "vie1_cont", "vie2", "vide"};
    for (const kind equation : kinds)
        for (const int D : {0, 2, 4, 8})
            for (const int P : {1, 3, 5})
                register_line(std::string("blocks, ") + names[std::size_t(equation)] +
                                  (D == 0 ? ", scalar" : ", D = " + std::to_string(D)) + ", P = " + std::to_string(P) +
                                  " / one read",
                              2000, 31,
                              [=](benchmark::State& state) { against_one_read(state, equation, P, D, 2000); });
    for (const kind equation : {kind::vie1_cont, kind::vide})
        register_line(std::string("blocks, ") + names[std::size_t(equation)] + ", scalar, P = 1 / additions", 2000, 31,
                      [=](benchmark::State& state) { against_chain(state, equation, 2000); });
    for (const int unknowns : {500, 2000, 8000})
        register_line("blocks, vie1, scalar, P = 1 / BLAS dtrsv", unknowns, 21,
                      [=](benchmark::State& state) { against_blas(state, unknowns); });
    return true;
}();

} // namespace
