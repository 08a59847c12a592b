// The integrals over the previous steps, for kernels of any form on any mesh:
//
//     Q_ni = sum over steps k < n, nodes j, and terms r of   W_r,nikj K_r(t_ni, t_kj) phi_r(t_kj, Y_kj)
//
// with the weights W of memory_weights.hpp.
//
// Each kernel is evaluated once at each of these points. The kernels do not depend on the solution, so they are
// evaluated in batches, for a group of steps at once: first at the sources before the group, whose values are added at
// once, then at the points inside the group, where the sources become known one step after another. Those include the
// points of the integral over the current step (step_equations.hpp). Only the values of one batch and of one group are
// kept. All memory is allocated by the constructor.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/kernel_sums.hpp"
#include "quenta_equations/memory_weights.hpp"
#include "quenta_equations/solution.hpp"
#include "quenta_equations/tree_memory.hpp"

#include <cstdint>
#include <vector>

namespace quenta {

class direct_history {
public:
    // The mesh and the nodes of the solution are those of the march; all objects must outlive this one. The terms whose
    // kernel is a function of the lag belong to the first `lag_steps` steps only. With a tree, the groups of these
    // steps are its leaves, and the sources before the group are left to it.
    direct_history(const quenta_equation& equation, const quenta_solution& solution, std::int64_t lag_steps,
                   const tree_memory* tree);

    // The steps of a group that has its full length.
    static std::int64_t steps_of_group(const quenta_equation& equation, std::int64_t P);

    // Q of step n, P*D doubles at i*D + a, when all steps before it have been added.
    const double* sums_of_step(std::int64_t n);

    // K_r(t_ni, t_n + c_i c_q h_n) for all q, after sums_of_step(n): D*E doubles at q*D*E.
    const double* current_kernel(std::int64_t n, std::size_t r, int i) const;

    // The weights of these values.
    per_node<double> current_weights(std::int64_t n, std::size_t r, int i) const;

    // Takes phi_r(t_nj, Y_nj) of step n, E doubles for each j.
    void add_step(std::int64_t n, std::size_t r, const double* phi);

private:
    struct term_history {
        memory_weights weights;
        std::vector<double> weighted{};     // of_source(k, j) * phi_r(t_kj, Y_kj), E doubles at (k*P + j)*E
        std::vector<double> group_kernel{}; // the kernel values inside the group, see row_start
    };

    bool has(const memory_term& term, std::int64_t n) const { return n < lag_steps || !term.of_lag; }
    void begin_group(std::int64_t first);
    template <class visitor>
    void for_each_target(std::int64_t first, std::int64_t end, const visitor& visit) const;
    void add_sources_before_group(const memory_term& term, const term_history& history);
    void evaluate_inside_group(const memory_term& term, term_history& history);
    void evaluate(const memory_term& term, std::int64_t points, double* values);
    std::int64_t row_start(std::int64_t n, int i) const;

    const quenta_equation& equation;
    const quenta_solution& solution;
    const tree_memory* const tree;
    const int D, P;
    const std::int64_t lag_steps, steps, group_steps, batch_points;

    std::vector<double> node_times;   // k*P + j
    std::vector<double> t, s, values; // a batch; t holds the lags for a kernel of the lag
    std::vector<double> sums;         // of the steps of the group
    std::int64_t group_first = 0, group_end = 0;
    std::vector<term_history> terms;
    const kernel_sums* const kernels = &kernel_sums_without_avx512();
};

} // namespace quenta
