// The weights of the kernel values in the sums of one memory term. A finished step k adds to the integral up to t
//
//     sum over nodes j of   W_j K(t, t_kj) phi(t_kj, Y_kj).
//
// Without a singularity W_j = h_k b_j, for all t: phi is multiplied by it, once. With one, W_j also depends on t
// (product_weights.hpp), and the kernel values are multiplied by it. Between steps of equal length it depends on their
// distance and on the nodes alone, so that these weights are kept.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/product_weights.hpp"
#include "quenta_equations/solution.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace quenta {

// The first of the steps at the end of a mesh whose lengths are equal up to the rounding of the mesh points.
std::int64_t first_of_equal_steps(const std::vector<double>& mesh);

class memory_weights {
public:
    // The solution must outlive this object. `at_nodes`: t is always a node.
    memory_weights(const memory_term& term, const quenta_solution& solution, bool at_nodes);

    // The factor of phi(t_kj, Y_kj).
    double of_source(std::int64_t k, int j) const {
        return singular ? 1.0 : solution.step_length(k) * solution.nodes.b[j];
    }

    // The kernel values at `count` sources, from number `first` = k*P + j on, are multiplied by what else W_j contains,
    // for t = t_ni or t = t_n + x h_n. Each source has `block` values.
    void multiply_at_node(std::int64_t n, int i, std::int64_t first, std::int64_t count, std::int64_t block,
                          double* values) const;
    void multiply_at(std::int64_t n, double x, std::int64_t first, std::int64_t count, std::int64_t block,
                     double* values) const;

    // W_j between two of many equal steps, for t = t_ni; the steps are at a distance of 1 if they are adjacent.
    per_node<double> of_equal_step(std::int64_t distance, int i, double h) const;

    // The weights for the part of the current step before t, which has this length.
    per_node<double> of_current_step(double length) const;

private:
    void keep_weights_of_equal_steps();

    const quenta_solution& solution;
    const std::int64_t P;
    std::optional<product_weights> singular;
    // The weights between the steps from first_equal on, which have equal lengths: those for node i from the steps
    // first_equal .. n - 1 begin at (i * equal_steps + equal_steps - (n - first_equal)) * P.
    std::int64_t first_equal, equal_steps = 0;
    std::vector<double> kept;
};

} // namespace quenta
