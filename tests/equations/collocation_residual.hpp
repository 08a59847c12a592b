// The collocation equations of a polynomial equation at a given solution, by plain loops. Every sum comes with the sum
// of the magnitudes of what was added, by which its rounding errors are measured.
//
// With the nodes c_i, t_ni = t_n + c_i h_n, the polynomials L_j, and B_j their integrals from 0:
//
//     M_ni = sum over steps k < n and nodes j of   W_nikj K(t_ni, t_kj) phi(t_kj, Y_kj)
//          + sum over points q of                  w_iq K(t_ni, t_n + c_i c_q h_n) phi at this point
//
// where W_nikj is the integral of (t_ni - s)^-alpha L_j over step k and w_iq that of (t_ni - s)^-alpha L_q, scaled to
// the part of step n before t_ni. Without a singularity they are h_k B_j(1) and h_n c_i B_q(1). Further,
//
// phi at a point is interpolated from the nodes or, if phi(s, y) = y, the polynomial of y itself is evaluated.
#pragma once

#include "equations/polynomial_equation.hpp"
#include "quenta_equations/solution.hpp"
#include "reference/singular_integrals.hpp"

#include <array>
#include <cmath>
#include <cstddef>
#include <map>
#include <utility>
#include <vector>

namespace quenta_tests {

struct sum_of_terms {
    double value = 0.0, magnitude = 0.0;

    void add(double factor, double term) {
        value += factor * term;
        magnitude += std::fabs(factor * term);
    }
    void add(double factor, const sum_of_terms& term) {
        value += factor * term.value;
        magnitude += std::fabs(factor) * term.magnitude;
    }
};

class collocation_residual {
public:
    collocation_residual(const polynomial_equation& of, const quenta_solution& at)
        : equation{of}, shape{of.shape}, solution{at}, P{at.nodes.P}, D{of.shape.D} {
        for (int j = 0; j < P; ++j) {
            b.push_back(integral(j, 1.0));
            coefficients.push_back(coefficients_of(j));
        }
        phi.resize(shape.terms.size());
        for (std::size_t r = 0; r < phi.size(); ++r)
            for (int k = 0; k < solution.steps; ++k)
                for (int j = 0; j < P; ++j)
                    add_phi(r, k, j);
    }

    // The residual of component a at node i of step n.
    sum_of_terms at(int n, int i, int a) const {
        const double t = solution.node_time(n, i);
        const std::vector<double> Y = values_at_node(n, i);
        sum_of_terms sum = memory(n, i, a);
        if (shape.kind == '1')
            sum.add(-1.0, polynomial(equation.right_side(), a, t, 0.0, nullptr));
        else {
            if (shape.kind == '2' || shape.has_right_side)
                sum.add(1.0, polynomial(equation.right_side(), a, t, 0.0, shape.kind == 'D' ? Y.data() : nullptr));
            sum.add(-1.0, unknown(n, i, a));
        }
        return sum;
    }

private:
    double unknown(int n, int i, int a) const { return solution.unknowns[std::size_t((n * P + i) * D + a)]; }

    double basis(int j, double x) const {
        double product = 1.0;
        for (int k = 0; k < P; ++k)
            if (k != j)
                product *= (x - solution.nodes.c[std::size_t(k)]) /
                           (solution.nodes.c[std::size_t(j)] - solution.nodes.c[std::size_t(k)]);
        return product;
    }
    // By the rule of Boole, which is exact for the degree 4.
    double integral(int j, double x) const {
        return x / 90.0 *
               (7.0 * basis(j, 0.0) + 32.0 * basis(j, x / 4.0) + 12.0 * basis(j, x / 2.0) +
                32.0 * basis(j, 3.0 * x / 4.0) + 7.0 * basis(j, x));
    }

    std::vector<long double> coefficients_of(int j) const {
        std::vector<long double> a{1.0L};
        for (int k = 0; k < P; ++k) {
            if (k == j)
                continue;
            const long double c_j = solution.nodes.c[std::size_t(j)], c_k = solution.nodes.c[std::size_t(k)];
            a.push_back(0.0L);
            for (std::size_t p = a.size(); p-- > 0;)
                a[p] = ((p > 0 ? a[p - 1] : 0.0L) - c_k * a[p]) / (c_j - c_k);
        }
        return a;
    }
    // W_j of an interval of length h that ends `distance` before t.
    double weight(const term_shape& term, int j, double distance, double h) const {
        if (term.alpha == 0.0)
            return h * b[std::size_t(j)];
        if (h == 0.0)
            return 0.0;
        const auto [place, is_new] = known_weights.try_emplace({term.alpha, double(j), distance, h});
        if (is_new) {
            const long double alpha = term.alpha, d = static_cast<long double>(distance) / h;
            place->second = double(std::pow(static_cast<long double>(h), 1.0L - alpha) *
                                   reference::singular_integral(alpha, d, coefficients[std::size_t(j)]));
        }
        return place->second;
    }

