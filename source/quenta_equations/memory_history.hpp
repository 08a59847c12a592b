// What the previous steps contribute to a step, and the kernel values of the current one. Kernels of the lag have two
// fast sums: transforms between the equal steps at the end of the mesh, and the cells of a tree between all others. All
// other sums are direct.
#pragma once

#include "quenta_equations/direct_history.hpp"
#include "quenta_equations/toeplitz_memory.hpp"
#include "quenta_equations/tree_memory.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace quenta {

// Which sums are accurate: also those that are many orders of magnitude smaller than earlier ones, with more work; or
// only the others.
enum class accurate_sums { large, all };

class memory_history {
public:
    // Both objects must outlive this one. May call the kernels.
    memory_history(const quenta_equation& equation, const quenta_solution& solution, accurate_sums accurate);

    // Q of step n, P*D doubles at i*D + a, when all steps before it have been added.
    const double* sums_of_step(std::int64_t n);

    // Whether sums have become so small, compared with what the fast sums have added up, that they have lost digits.
    bool has_lost_digits() const { return lost_digits; }

    // K_r(t_ni, t_n + c_i c_q h_n) for all q, after sums_of_step(n): D*E doubles at q*D*E. The weights of these values.
    const double* current_kernel(std::int64_t n, std::size_t r, int i) const {
        return is_fast(n, r) ? fast->current_kernel(r, i) : direct.current_kernel(n, r, i);
    }
    per_node<double> current_weights(std::int64_t n, std::size_t r, int i) const {
        return is_fast(n, r) ? fast->current_weights(r, i) : direct.current_weights(n, r, i);
    }

    // Takes phi_r(t_nj, Y_nj) of step n, E doubles for each j; one term after another.
    void add_step(std::int64_t n, std::size_t r, const double* phi);

private:
    bool is_fast(std::int64_t n, std::size_t r) const { return n >= first_fast && equation.memory[r].of_lag; }
    void look_for_lost_digits();

    const quenta_equation& equation;
    const int D;
    const accurate_sums accurate;
    std::optional<toeplitz_memory> fast; // from first_fast on
    const std::int64_t first_fast;
    std::optional<tree_memory> tree; // the first_fast steps before are its sources
    direct_history direct;
    std::vector<double> sums;
    std::vector<double> largest; // of each component in the steps since the last look
    int steps_not_seen = 0;
    bool lost_digits = false;
};

} // namespace quenta
