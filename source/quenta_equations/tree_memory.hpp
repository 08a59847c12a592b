// The integrals over the previous steps for kernels of the lag on any mesh, in a number of operations in proportion to
// the number of steps: between a range of sources S and a range of targets T that lie at least as far apart as they are
// long, the kernel (t - s)^-alpha K_r(t - s) is replaced by its interpolation in both variables,
//
//     sum over points a, b of   l_a(t) (t_a - s_b)^-alpha K_r(t_a - s_b) l_b(s),
//
// so that S contributes by its moments, the integrals of l_b(s) phi_r(s, Y(s)), and T takes the values of a polynomial
// (L. Greengard and V. Rokhlin, Journal of Computational Physics 73, 1987; W. Fong and E. Darve, Journal of
// Computational Physics 228, 2009). The ranges are the cells of a tree. The moments of a cell follow from those of its
// halves, and the polynomial of a cell is added to those of its halves.
//
// Whether the polynomials resolve a kernel is seen from the last coefficients. Where they do not, and between adjacent
// cells, the cells are halved, and the sums between the smallest ones are direct. The steps of one leaf are not summed
// here: see direct_history.hpp.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/interpolation.hpp"
#include "quenta_equations/kernel_sums.hpp"
#include "quenta_equations/memory_weights.hpp"
#include "quenta_equations/solution.hpp"
#include "quenta_equations/step_tree.hpp"

#include <cstdint>
#include <vector>

namespace quenta {

class tree_memory {
public:
    // For the terms of the equation whose kernel is a function of the lag. The sources are the first steps of the mesh,
    // the targets all steps. Both objects must outlive this one. May call the kernels.
    //
    // `relative`: the kernels are not only resolved relative to their largest values, but also to the values of each
    // pair of cells, which are then so small that a kernel does not vary by more than three digits in a pair.
    tree_memory(const quenta_equation& equation, const quenta_solution& solution, std::int64_t source_steps,
                std::int64_t leaf_steps, bool relative);

    // The first step after the leaf of step n.
    std::int64_t leaf_end(std::int64_t n) const { return tree[tree.leaf_of(n)].end; }

    // The part of Q of step n from other leaves, P*D doubles at i*D + a, when all steps before it have been added.
    const double* sums_of_step(std::int64_t n);

    // Takes phi_r(t_nj, Y_nj) of a source n, E doubles for each j. The last of these terms completes the step.
    void add_step(std::int64_t n, std::size_t r, const double* phi);

    // An estimate of the errors of component a of the sums so far.
    double error(int a) const;

private:
    // A step far away adds the sum over its points p of the kernel at s_p times the sum over j of weight[p][j] phi_j.
    struct rule_point {
        double x;
        per_node<double> weight;
    };
    struct lag_term {
        std::size_t r;
        memory_weights weights;
        std::int64_t first_column;
        std::vector<rule_point> rule;
        std::vector<double> weighted{}; // of_source(k, j) * phi_r(t_kj, Y_kj), E doubles at (k*P + j)*E
        std::vector<double> scale{};    // for each binary order of magnitude of t: see measure
        std::vector<double> largest{};  // |phi| of each component so far
    };

    void measure(lag_term& term);
    std::int64_t order_of(double t) const;
    double* moments_of(std::int64_t cell, const lag_term& term);
    void enter_leaf(std::int64_t n);
    void push_down(std::int64_t cell, std::int64_t half);
    void evaluate_leaf(const step_cell& leaf, const double* polynomial);
    void gather(std::int64_t cell);
    void interact(lag_term& term, std::int64_t source, std::int64_t target);
    bool add_far(lag_term& term, std::int64_t source, std::int64_t target);
    bool is_resolved(const lag_term& term, const step_cell& S, const step_cell& T) const;
    bool is_resolved(const double* value, int stride, double rounding, double scale) const;
    void add_near(lag_term& term, const step_cell& S, const step_cell& T);

    const quenta_equation& equation;
    const quenta_solution& solution;
    const int D, P;
    const bool relative;
    const std::int64_t steps, source_steps, columns;
    const int first_order; // of the first mesh point
    const interpolation polynomials;
    const step_tree tree;

    std::vector<lag_term> terms;
    std::vector<double> moments;     // of a cell divided by its length: (cell*columns + first_column)*points + b*E + c
    std::vector<double> coefficient; // the values of the polynomials at their points: (cell*points + a)*D
    std::vector<double> sums;        // (n*P + i)*D
    std::vector<double> node_times, lags, values;
    std::int64_t next_leaf = 0, source_leaf = -1;
    const kernel_sums* const kernels = &kernel_sums_without_avx512();
};

} // namespace quenta
