// The forward recursion that all block solvers share.
//
// An equation defines, for P points of D components: its history (history_terms.hpp), the rest of the right-hand side,
// the entries of the matrix of a step, and what is done at the start of the recursion and at the end of a step. The
// contributions of known steps are added to the right-hand sides of several steps at once.
#pragma once

#include "quenta_function_solvers/history_sums.hpp"
#include "quenta_solvers/dense_solve.hpp"
#include "utility/ieee.hpp"
#include "utility/instruction_sets.hpp"
#include "utility/view.hpp"

#include <algorithm>
#include <array>
#include <cstdint>

namespace quenta {

// The arrays that an equation reads and writes. Their lengths are checked here, once.
template <int P_, int D_, class history_>
struct block_equation {
    using history = history_;
    static constexpr int P = P_, D = D_, M = P * D;
    static constexpr int slots = history::has_carried_value ? P + 1 : P; // of a step, for a row point of A

    block_equation(view<const double> blocks, int N, view<double> unknowns)
        : row_length{std::int64_t(N) * slots * D * D},
          A{elements(blocks, std::uint64_t(N) * P * std::uint64_t(row_length))}, x{elements(unknowns,
                                                                                            std::uint64_t(N) * M)} {}

    template <class element>
    static element* elements(view<element> array, std::uint64_t count) {
        return array.slice(0, count).pointer;
    }

    // The matrix of row point (n, i) and slot j of step k, row-major.
    const double* block(std::int64_t n, int i, std::int64_t k, int j) const {
        return A + (n * P + i) * row_length + (k * slots + j) * D * D;
    }
    // The D values at a point.
    double* point(std::int64_t n, int i) const { return x + (n * P + i) * D; }

    // Most equations do nothing here.
    void start() const {}
    void end_step(std::int64_t) const {}

    std::int64_t row_length;
    const double* A;
    double* x;
    double* y = nullptr;
    const double* h = nullptr;
};

template <class equation>
bool solve_forward(const equation& problem, int N) {
    using history = typename equation::history;
    constexpr int P = equation::P, D = equation::D, M = equation::M;
    // The sum of a step with a carried value begins with this value, which comes from the previous step.
    constexpr int steps_together = history::has_carried_value ? 1 : std::max(sums_together / M, 1);
    const add_history_function add_history =
        (widest_table<history_kernels>().*history::table)[history::written_in == form::scalar ? 0 : D];

    std::array<double, max_sums> rhs;
    dense_factors<M> matrix;
    rhs.fill(ieee::quiet_nan);

    problem.start();
    for (std::int64_t first = 0; first < N; first += steps_together) {
        const int steps = int(std::min<std::int64_t>(steps_together, N - first));
        for (int q = 0; q < steps * M; ++q)
            rhs[q] = problem.right_side(first, q / D, q % D);
        const known_steps known{
            problem.block(first, 0, 0, 0), problem.row_length, 0, first, P, problem.x, problem.y, problem.h};
        if (first > 0)
            add_history(rhs.data(), steps * M, known);

        std::array<double, M> solution;
        std::copy_n(rhs.begin(), M, solution.begin());
        for (int step = 0; step < steps; ++step) {
            const std::int64_t n = first + step;
            for (int i = 0; i < P; ++i)
                for (int a = 0; a < D; ++a)
                    for (int j = 0; j < P; ++j)
                        for (int b = 0; b < D; ++b)
                            matrix.at(i * D + a, j * D + b) = problem.matrix(n, i, a, j, b);
            if (!matrix.eliminate())
                return false;
            matrix.substitute(solution);
            std::copy_n(solution.begin(), M, problem.point(n, 0));
            problem.end_step(n);

            // Add this step to the sums of the later steps. The next step is on the critical path, so its sums stay in
            // registers.
            if constexpr (steps_together > 1) {
                if (step + 1 == steps)
                    break;
                const std::array<double, M> solved = solution;
                const known_steps this_step{
                    problem.block(first, 0, n, 0), problem.row_length, 0, 1, P, solved.data(), nullptr, nullptr};
                const auto known_one_step_more = [&](int q) {
                    const double* const row = this_step.blocks + q / D * this_step.row + q % D * D;
                    double sum = rhs[q];
                    add_steps<history, D, 1, 1, P>(&sum, &row, this_step);
                    return sum;
                };
                for (int q = 0; q < M; ++q)
                    solution[q] = known_one_step_more((step + 1) * M + q);
                for (int q = (step + 2) * M; q < steps * M; ++q)
                    rhs[q] = known_one_step_more(q);
            }
        }
    }
    return true;
}

} // namespace quenta
