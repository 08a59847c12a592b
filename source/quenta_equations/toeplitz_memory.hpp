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
    // For the terms of the equation whose kernel is a function of the lag. The steps of the mesh are equal from `first`
    // on. They are numbered from there, and those before are no sources. Both objects must outlive this one. Evaluates
    // the kernels at all lags between the steps.
    toeplitz_memory(const quenta_equation& equation, const quenta_solution& solution, std::int64_t first);

    // Whether so many equal steps are enough for transforms, and their blocks are not too large.
    static bool pays(const quenta_equation& equation, const collocation_nodes& nodes, std::int64_t steps);

    // False: some value of a kernel is not finite, and would spread to sums in which it has no place.
    bool is_finite() const { return finite; }

    // Q of step n, P*D doubles at i*D + a, when n steps have been added.
    const double* sums_of_step(std::int64_t) { return history->sum(); }

    // K_r(c_i (1 - c_q) h) for all q: D*E doubles at q*D*E. The weights of these values in step n.
    const double* current_kernel(std::size_t r, int i) const;
    per_node<double> current_weights(std::size_t r, int i) const;

    // Takes phi_r(t_nj, Y_nj), E doubles for each j. The last of these terms completes the step.
    void add_step(std::size_t r, const double* phi);

    // An estimate of the errors of component a of the sums so far. A transform has the rounding errors of its largest
    // numbers in all its results.
    double error(int a) const;

private:
    // The largest magnitude of some numbers, and the sum of their magnitudes.
    struct magnitudes {
        double largest = 0.0, sum = 0.0;
        void add(double value);
    };

    struct lag_term {
        std::size_t r;
        memory_weights weights;
        std::int64_t first_column;
        std::vector<double> current_kernel{};
    };

    const lag_term& of(std::size_t r) const;
    void evaluate_current_kernel(lag_term& term);
    void fill_blocks(const lag_term& term, double* blocks);
    void measure(const double* blocks);

    const quenta_equation& equation;
    const quenta_solution& solution;
    const int D, P;
    const std::int64_t steps;
    const double h;
    std::vector<lag_term> terms;
    std::vector<double> pushed;
    std::int64_t pushes = 0;
    std::vector<magnitudes> of_pushed, of_kernel; // see measure
    bool finite = true;
    std::optional<known_kernel_history> history; // from blocks that the constructor fills
};

} // namespace quenta
