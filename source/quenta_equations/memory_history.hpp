// What the previous steps contribute to a step, and the kernel values of the current one: from the fast sums for
// kernels of the lag on many equal steps, and from the direct sums for all other terms.
#pragma once

#include "quenta_equations/direct_history.hpp"
#include "quenta_equations/toeplitz_memory.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace quenta {

class memory_history {
public:
    // Both objects must outlive this one. May call the kernels.
    memory_history(const quenta_equation& equation, const quenta_solution& solution);

    // Q of step n, P*D doubles at i*D + a, when all steps before it have been added.
    const double* sums_of_step(std::int64_t n);

    // K_r(t_ni, t_n + c_i c_q h_n) for all q, after sums_of_step(n): D*E doubles at q*D*E. The weights of these values.
    const double* current_kernel(std::int64_t n, std::size_t r, int i) const {
        return is_fast(r) ? fast->current_kernel(r, i) : direct.current_kernel(n, r, i);
    }
    per_node<double> current_weights(std::int64_t n, std::size_t r, int i) const {
        return is_fast(r) ? fast->current_weights(n, r, i) : direct.current_weights(n, r, i);
    }

    // Takes phi_r(t_nj, Y_nj) of step n, E doubles for each j; one term after another.
    void add_step(std::int64_t n, std::size_t r, const double* phi) {
        is_fast(r) ? fast->add_step(r, phi) : direct.add_step(n, r, phi);
    }

private:
    bool is_fast(std::size_t r) const { return fast && equation.memory[r].of_lag; }

    const quenta_equation& equation;
    std::optional<toeplitz_memory> fast;
    direct_history direct; // without the terms of `fast`
    std::vector<double> sums;
};

} // namespace quenta
