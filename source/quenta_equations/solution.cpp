#include "quenta_equations/solution.hpp"

#include <algorithm>

using namespace quenta;

// Rounding must not move a node past the end of its step, where the next step may have a node.
double quenta_solution::node_time(std::int64_t n, int i) const {
    return nodes.c[i] == 1.0 ? mesh[n + 1] : std::min(mesh[n] + nodes.c[i] * step_length(n), mesh[n + 1]);
}

std::int64_t quenta_solution::step_at(double t) const {
    const auto first_end = mesh.begin() + 1;
    return std::lower_bound(first_end, mesh.begin() + steps, t) - first_end;
}

void quenta_solution::value(std::int64_t n, double x, double* result) const {
    const bool integrate = kind == equation_kind::integro_differential;
    const double factor = integrate ? step_length(n) : 1.0;
    const per_node<double> weight = integrate ? nodes.integrals(x) : nodes.values(x);
    const double* const U = unknowns.data() + n * nodes.P * D;
    for (int a = 0; a < D; ++a) {
        double sum = 0.0;
        for (int j = 0; j < nodes.P; ++j)
            sum += weight[j] * U[std::int64_t{j} * D + a];
        result[a] = integrate ? y[n * D + a] + factor * sum : sum;
    }
}

void quenta_solution::slope(std::int64_t n, double x, double* result) const {
    const bool integrated = kind == equation_kind::integro_differential;
    const double factor = integrated ? 1.0 : 1.0 / step_length(n);
    const per_node<double> weight = integrated ? nodes.values(x) : nodes.derivatives(x);
    const double* const U = unknowns.data() + n * nodes.P * D;
    for (int a = 0; a < D; ++a) {
        double sum = 0.0;
        for (int j = 0; j < nodes.P; ++j)
            sum += weight[j] * U[std::int64_t{j} * D + a];
        result[a] = factor * sum;
    }
}
