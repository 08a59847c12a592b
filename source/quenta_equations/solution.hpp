// A solution: on each step the polynomial through its values at the nodes or, for an integro-differential equation, the
// integral of the polynomial through the values of its derivative.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/nodes.hpp"

#include <cstdint>
#include <vector>

struct quenta_solution {
    quenta::equation_kind kind;
    int D;
    quenta::collocation_nodes nodes;
    std::vector<double> mesh;       // of all steps, also of those that are not solved
    int steps = 0;                  // solved
    std::vector<double> unknowns{}; // component a of y, or of y', at node i of step n: (n*P + i)*D + a
    std::vector<double> y{};        // at the mesh points: n*D + a
    std::vector<double> error{};    // the estimate for each component, or empty

    double step_length(std::int64_t n) const { return mesh[n + 1] - mesh[n]; }
    double node_time(std::int64_t n, int i) const; // t_ni
    // The times of all nodes of `count` steps from `first` on, P for each step.
    void node_times(std::int64_t first, std::int64_t count, double* times) const;

    // The step that contains t, 0 <= t <= mesh[steps]; at a mesh point above 0 the step that ends there.
    std::int64_t step_at(double t) const;

    // The D components of the polynomial of step n, or of its derivative, at t_n + x h_n.
    void value(std::int64_t n, double x, double* result) const;
    void slope(std::int64_t n, double x, double* result) const;

    // The sum over the nodes j of weight[j] times the unknowns of step n at node j: D components.
    void weighted_unknowns(std::int64_t n, const quenta::per_node<double>& weight, double* result) const;
};
