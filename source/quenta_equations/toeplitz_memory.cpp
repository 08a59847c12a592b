#include "quenta_equations/toeplitz_memory.hpp"

#include <algorithm>

namespace quenta {

namespace {

constexpr std::int64_t most_batch_points = 2048;

} // namespace

toeplitz_memory::toeplitz_memory(const quenta_equation& equation, const quenta_solution& of)
    : solution{of}, D{of.D}, P{of.nodes.P}, h{of.mesh.back() / double(of.mesh.size() - 1)} {
    const auto steps = static_cast<std::int32_t>(of.mesh.size() - 1);
    const std::int64_t batch_lags = std::max(std::int64_t{1}, most_batch_points / (P * P));
    lags.resize(batch_lags * P * P);
    std::int64_t columns = 0;
    for (const memory_term& term : equation.memory) {
        first_column.push_back(columns);
        if (!term.of_lag)
            continue;
        terms.push_back({&term, product_weights(of.nodes, term.singularity), {}});
        terms.back().kernel.resize(lags.size() * D * term.E);
        columns += std::int64_t{P} * term.E;
    }
    pushed.resize(columns);
    history.init(steps, P * D, static_cast<std::int32_t>(columns));
    history.set_kernel_provider(this, provide_block);
}

const double* toeplitz_memory::sums_of_step(std::int64_t n) {
    return history.history_at(static_cast<std::int32_t>(n)).pointer;
}

void toeplitz_memory::provide_block(void* memory, std::int32_t lag, ToeplitzHistory& history) {
    static_cast<toeplitz_memory*>(memory)->write_block(lag, history.kernel_block(lag).pointer);
}

// The kernels of the lags from `first` on. The history asks for them in ascending order.
void toeplitz_memory::evaluate_kernels(std::int32_t first) {
    const auto steps = static_cast<std::int64_t>(solution.mesh.size()) - 1;
    batch_first = first;
    batch_end = static_cast<std::int32_t>(std::min(steps, first + std::int64_t(lags.size()) / (P * P)));
    double* u = lags.data();
    for (std::int32_t d = batch_first; d < batch_end; ++d)
        for (int i = 0; i < P; ++i)
            for (int j = 0; j < P; ++j)
                *u++ = (d + (solution.nodes.c[i] - solution.nodes.c[j])) * h;
    for (lag_term& term : terms)
        term.term->kernel(u - lags.data(), lags.data(), nullptr, term.kernel.data());
}

void toeplitz_memory::write_block(std::int32_t d, double* block) {
    if (d >= batch_end)
        evaluate_kernels(d);
    const std::int64_t columns = std::int64_t(pushed.size());
    double* first = block; // of the columns of a term
    for (const lag_term& term : terms) {
        const int E = term.term->E;
        const double* kernel = term.kernel.data() + std::int64_t{d - batch_first} * P * P * D * E;
        for (int i = 0; i < P; ++i) {
            const per_node<double> weight = term.weights.of_step((d - 1 + solution.nodes.c[i]) * h, h);
            for (int j = 0; j < P; ++j)
                for (int a = 0; a < D; ++a)
                    for (int c = 0; c < E; ++c)
                        first[(i * D + a) * columns + j * E + c] = weight[j] * *kernel++;
        }
        first += std::int64_t{P} * E;
    }
}

} // namespace quenta
