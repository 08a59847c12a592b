// The integrals over the previous steps for kernels of the lag on equal steps, in n log^2 n operations: the weighted
// kernel depends on the distance of two steps alone, so the sums are a block convolution. The block of distance d has
// rows i*D + a and, for one term after another, columns j*E + c:
//
//     W_ij(d) K_r((d + c_i - c_j) h)(a, c)
//
// with the weights W of memory_weights.hpp.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/memory_weights.hpp"
#include "quenta_equations/solution.hpp"
#include "toeplitz_history/known_kernel_history.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace quenta {

class toeplitz_memory {
public:
    // For the terms of the equation whose kernel is a function of the lag. The mesh of the solution has equal steps.
    // Both objects must outlive this one. Evaluates the kernels at all lags.
    toeplitz_memory(const quenta_equation& equation, const quenta_solution& solution);

    // Whether there are such terms, the steps are equal, and there are so many of them that the transforms pay.
    static bool pays(const quenta_equation& equation, const quenta_solution& solution);

    // False: some value of a kernel is not finite, and would spread to sums in which it has no place.
    bool is_finite() const { return finite; }

    // Q of step n, P*D doubles at i*D + a, when n steps have been added.
    const double* sums_of_step(std::int64_t) { return history->sum(); }

    // K_r(c_i (1 - c_q) h) for all q: D*E doubles at q*D*E. The weights of these values in step n.
    const double* current_kernel(std::size_t r, int i) const;
    per_node<double> current_weights(std::int64_t n, std::size_t r, int i) const;

    // Takes phi_r(t_nj, Y_nj), E doubles for each j. The last of these terms completes the step.
    void add_step(std::size_t r, const double* phi);

private:
    struct lag_term {
        std::size_t r;
        memory_weights weights;
        std::int64_t first_column;
        std::vector<double> current_kernel{};
    };

    const lag_term& of(std::size_t r) const;
    void evaluate_current_kernel(lag_term& term);
    void fill_blocks(const lag_term& term, double* blocks);

    const quenta_equation& equation;
    const quenta_solution& solution;
    const int D, P;
    const double h;
    std::vector<lag_term> terms;
    std::vector<double> pushed;
    bool finite = true;
    std::optional<known_kernel_history> history; // from blocks that the constructor fills
};

} // namespace quenta
