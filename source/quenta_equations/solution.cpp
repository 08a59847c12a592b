#include "quenta_equations/solution.hpp"

#include <algorithm>

using namespace quenta;

// Rounding must not move a node past the end of its step, where the next step may have a node.
double quenta_solution::node_time(std::int64_t n, int i) const {
    return nodes.c[i] == 1.0 ? mesh[n + 1] : std::min(mesh[n] + nodes.c[i] * step_length(n), mesh[n + 1]);
}

void quenta_solution::node_times(std::int64_t first, std::int64_t count, double* times) const {
    for (std::int64_t n = first; n < first + count; ++n)
        for (int i = 0; i < nodes.P; ++i)
            *times++ = node_time(n, i);
}

std::int64_t quenta_solution::step_at(double t) const {
    const auto first_end = mesh.begin() + 1;
    return std::lower_bound(first_end, mesh.begin() + steps, t) - first_end;
}

void quenta_solution::weighted_unknowns(std::int64_t n, const per_node<double>& weight, double* result) const {
    const double* const U = unknowns.data() + n * nodes.P * D;
    for (int a = 0; a < D; ++a) {
        double sum = 0.0;
        for (int j = 0; j < nodes.P; ++j)
            sum += weight[j] * U[std::int64_t{j} * D + a];
        result[a] = sum;
    }
}

void quenta_solution::value(std::int64_t n, double x, double* result) const {
    if (kind != equation_kind::integro_differential)
        return weighted_unknowns(n, nodes.values(x), result);
    weighted_unknowns(n, nodes.integrals(x), result);
    for (int a = 0; a < D; ++a)
        result[a] = y[n * D + a] + step_length(n) * result[a];
}

void quenta_solution::slope(std::int64_t n, double x, double* result) const {
    if (kind == equation_kind::integro_differential)
        return weighted_unknowns(n, nodes.values(x), result);
    weighted_unknowns(n, nodes.derivatives(x), result);
    for (int a = 0; a < D; ++a)
        result[a] = 1.0 / step_length(n) * result[a];
}
