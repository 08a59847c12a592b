#include "quenta_equations/direct_history.hpp"

#include <algorithm>

namespace quenta {

namespace {

// A batch amortizes the call of a function of the caller, also of one that is interpreted, and fits the caches.
constexpr std::int64_t most_batch_points = 2048, most_batch_values = 32768;
// Kernel values that a group keeps. A group has at least one step.
constexpr std::int64_t most_group_values = 32768, most_group_points = 1536;

std::int64_t largest_block(const quenta_equation& equation) {
    std::int64_t largest = 1;
    for (const memory_term& term : equation.memory)
        largest = std::max(largest, std::int64_t{equation.D} * term.E);
    return largest;
}

} // namespace

// Inside a group of n steps there are n * (n + 1) / 2 pairs of a step and itself or a step before it.
std::int64_t direct_history::steps_of_group(const quenta_equation& equation, std::int64_t P) {
    std::int64_t n = 1;
    while ((n + 1) * (n + 2) / 2 * P * P <= std::min(most_group_points, most_group_values / largest_block(equation)))
        ++n;
    return n;
}

direct_history::direct_history(const quenta_equation& of, const quenta_solution& into, std::int64_t steps_of_lag_terms,
                               const tree_memory* with)
    : equation{of}, solution{into}, tree{with}, D{of.D}, P{into.nodes.P}, lag_steps{steps_of_lag_terms},
      steps{std::int64_t(into.mesh.size()) - 1}, group_steps{std::min(steps, steps_of_group(of, P))},
      batch_points{std::clamp(most_batch_values / largest_block(of), std::int64_t{1}, most_batch_points)},
      node_times(steps * P), t(batch_points), s(batch_points), values(batch_points * largest_block(of)),
      sums(group_steps * P * D) {
    solution.node_times(0, steps, node_times.data());
    const std::int64_t group_points = group_steps * (group_steps + 1) / 2 * P * P;
    terms.reserve(of.memory.size());
    for (const memory_term& term : of.memory) {
        terms.push_back({memory_weights(term, solution, has(term, 0) && !(term.of_lag && tree))});
        if (!has(term, 0))
            continue;
        terms.back().weighted.resize((term.of_lag ? lag_steps : steps) * P * term.E);
        terms.back().group_kernel.resize(group_points * D * term.E);
    }
}

// Where the kernel values of node i of step n begin: those at the sources inside the group, then those at the P points
// of the current step.
std::int64_t direct_history::row_start(std::int64_t n, int i) const {
    const std::int64_t before = n - group_first;
    return before * (before + 1) / 2 * P * P + i * (before + 1) * P;
}

void direct_history::evaluate(const memory_term& term, std::int64_t points, double* to) {
    if (term.of_lag)
        term.kernel(points, t.data(), nullptr, to);
    else
        term.kernel(points, t.data(), s.data(), to);
}

void direct_history::begin_group(std::int64_t first) {
    group_first = first;
    const bool has_lag_terms = first < lag_steps;
    group_end = has_lag_terms && tree ? tree->leaf_end(first) : std::min(steps, first + group_steps);
    std::fill(sums.begin(), sums.end(), 0.0);
    for (std::size_t r = 0; r < terms.size(); ++r) {
        const memory_term& term = equation.memory[r];
        if (!has(term, first))
            continue;
        if (!(term.of_lag && tree))
            add_sources_before_group(term, terms[r]);
        evaluate_inside_group(term, terms[r]);
    }
}

// The pairs of a target, which is a node of the group, and a source before the group have numbers: all sources of the
// first target, then all of the second. Calls visit(target, first source, count) for each target among the pairs
// first .. end - 1.
template <class visitor>
void direct_history::for_each_target(std::int64_t first, std::int64_t end, const visitor& visit) const {
    const std::int64_t sources = group_first * P;
    while (first < end) {
        const std::int64_t source = first % sources, count = std::min(sources - source, end - first);
        visit(first / sources, source, count);
        first += count;
    }
}

void direct_history::add_sources_before_group(const memory_term& term, const term_history& history) {
    const std::int64_t pairs = (group_end - group_first) * P * group_first * P;
    for (std::int64_t first = 0; first < pairs; first += batch_points) {
        const std::int64_t end = std::min(pairs, first + batch_points);
        std::int64_t points = 0;
        for_each_target(first, end, [&](std::int64_t target, std::int64_t source, std::int64_t count) {
            const double target_time = node_times[group_first * P + target];
            const double* const source_time = node_times.data() + source;
            if (term.of_lag)
                for (std::int64_t p = 0; p < count; ++p)
                    t[points + p] = target_time - source_time[p];
            else {
                std::fill_n(t.data() + points, count, target_time);
                std::copy_n(source_time, count, s.data() + points);
            }
            points += count;
        });
        evaluate(term, points, values.data());
        double* value = values.data();
        for_each_target(first, end, [&](std::int64_t target, std::int64_t source, std::int64_t count) {
            history.weights.multiply_at_node(group_first + target / P, int(target % P), source, count,
                                             std::int64_t{D} * term.E, value);
            add_kernel_sum(*kernels, value, history.weighted.data() + source * term.E, count, D, term.E,
                           sums.data() + target * D);
            value += count * D * term.E;
        });
    }
}

void direct_history::evaluate_inside_group(const memory_term& term, term_history& history) {
    const std::int64_t block = std::int64_t{D} * term.E;
    double* to = history.group_kernel.data();
    std::int64_t points = 0;
    const auto flush = [&] {
        evaluate(term, points, to);
        to += points * block;
        points = 0;
    };
    const auto add_point = [&](double target_time, double source_time, double lag) {
        t[points] = term.of_lag ? lag : target_time;
        s[points] = source_time;
        if (++points == batch_points)
            flush();
    };
    for (std::int64_t n = group_first; n < group_end; ++n)
        for (int i = 0; i < P; ++i) {
            const double target_time = node_times[n * P + i], h = solution.step_length(n);
            for (std::int64_t source = group_first * P; source < n * P; ++source)
                add_point(target_time, node_times[source], target_time - node_times[source]);
            for (int q = 0; q < P; ++q) {
                const double c = solution.nodes.c[i], c_q = solution.nodes.c[q];
                add_point(target_time, c_q == 1.0 ? target_time : std::min(solution.mesh[n] + c * c_q * h, target_time),
                          c * (1.0 - c_q) * h);
            }
        }
    if (points > 0)
        flush();
    for (std::int64_t n = group_first; n < group_end; ++n)
        for (int i = 0; i < P; ++i)
            history.weights.multiply_at_node(n, i, group_first * P, (n - group_first) * P, block,
                                             history.group_kernel.data() + row_start(n, i) * block);
}

const double* direct_history::sums_of_step(std::int64_t n) {
    if (n == group_end)
        begin_group(n);
    double* const Q = sums.data() + (n - group_first) * P * D;
    for (std::size_t r = 0; r < terms.size(); ++r) {
        if (!has(equation.memory[r], n))
            continue;
        const int E = equation.memory[r].E;
        for (int i = 0; i < P; ++i)
            add_kernel_sum(*kernels, terms[r].group_kernel.data() + row_start(n, i) * D * E,
                           terms[r].weighted.data() + group_first * P * E, (n - group_first) * P, D, E,
                           Q + std::int64_t{i} * D);
    }
    return Q;
}

const double* direct_history::current_kernel(std::int64_t n, std::size_t r, int i) const {
    return terms[r].group_kernel.data() + (row_start(n, i) + (n - group_first) * P) * D * equation.memory[r].E;
}

per_node<double> direct_history::current_weights(std::int64_t n, std::size_t r, int i) const {
    return terms[r].weights.of_current_step(solution.step_length(n) * solution.nodes.c[i]);
}

void direct_history::add_step(std::int64_t n, std::size_t r, const double* phi) {
    const int E = equation.memory[r].E;
    double* to = terms[r].weighted.data() + n * P * E;
    for (int j = 0; j < P; ++j)
        for (int c = 0; c < E; ++c)
            *to++ = terms[r].weights.of_source(n, j) * *phi++;
}

} // namespace quenta