    // Component a of y at t_n + x h_n, and at a node.
    sum_of_terms y(int n, double x, int a) const {
        sum_of_terms sum;
        if (shape.kind == 'D')
            sum.add(1.0, solution.y[std::size_t(n * D + a)]);
        for (int j = 0; j < P; ++j)
            sum.add(shape.kind == 'D' ? solution.step_length(n) * integral(j, x) : basis(j, x), unknown(n, j, a));
        return sum;
    }
    std::vector<double> values_at_node(int n, int i) const {
        std::vector<double> Y;
        for (int a = 0; a < D; ++a)
            Y.push_back(shape.kind == 'D' ? y(n, solution.nodes.c[std::size_t(i)], a).value : unknown(n, i, a));
        return Y;
    }

    static sum_of_terms polynomial(const polynomials& of, int row, double t, double s, const double* y) {
        sum_of_terms sum;
        sum.add(1.0, of.of(row, 0));
        sum.add(t, of.of(row, 1));
        sum.add(s, of.of(row, 2));
        sum.add(t * s, of.of(row, 3));
        if (y == nullptr)
            return sum;
        for (int component = 0; component < of.D; ++component)
            sum.add(of.of(row, 4 + component), y[component]);
        sum.add(of.of(row, 4 + of.D) * y[row % of.D], y[row % of.D]);
        return sum;
    }

    void add_phi(std::size_t r, int k, int j) {
        const std::vector<double> Y = values_at_node(k, j);
        for (int e = 0; e < shape.terms[r].E; ++e) {
            sum_of_terms value;
            if (shape.terms[r].has_phi)
                value = polynomial(equation.terms[r].phi, e, solution.node_time(k, j), 0.0, Y.data());
            else
                value.add(1.0, Y[std::size_t(e)]);
            phi[r].push_back(value);
        }
    }
    const sum_of_terms& phi_at_node(std::size_t r, int k, int j, int e) const {
        return phi[r][std::size_t((k * P + j) * shape.terms[r].E + e)];
    }
    // At t_n + x h_n.
    sum_of_terms phi_in_step(std::size_t r, int n, double x, int e) const {
        if (!shape.terms[r].has_phi)
            return y(n, x, e);
        sum_of_terms sum;
        for (int j = 0; j < P; ++j)
            sum.add(basis(j, x), phi_at_node(r, n, j, e));
        return sum;
    }

    sum_of_terms memory(int n, int i, int a) const {
        const double t = solution.node_time(n, i), c = solution.nodes.c[std::size_t(i)], h = solution.step_length(n);
        sum_of_terms sum;
        for (std::size_t r = 0; r < shape.terms.size(); ++r)
            for (int e = 0; e < shape.terms[r].E; ++e) {
                // `lag` is t - s, which loses digits where s is close to t.
                const auto add = [&](double weight, double s, double lag, const sum_of_terms& at_s) {
                    const bool of_lag = shape.terms[r].of_lag;
                    const sum_of_terms kernel = polynomial(equation.terms[r].kernel, a * shape.terms[r].E + e,
                                                           of_lag ? lag : t, of_lag ? 0.0 : s, nullptr);
                    sum.value += weight * kernel.value * at_s.value;
                    sum.magnitude += std::fabs(weight) * kernel.magnitude * at_s.magnitude;
                };
                for (int k = 0; k < n; ++k)
                    for (int j = 0; j < P; ++j)
                        add(weight(shape.terms[r], j,
                                   solution.mesh[std::size_t(n)] - solution.mesh[std::size_t(k + 1)] + c * h,
                                   solution.step_length(k)),
                            solution.node_time(k, j), t - solution.node_time(k, j), phi_at_node(r, k, j, e));
                for (int q = 0; q < P; ++q) {
                    const double c_q = solution.nodes.c[std::size_t(q)];
                    add(weight(shape.terms[r], q, 0.0, h * c), solution.mesh[std::size_t(n)] + c * c_q * h,
                        c * (1.0 - c_q) * h, phi_in_step(r, n, c * c_q, e));
                }
            }
        return sum;
    }

    const polynomial_equation& equation;
    const equation_shape& shape;
    const quenta_solution& solution;
    const int P, D;
    std::vector<double> b;                                         // B_j(1)
    std::vector<std::vector<long double>> coefficients;            // of L_j
    mutable std::map<std::array<double, 4>, double> known_weights; // by alpha, j, distance and h
    std::vector<std::vector<sum_of_terms>> phi; // of term r, component e at node j of step k: (k*P + j)*E + e
};

// Expects that all equations of each solved step are satisfied, compared with the largest magnitude in the step.
inline void expect_collocation_equations(const polynomial_equation& equation, const quenta_solution& solution,
                                         double tolerance) {
    const collocation_residual residual{equation, solution};
    for (int n = 0; n < solution.steps; ++n) {
        double largest = 0.0, magnitude = 0.0;
        for (int i = 0; i < solution.nodes.P; ++i)
            for (int a = 0; a < solution.D; ++a) {
                const sum_of_terms sum = residual.at(n, i, a);
                // Also finds NaN.
                largest = std::fabs(sum.value) <= largest ? largest : std::fabs(sum.value);
                magnitude = std::max(magnitude, sum.magnitude);
            }
        // The smallest normal number: products may underflow.
        EXPECT_LE(largest, tolerance * magnitude + 0x1p-1022)
            << "step " << n << " of " << solution.steps << ", P = " << solution.nodes.P << ", "
            << testing::PrintToString(equation.shape);
    }
}

} // namespace quenta_tests
