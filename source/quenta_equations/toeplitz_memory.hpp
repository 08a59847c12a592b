// The memory of the finished steps for kernels of the lag on equal steps, in n log^2 n operations: the weights of a
// kernel depend on the distance of two steps alone, so the sums are a block convolution. The block of lag d has rows
// i*D + a and, for one term after another, columns j*E + c:
//
//     w_ij(d) kappa_r((d + c_i - c_j) h)(a, c),     w_ij(d) = integral over the source step of (t_ni - s)^-alpha L_j.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/product_weights.hpp"
#include "quenta_equations/solution.hpp"
#include "toeplitz_history/toeplitz_history.hpp"

#include <cstdint>
#include <vector>

namespace quenta {

class toeplitz_memory {
public:
    // For the terms of the equation whose kernel is a function of the lag. The mesh of the solution has equal steps.
    // Both objects must outlive this one.
    toeplitz_memory(const quenta_equation& equation, const quenta_solution& solution);
    toeplitz_memory(const toeplitz_memory&) = delete; // its address is the context of the provider
    toeplitz_memory& operator=(const toeplitz_memory&) = delete;

    // Q of step n, P*D doubles at i*D + a, when n steps have been added.
    const double* sums_of_step(std::int64_t n);

    // The place for phi_r(t_nj, Y_nj) of one of the terms, E doubles for each node.
    double* phi_of_term(std::size_t r) { return pushed.data() + first_column[r]; }
    // Adds a step, when the places of all terms are filled.
    void add_step() { history.push(whole(pushed)); }

private:
    struct lag_term {
        const memory_term* term;
        product_weights weights;
        std::vector<double> kernel; // of a batch: lag, i, j
    };

    static void provide_block(void* memory, std::int32_t lag, ToeplitzHistory& history);
    void write_block(std::int32_t lag, double* block);
    void evaluate_kernels(std::int32_t first);

    const quenta_solution& solution;
    const int D, P;
    const double h;
    std::vector<lag_term> terms;
    std::vector<std::int64_t> first_column; // of each term of the equation
    std::vector<double> lags;               // of a batch
    std::int32_t batch_first = 0, batch_end = 0;
    std::vector<double> pushed;
    ToeplitzHistory history;
};

} // namespace quenta
