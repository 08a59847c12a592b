// The equations of one step, and their solution by Newton's method.
//
// The unknowns X of step n are the values at the nodes, or those of the derivative; Y are the values at the nodes. With
// the sums Q of the steps before, the equations are
//
//     e X_i = f_i + Q_i + (sum over terms r, nodes j of A_r,ij phi_r(t_nj, Y_j)),     Y = X,
//
// where f_i = g(t_ni) and e = 1 (second kind), or f_i = -g(t_ni) and e = 0 (first kind: the sum is subtracted from g),
// and for an integro-differential equation
//
//     X_i = f(t_ni, Y_i) + Q_i + (the same sum),     Y_i = y_n + h sum over j of B_j(c_i) X_j.
//
// The memory of the step itself uses the points t_n + c_i c_q h, so that no kernel is evaluated at s > t:
//
//     A_r,ij = sum over q of  h c_i b_q K_r(t_ni, t_n + c_i c_q h) L_j(c_i c_q)
//
// (Brunner 2004, sections 2.2, 2.3 and 3.2: collocation with phi interpolated at the nodes). Where phi(s, y) = y, the
// polynomial of y itself is evaluated at these points, which is the same unless y has the degree P.
//
// Nonlinear equations can have several solutions. The one that is meant tends to f_i + Q_i for short steps.
#pragma once

#include "quenta_equations/direct_history.hpp"
#include "quenta_equations/equation.hpp"
#include "quenta_equations/scaled_system.hpp"
#include "quenta_equations/solution.hpp"
#include "quenta_equations/stable_matrix.hpp"

#include <cstdint>
#include <vector>

namespace quenta {

class step_equations {
public:
    step_equations(const quenta_equation& equation, const quenta_solution& solution);

    // Prepares step n: Q are the sums of the steps before, and g the forcing at the nodes, both P*D doubles at i*D + a.
    // g is null for an integro-differential equation. y is y_n.
    void prepare(std::int64_t n, direct_history& history, const double* Q, const double* g, const double* y);

    // Replaces X, where the iteration starts, by the solution. Another status than `solved` says why there is none.
    equation_status solve(double* X);

    // After solve: phi_r at the nodes, E doubles for each node.
    const double* phi_at_nodes(std::size_t r) const { return terms[r].phi.data(); }
    // f(t_ni, y) at the nodes, where the iteration of an integro-differential equation may start.
    void right_side_at(const double* y, double* values);

private:
    struct step_term {
        std::vector<double> A;          // P*D rows and P*E columns, by rows; empty if phi(s, y) = y
        std::vector<double> phi;        // at the nodes: j*E + c
        std::vector<double> derivative; // d phi / dy: (j*E + c)*D + b
    };

    void assemble_linear(const double* kernel, int i, const double* y);
    void assemble_nonlinear(const memory_term& term, step_term& step, const double* kernel, int i);
    void values_at_nodes(const double* X);
    bool evaluate(const double* X);
    void differentiate(const callback& function, const callback& derivative, int components, const double* at_Y,
                       double* result);
    void form_jacobian(const double* X);
    static bool all_finite(const std::vector<double>& values);
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
    double part = 1.0;            // of the step's own memory and of f, see trace_step
    std::vector<double> start;    // y_n
    std::vector<double> times;    // t_ni
    std::vector<double> constant; // what does not depend on X
    std::vector<double> matrix;   // e I minus the linear terms, by rows
    std::vector<step_term> terms;
    std::vector<double> Y, f, f_derivative;
    std::vector<double> residual, magnitude; // of the terms that are added in the residual
    std::vector<double> jacobian_magnitude;  // what rounding X and Y changes, divided by eps
    std::vector<double> correction, trial, by_Y, jacobian;
    std::vector<double> guess;
    std::vector<double> unit; // of each component of X: the largest |Y|, over h if X is the derivative
    double feedback = 0.0;    // the norm of the Jacobian without e I in these units
    std::vector<double> repeated_times, perturbed, perturbed_values; // finite differences
    scaled_system system;
    stable_matrix stability; // of a nonlinear equation
};

} // namespace quenta
