// The equations of one step, and their solution.
//
// The unknowns X of step n are the values of y at the nodes or, for an integro-differential equation, those of y'. Y
// are the values of y at the nodes. With the sums Q over the previous steps, the equations are
//
//     second kind            X_i = g(t_ni) + Q_i + T_i,         Y = X
//     first kind               0 = -g(t_ni) + Q_i + T_i,        Y = X
//     integro-differential   X_i = f(t_ni, Y_i) + Q_i + T_i,    Y_i = y_n + h sum over j of B_j(c_i) X_j
//
//     T_i    = sum over terms r, nodes j of   A_r,ij phi_r(t_nj, Y_j)
//     A_r,ij = sum over q of   w_r,iq K_r(t_ni, t_n + c_i c_q h) L_j(c_i c_q)
//
// (Brunner 2004, sections 2.2 to 2.4 and chapter 3: collocation with phi interpolated at the nodes). T is the integral
// over the current step, with the weights w_iq = h c_i b_q or, with a singularity, those of product_weights.hpp. Its
// points are t_n + c_i c_q h, so that no kernel is evaluated at s > t. Where phi(s, y) = y,
// the polynomial of y itself is evaluated at these points, which is the same unless y has the degree P.
//
// The residual is the left side minus the right side; its rows are R = i D + a.
//
// Linear equations are solved by elimination, nonlinear ones by Newton's method (step_newton.cpp). Nonlinear equations
// can have several solutions. The one that is meant tends to g(t_ni) + Q_i, or to f(t_ni, y_n) + Q_i, for short steps.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/memory_history.hpp"
#include "quenta_equations/scaled_system.hpp"
#include "quenta_equations/solution.hpp"
#include "quenta_equations/stable_matrix.hpp"

#include <cstdint>
#include <vector>

namespace quenta {

class step_equations {
public:
    step_equations(const quenta_equation& equation, const quenta_solution& solution);

    // Prepares step n: Q are the sums over the previous steps, and g the forcing at the nodes, both P*D doubles at
    // i*D + a. g is null for an integro-differential equation. y is y_n.
    void prepare(std::int64_t n, memory_history& history, const double* Q, const double* g, const double* y);

    // Replaces X, from which an iteration starts, by the solution. Another status than `solved` says why there is none.
    equation_status solve(double* X);

    // After solve: phi_r at the nodes, E doubles for each node.
    const double* phi_at_nodes(std::size_t r) const { return terms[r].phi.data(); }
    // f(t_ni, y) at the nodes, or 0 without f: from there the first step of an integro-differential equation iterates.
    void right_side_at(const double* y, double* values);

private:
    struct step_term {
        std::vector<double> A;          // P*D rows R and P*E columns j*E + c, by rows; empty if phi(s, y) = y
        std::vector<double> phi;        // at the nodes: j*E + c
        std::vector<double> derivative; // d phi / dy: (j*E + c)*D + b
    };

    void assemble_linear(const double* kernel, const per_node<double>& weights, int i, const double* y);
    void assemble_nonlinear(const memory_term& term, step_term& step, const double* kernel,
                            const per_node<double>& weights, int i);
    void values_at_nodes(const double* X);
    bool evaluate(const double* X);
    void differentiate(const callback& function, const callback& derivative, int components, const double* at_Y,
                       double* result);
    void form_jacobian(const double* X);
    double linear_entry(int R, int C) const;
    equation_status solve_linear(double* X);

    // step_newton.cpp
    bool residual_is_rounding() const;
    double residual_norm() const;
    equation_status newton(double* X);
    bool leaves_the_guess(const double* X) const;
    equation_status trace_step(double* X);
    equation_status advance_trace();
    equation_status solve_nonlinear(double* X);

    const quenta_equation& equation;
    const quenta_solution& solution;
    const collocation_nodes& nodes;
    const int D, P, n_sys;
    bool linear;

    double h = 0.0;
    double part = 1.0;            // the factor of what depends on X in T, and of h in Y; see trace_step
    std::vector<double> start;    // y_n
    std::vector<double> times;    // t_ni
    std::vector<double> constant; // what does not depend on X
    std::vector<double> matrix;   // I (first kind: 0) minus the linear terms, by rows
    std::vector<step_term> terms;
    std::vector<double> Y, f, f_derivative;  // f is 0 without f(t, y)
    std::vector<double> residual, magnitude; // magnitude: the sum of the magnitudes of what is added in the residual
    std::vector<double> jacobian_magnitude;  // what rounding X and Y changes in the residual, divided by eps
    std::vector<double> correction, trial;
    std::vector<double> by_Y, jacobian; // the derivatives of the right side by Y, and of the residual by X
    std::vector<double> guess;          // X at the start of the iteration
    std::vector<double> unit;           // of each component of X: the largest |Y|, over h if X is the derivative
    double feedback = 0.0;              // the norm of I minus the Jacobian in these units; not for the first kind
    std::vector<double> repeated_times, perturbed, perturbed_values; // finite differences
    scaled_system system;
    stable_matrix stability; // of a nonlinear equation
};

} // namespace quenta
