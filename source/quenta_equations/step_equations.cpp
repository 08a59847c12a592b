#include "quenta_equations/step_equations.hpp"

#include "quenta_equations/finite.hpp"
#include "quenta_solvers/dense_solve.hpp" // eps

#include <algorithm>
#include <cmath>

namespace quenta {

step_equations::step_equations(const quenta_equation& of, const quenta_solution& into)
    : equation{of}, solution{into}, nodes{into.nodes}, D{of.D}, P{into.nodes.P}, n_sys{P * D},
      linear{!(of.solves_for_derivative() && of.forcing)}, start(D), times(P), constant(n_sys),
      matrix(std::int64_t{n_sys} * n_sys), terms(of.memory.size()), Y(n_sys), f(n_sys), residual(n_sys),
      magnitude(n_sys), jacobian_magnitude(n_sys), correction(n_sys), trial(n_sys), guess(n_sys),
      unit(D), system{n_sys}, stability{0} {
    std::int64_t widest = of.solves_for_derivative() ? D : 0;
    for (std::size_t r = 0; r < terms.size(); ++r) {
        const std::int64_t E = of.memory[r].E;
        terms[r].phi.resize(P * E);
        if (of.memory[r].is_linear())
            continue;
        linear = false;
        widest = std::max(widest, E);
        terms[r].A.resize(n_sys * P * E);
        terms[r].derivative.resize(P * E * D);
    }
    if (linear)
        return;
    stability = stable_matrix{n_sys};
    by_Y.resize(matrix.size());
    jacobian.resize(matrix.size());
    f_derivative.resize(std::int64_t{P} * D * D);
    repeated_times.resize(n_sys);
    perturbed.resize(std::int64_t{n_sys} * D);
    perturbed_values.resize(n_sys * widest);
}

void step_equations::prepare(std::int64_t n, memory_history& history, const double* Q, const double* g,
                             const double* y) {
    h = solution.step_length(n);
    std::copy_n(y, D, start.data());
    const bool first_kind = equation.kind == equation_kind::first;
    solution.node_times(n, 1, times.data());
    for (int R = 0; R < n_sys; ++R)
        constant[R] = g == nullptr ? Q[R] : first_kind ? Q[R] - g[R] : Q[R] + g[R];
    std::fill(matrix.begin(), matrix.end(), 0.0);
    if (!first_kind)
        for (std::int64_t R = 0; R < n_sys; ++R)
            matrix[R * n_sys + R] = 1.0;
    for (std::size_t r = 0; r < terms.size(); ++r) {
        const memory_term& term = equation.memory[r];
        std::fill(terms[r].A.begin(), terms[r].A.end(), 0.0);
        for (int i = 0; i < P; ++i) {
            const double* const kernel = history.current_kernel(n, r, i);
            const per_node<double> weights = history.current_weights(n, r, i);
            if (term.is_linear())
                assemble_linear(kernel, weights, i, y);
            else
                assemble_nonlinear(term, terms[r], kernel, weights, i);
        }
    }
}

// Subtracts a linear term from the rows of node i of the matrix. `kernel` holds the values at the points of node i. For
// an integro-differential equation the part of y_n does not depend on X.
void step_equations::assemble_linear(const double* kernel, const per_node<double>& weights, int i, const double* y) {
    const bool integrated = equation.solves_for_derivative();
    for (int q = 0; q < P; ++q) {
        const double weight = weights[q];
        const auto& basis = integrated ? nodes.integral_at_point[i][q] : nodes.at_point[i][q];
        const double factor = integrated ? h * weight : weight;
        for (int a = 0; a < D; ++a) {
            const int R = i * D + a;
            double* const row = matrix.data() + std::int64_t{R} * n_sys;
            for (int b = 0; b < D; ++b) {
                const double K = *kernel++;
                if (integrated)
                    constant[R] += weight * K * y[b];
                for (int j = 0; j < P; ++j)
                    row[j * D + b] -= factor * K * basis[j];
            }
        }
    }
}

// Computes the rows of node i of A.
void step_equations::assemble_nonlinear(const memory_term& term, step_term& step, const double* kernel,
                                        const per_node<double>& weights, int i) {
    const int E = term.E;
    for (int q = 0; q < P; ++q) {
        const double weight = weights[q];
        for (int a = 0; a < D; ++a) {
            double* const row = step.A.data() + std::int64_t{i * D + a} * P * E;
            for (int c = 0; c < E; ++c) {
                const double K = *kernel++;
                for (int j = 0; j < P; ++j)
                    row[j * E + c] += weight * K * nodes.at_point[i][q][j];
            }
        }
    }
}

void step_equations::values_at_nodes(const double* X) {
    if (!equation.solves_for_derivative()) {
        std::copy_n(X, n_sys, Y.data());
        return;
    }
    for (int i = 0; i < P; ++i)
        for (int a = 0; a < D; ++a) {
            double sum = 0.0;
            for (int j = 0; j < P; ++j)
                sum += nodes.integral[i][j] * X[j * D + a];
            Y[i * D + a] = start[a] + part * h * sum;
        }
}

void step_equations::right_side_at(const double* y, double* result) {
    std::fill_n(result, n_sys, 0.0);
    if (!equation.forcing)
        return;
    for (int i = 0; i < P; ++i)
        std::copy_n(y, D, Y.data() + i * D);
    equation.forcing(P, times.data(), Y.data(), result);
}

// I minus `part` of the linear terms. (For the first kind `part` is always 1.)
double step_equations::linear_entry(int R, int C) const {
    const double entry = matrix[std::int64_t{R} * n_sys + C];
    return part == 1.0 ? entry : part * entry + (R == C ? 1.0 - part : 0.0);
}

// The residual, and the sum of the magnitudes of what was added in it. False: it is not finite.
bool step_equations::evaluate(const double* X) {
    values_at_nodes(X);
    if (equation.solves_for_derivative() && equation.forcing)
        equation.forcing(P, times.data(), Y.data(), f.data());
    for (std::size_t r = 0; r < terms.size(); ++r)
        if (!equation.memory[r].is_linear())
            equation.memory[r].phi(P, times.data(), Y.data(), terms[r].phi.data());

    for (int R = 0; R < n_sys; ++R) {
        double sum = -constant[R] - f[R], size = std::fabs(constant[R]) + std::fabs(f[R]);
        const auto add = [&](double product) {
            sum += product;
            size += std::fabs(product);
        };
        for (int C = 0; C < n_sys; ++C)
            add(linear_entry(R, C) * X[C]);
        for (std::size_t r = 0; r < terms.size(); ++r) {
            if (equation.memory[r].is_linear())
                continue;
            const std::int64_t columns = std::int64_t{P} * equation.memory[r].E;
            for (std::int64_t C = 0; C < columns; ++C)
                add(-(part * terms[r].A[R * columns + C] * terms[r].phi[C]));
        }
        residual[R] = sum;
        magnitude[R] = size;
    }
    return are_finite(residual);
}

// The derivatives by y, at the nodes, of a function with `components` components: from the caller's function or,
// without one, from differences with the values `at_Y`.
void step_equations::differentiate(const callback& function, const callback& derivative, int components,
                                   const double* at_Y, double* result) {
    if (derivative) {
        derivative(P, times.data(), Y.data(), result);
        return;
    }
    // With this distance a difference has half the digits of the function, the most that a one-sided one can have.
    const double root_eps = std::sqrt(eps);
    for (int b = 0; b < D; ++b) {
        double size = 0.0;
        for (int j = 0; j < P; ++j)
            size = std::max(size, std::fabs(Y[j * D + b]));
        for (int j = 0; j < P; ++j) {
            double* const point = perturbed.data() + (std::int64_t{b} * P + j) * D;
            std::copy_n(Y.data() + j * D, D, point);
            point[b] += root_eps * (size > 0.0 ? size : 1.0);
            repeated_times[b * P + j] = times[j];
        }
    }
    function(n_sys, repeated_times.data(), perturbed.data(), perturbed_values.data());
    for (int b = 0; b < D; ++b)
        for (int j = 0; j < P; ++j) {
            const double distance = perturbed[(std::int64_t{b} * P + j) * D + b] - Y[j * D + b];
            for (int c = 0; c < components; ++c)
                result[(std::int64_t{j} * components + c) * D + b] =
                    (perturbed_values[(std::int64_t{b} * P + j) * components + c] - at_Y[j * components + c]) /
                    distance;
        }
}

// Writes the derivatives of the residual into the system. First by Y, then by X with dY_i / dX_j = h B_j(c_i) or
// (i == j). Also computes the magnitudes and the feedback that belong to them.
void step_equations::form_jacobian(const double* X) {
    std::fill(by_Y.begin(), by_Y.end(), 0.0);
    if (equation.solves_for_derivative() && equation.forcing) {
        differentiate(equation.forcing, equation.jacobian, D, f.data(), f_derivative.data());
        for (int i = 0; i < P; ++i)
            for (int a = 0; a < D; ++a)
                for (int b = 0; b < D; ++b)
                    by_Y[std::int64_t{i * D + a} * n_sys + i * D + b] +=
                        f_derivative[(std::int64_t{i} * D + a) * D + b];
    }
    for (std::size_t r = 0; r < terms.size(); ++r) {
        const memory_term& term = equation.memory[r];
        if (term.is_linear())
            continue;
        step_term& step = terms[r];
        differentiate(term.phi, term.derivative, term.E, step.phi.data(), step.derivative.data());
        for (int R = 0; R < n_sys; ++R)
            for (int j = 0; j < P; ++j)
                for (int c = 0; c < term.E; ++c) {
                    const double A = part * step.A[(std::int64_t{R} * P + j) * term.E + c];
                    const double* const slope = step.derivative.data() + (std::int64_t{j} * term.E + c) * D;
                    for (int b = 0; b < D; ++b)
                        by_Y[std::int64_t{R} * n_sys + j * D + b] += A * slope[b];
                }
    }
    const double time_unit = equation.solves_for_derivative() ? h : 1.0;
    std::fill(unit.begin(), unit.end(), 0.0);
    for (int R = 0; R < n_sys; ++R)
        unit[R % D] = std::max(unit[R % D], std::fabs(Y[R]) / time_unit);
    feedback = 0.0;
    for (int R = 0; R < n_sys; ++R) {
        double size = 0.0, response = 0.0;
        for (int j = 0; j < P; ++j)
            for (int b = 0; b < D; ++b) {
                const int C = j * D + b;
                double entry = linear_entry(R, C);
                if (equation.solves_for_derivative())
                    for (int i = 0; i < P; ++i)
                        entry -= by_Y[std::int64_t{R} * n_sys + i * D + b] * (part * h * nodes.integral[i][j]);
                else
                    entry -= by_Y[std::int64_t{R} * n_sys + C];
                system.at(R, C) = jacobian[std::int64_t{R} * n_sys + C] = entry;
                size += std::fabs(entry * X[C]);
                response += std::fabs((R == C ? 1.0 - entry : entry) * unit[b]);
            }
        if (equation.solves_for_derivative())
            for (int C = 0; C < n_sys; ++C)
                size += std::fabs(by_Y[std::int64_t{R} * n_sys + C] * Y[C]);
        jacobian_magnitude[R] = size;
        feedback = std::max(feedback, response > 0.0 ? response / unit[R % D] : 0.0);
    }
}

// Without a nonlinear term the equations are a linear system.
equation_status step_equations::solve_linear(double* X) {
    for (int R = 0; R < n_sys; ++R)
        for (int C = 0; C < n_sys; ++C)
            system.at(R, C) = matrix[std::int64_t{R} * n_sys + C];
    if (!system.eliminate())
        return equation_status::singular_step;
    std::copy(constant.begin(), constant.end(), X);
    system.solve(X);
    for (bool is_corrected = false;; is_corrected = true) {
        if (!evaluate(X))
            return equation_status::not_finite;
        if (residual_is_rounding())
            return equation_status::solved;
        if (is_corrected)
            return equation_status::singular_step;
        correction = residual; // the elimination of an ill-conditioned matrix may need one more round
        system.solve(correction.data());
        for (int R = 0; R < n_sys; ++R)
            X[R] -= correction[R];
    }
}

equation_status step_equations::solve(double* X) {
    if (!are_finite(constant) || !are_finite(matrix))
        return equation_status::not_finite;
    for (const step_term& term : terms)
        if (!are_finite(term.A))
            return equation_status::not_finite;
    const equation_status status = linear ? solve_linear(X) : solve_nonlinear(X);
    for (std::size_t r = 0; r < terms.size(); ++r)
        if (equation.memory[r].is_linear())
            std::copy_n(Y.data(), n_sys, terms[r].phi.data());
    return status;
}

} // namespace quenta
