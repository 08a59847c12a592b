#include "quenta_equations/memory_weights.hpp"

#include "quenta_solvers/dense_solve.hpp" // eps

#include <algorithm>
#include <cmath>

namespace quenta {

namespace {

void multiply_block(double* values, std::int64_t block, double weight) {
    for (std::int64_t v = 0; v < block; ++v)
        values[v] *= weight;
}

} // namespace

std::int64_t first_of_equal_steps(const std::vector<double>& mesh) {
    const std::int64_t steps = std::int64_t(mesh.size()) - 1;
    const double rounding = 8.0 * eps * mesh.back(), last = mesh[steps] - mesh[steps - 1];
    std::int64_t first = steps - 1;
    while (first > 0 && std::fabs(mesh[first] - mesh[first - 1] - last) <= rounding)
        --first;
    const double h = (mesh[steps] - mesh[first]) / double(steps - first);
    for (std::int64_t n = first; n < steps; ++n)
        if (std::fabs(mesh[n] - mesh[first] - double(n - first) * h) > rounding)
            return steps;
    return first;
}

memory_weights::memory_weights(const memory_term& term, const quenta_solution& of, bool at_nodes)
    : solution{of}, P{of.nodes.P}, first_equal{std::int64_t(of.mesh.size()) - 1} {
    if (term.singularity == 0.0)
        return;
    singular.emplace(of.nodes, term.singularity);
    if (at_nodes)
        keep_weights_of_equal_steps();
}

void memory_weights::keep_weights_of_equal_steps() {
    const std::vector<double>& mesh = solution.mesh;
    first_equal = first_of_equal_steps(mesh);
    equal_steps = std::int64_t(mesh.size()) - 1 - first_equal;
    kept.resize(P * equal_steps * P);
    const double h = equal_steps > 0 ? (mesh.back() - mesh[first_equal]) / double(equal_steps) : 0.0;
    for (int i = 0; i < P; ++i)
        for (std::int64_t distance = 1; distance < equal_steps; ++distance) {
            const per_node<double> weight = of_equal_step(distance, i, h);
            std::copy_n(weight.data(), P, kept.data() + ((i + 1) * equal_steps - distance) * P);
        }
}

void memory_weights::multiply_at_node(std::int64_t n, int i, std::int64_t first, std::int64_t count, std::int64_t block,
                                      double* values) const {
    if (!singular)
        return;
    const std::int64_t first_kept = std::clamp(n < first_equal ? first + count : first_equal * P, first, first + count);
    multiply_at(n, solution.nodes.c[i], first, first_kept - first, block, values);
    const std::int64_t of_source_0 = ((i + 1) * equal_steps - n) * P;
    values += (first_kept - first) * block;
    for (std::int64_t source = first_kept; source < first + count; ++source, values += block)
        multiply_block(values, block, kept[of_source_0 + source]);
}

void memory_weights::multiply_at(std::int64_t n, double x, std::int64_t first, std::int64_t count, std::int64_t block,
                                 double* values) const {
    if (!singular)
        return;
    const std::int64_t end = first + count;
    const double in_step = x * solution.step_length(n);
    for (std::int64_t source = first; source < end;) {
        const std::int64_t k = source / P;
        // Without the rounding of t, so that the distance from the step before is right.
        const double distance = (solution.mesh[n] - solution.mesh[k + 1]) + in_step;
        const per_node<double> weight = singular->of_step(distance, solution.step_length(k));
        for (; source < std::min(end, (k + 1) * P); ++source, values += block)
            multiply_block(values, block, weight[source - k * P]);
    }
}

per_node<double> memory_weights::of_equal_step(std::int64_t distance, int i, double h) const {
    return singular ? singular->of_step((double(distance - 1) + solution.nodes.c[i]) * h, h) : of_current_step(h);
}

per_node<double> memory_weights::of_current_step(double length) const {
    if (singular)
        return singular->of_current_step(length);
    per_node<double> weight{};
    for (int q = 0; q < P; ++q)
        weight[q] = length * solution.nodes.b[q];
    return weight;
}

} // namespace quenta
