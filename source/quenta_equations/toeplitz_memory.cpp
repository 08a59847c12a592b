#include "quenta_equations/toeplitz_memory.hpp"

#include "quenta_equations/finite.hpp"
#include "quenta_solvers/dense_solve.hpp" // eps

#include <algorithm>
#include <bit>
#include <cmath>

namespace quenta {

namespace {

constexpr std::int64_t least_steps = 256;                   // from some 100 on the transforms pay
constexpr std::int64_t most_memory = std::int64_t{1} << 27; // doubles in all blocks
constexpr std::int64_t most_batch_points = 2048;

} // namespace

bool toeplitz_memory::pays(const quenta_equation& equation, const collocation_nodes& nodes, std::int64_t steps) {
    const std::int64_t block = nodes.P * equation.D * nodes.P * equation.columns_of_lag();
    return steps >= least_steps && steps * block <= most_memory;
}

toeplitz_memory::toeplitz_memory(const quenta_equation& in, const quenta_solution& of, std::int64_t first)
    : equation{in}, solution{of}, D{of.D}, P{of.nodes.P}, steps{std::int64_t(of.mesh.size()) - 1 - first},
      h{(of.mesh.back() - of.mesh[first]) / double(steps)}, pushed(of.nodes.P * in.columns_of_lag()),
      of_pushed(pushed.size()) {
    const std::int64_t rows = P * D, columns = std::int64_t(pushed.size());
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
    measure(blocks.data());
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
    const std::int64_t columns = std::int64_t(pushed.size());
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

per_node<double> toeplitz_memory::current_weights(std::size_t r, int i) const {
    return of(r).weights.of_current_step(h * solution.nodes.c[i]);
}

void toeplitz_memory::add_step(std::size_t r, const double* phi) {
    std::copy_n(phi, std::int64_t{P} * equation.memory[r].E, pushed.data() + of(r).first_column);
    if (r != terms.back().r)
        return;
    history->push(pushed.data());
    for (std::size_t column = 0; column < pushed.size(); ++column)
        of_pushed[column].add(pushed[column]);
    ++pushes;
}

void toeplitz_memory::magnitudes::add(double value) {
    largest = std::max(largest, std::fabs(value));
    sum += std::fabs(value);
}

// of_kernel: the magnitudes in the blocks of all lags below a power of two, for component a of the rows and each
// column: (level*D + a)*columns + column for the lags below 2^level. `blocks` begins with lag 1.
void toeplitz_memory::measure(const double* blocks) {
    const std::int64_t columns = std::int64_t(pushed.size()), size = D * columns;
    for (std::int64_t lag = 1; lag < steps; ++lag) {
        const std::int64_t level = std::bit_width(std::uint64_t(lag));
        if (std::has_single_bit(std::uint64_t(lag))) {
            of_kernel.resize((level + 1) * size);
            std::copy_n(of_kernel.end() - 2 * size, size, of_kernel.end() - size);
        }
        for (int R = 0; R < P * D; ++R)
            for (std::int64_t column = 0; column < columns; ++column)
                of_kernel[level * size + R % D * columns + column].add(*blocks++);
    }
}

// The error of a convolution by transforms is about eps times the product of the Euclidean norms of its factors. The
// square of a norm is at most the largest magnitude times the sum. After n steps, lags below the next power of two
// count.
double toeplitz_memory::error(int a) const {
    const std::int64_t level = std::bit_width(std::uint64_t(pushes));
    double sum = 0.0;
    for (std::size_t column = 0; column < pushed.size(); ++column) {
        const magnitudes &kernel = of_kernel[(level * D + a) * pushed.size() + column], &x = of_pushed[column];
        sum += std::sqrt(kernel.largest * x.sum) * std::sqrt(kernel.sum * x.largest);
    }
    return eps * sum;
}

} // namespace quenta
