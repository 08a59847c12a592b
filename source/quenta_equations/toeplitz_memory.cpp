#include "quenta_equations/toeplitz_memory.hpp"

#include "quenta_equations/finite.hpp"

#include <algorithm>

namespace quenta {

namespace {

constexpr std::int64_t least_steps = 256; // from some 100 on the transforms pay
// Doubles: of one block, and of all blocks. The direct sums need less memory.
constexpr std::int64_t largest_block = 1024, most_memory = std::int64_t{1} << 27;
constexpr std::int64_t most_batch_points = 2048;

std::int64_t columns_of_lag_terms(const quenta_equation& equation, std::int64_t P) {
    std::int64_t columns = 0;
    for (const memory_term& term : equation.memory)
        columns += term.of_lag ? P * term.E : 0;
    return columns;
}

} // namespace

bool toeplitz_memory::pays(const quenta_equation& equation, const quenta_solution& solution) {
    const std::int64_t steps = std::int64_t(solution.mesh.size()) - 1, P = solution.nodes.P;
    const std::int64_t block = P * equation.D * columns_of_lag_terms(equation, P);
    return block > 0 && block <= largest_block && steps >= least_steps && steps * block <= most_memory &&
           first_of_equal_steps(solution.mesh) == 0;
}

toeplitz_memory::toeplitz_memory(const quenta_equation& in, const quenta_solution& of)
    : equation{in}, solution{of}, D{of.D}, P{of.nodes.P}, h{of.mesh.back() / double(of.mesh.size() - 1)},
      pushed(columns_of_lag_terms(in, of.nodes.P)) {
    const std::int64_t steps = std::int64_t(of.mesh.size()) - 1, rows = P * D, columns = std::int64_t(pushed.size());
    std::vector<double> blocks((steps - 1) * rows * columns);
    std::int64_t column = 0;
    terms.reserve(in.memory.size());
    for (std::size_t r = 0; r < in.memory.size(); ++r)
        if (in.memory[r].of_lag) {
            terms.push_back({r, memory_weights(in.memory[r], of, false), column});
            column += std::int64_t{P} * in.memory[r].E;
            evaluate_current_kernel(terms.back());
            fill_blocks(terms.back(), blocks.data());
        }
    history.emplace(steps, rows, columns, blocks.data());
}

void toeplitz_memory::evaluate_current_kernel(lag_term& term) {
    const memory_term& memory = equation.memory[term.r];
    std::vector<double> lags;
    for (int i = 0; i < P; ++i)
        for (int q = 0; q < P; ++q)
            lags.push_back(solution.nodes.c[i] * (1.0 - solution.nodes.c[q]) * h);
    term.current_kernel.resize(std::int64_t{P} * P * D * memory.E);
    memory.kernel(P * P, lags.data(), nullptr, term.current_kernel.data());
    finite &= are_finite(term.current_kernel);
}

// The columns of one term in all blocks.
void toeplitz_memory::fill_blocks(const lag_term& term, double* blocks) {
    const memory_term& memory = equation.memory[term.r];
    const int E = memory.E;
    const std::int64_t steps = std::int64_t(solution.mesh.size()) - 1, columns = std::int64_t(pushed.size());
    const std::int64_t batch = std::max(std::int64_t{1}, most_batch_points / (P * P));
    std::vector<double> lags(batch * P * P), values(lags.size() * D * E);
    for (std::int64_t first = 1; first < steps; first += batch) {
        const std::int64_t end = std::min(steps, first + batch);
        double* lag = lags.data();
        for (std::int64_t d = first; d < end; ++d)
            for (int i = 0; i < P; ++i)
                for (int j = 0; j < P; ++j)
                    *lag++ = (double(d) + (solution.nodes.c[i] - solution.nodes.c[j])) * h;
        memory.kernel(lag - lags.data(), lags.data(), nullptr, values.data());
        finite &= are_finite(values);
        const double* K = values.data();
        for (std::int64_t d = first; d < end; ++d) {
            double* const block = blocks + (d - 1) * P * D * columns + term.first_column;
            for (int i = 0; i < P; ++i) {
                const per_node<double> weight = term.weights.of_equal_step(d, i, h);
                for (int j = 0; j < P; ++j)
                    for (int a = 0; a < D; ++a)
                        for (int c = 0; c < E; ++c)
                            block[(i * D + a) * columns + j * E + c] = weight[j] * *K++;
            }
        }
    }
}

const toeplitz_memory::lag_term& toeplitz_memory::of(std::size_t r) const {
    return *std::find_if(terms.begin(), terms.end(), [r](const lag_term& term) { return term.r == r; });
}

const double* toeplitz_memory::current_kernel(std::size_t r, int i) const {
    return of(r).current_kernel.data() + std::int64_t{i} * P * D * equation.memory[r].E;
}

per_node<double> toeplitz_memory::current_weights(std::int64_t n, std::size_t r, int i) const {
    return of(r).weights.of_current_step(solution.step_length(n) * solution.nodes.c[i]);
}

void toeplitz_memory::add_step(std::size_t r, const double* phi) {
    std::copy_n(phi, std::int64_t{P} * equation.memory[r].E, pushed.data() + of(r).first_column);
    if (r == terms.back().r)
        history->push(pushed.data());
}

} // namespace quenta
