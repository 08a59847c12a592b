// The reference implementation of the integro-differential solver: slow and obvious, with the collocation scheme and
// the dimension as run-time values. Samples are read with at(), so that a read past the end throws.
//
// The scalar solver and the solvers for systems, of a fixed dimension and of any dimension, solve the same equations.
// They round differently in three places.
#pragma once

#include "reference/dense_solve.hpp"
#include "reference/lagrange.hpp"
#include "reference/scheme.hpp"
#include "reference/settings.hpp"
#include "reference/solution.hpp"
#include "reference/toeplitz_history.hpp"

#include <cmath>
#include <vector>

namespace reference {

enum class vide_variant { scalar, fixed_dimension, any_dimension };

// An entry of the step matrix, identity - h Ba - h^2 W.
inline double step_entry(vide_variant variant, double identity, double W, double Ba, double h) {
    switch (variant) {
    case vide_variant::scalar:
        return identity - (W * h + Ba) * h;
    case vide_variant::fixed_dimension:
        return identity - ((h * h) * W + h * Ba);
    case vide_variant::any_dimension:
        return (identity - h * Ba) - (h * h) * W;
    }
    return NAN;
}

// The coefficient of y(t_n) in the equation of node c. `sum` is the weighted sum of the kernel.
inline double start_coefficient(vide_variant variant, double coefficient, double sum, double c, double h) {
    return variant == vide_variant::scalar ? coefficient + (sum * c) * h : sum * (c * h) + coefficient;
}

// The contribution of an unknown to y(t_n + h) - y(t_n): by its integral up to s = 1, or by the weight of its node.
inline double end_increment(vide_variant variant, double unknown, double integral_at_1, double weight, double h) {
    return variant == vide_variant::scalar ? integral_at_1 * (unknown * h) : (h * unknown) * weight;
}

class vide_solver : collocation_scheme {
public:
    vide_solver(vide_variant which, const std::vector<double>& forcing, const std::vector<double>& kernel,
                const std::vector<double>& matrices, int dimension, const std::vector<double>& initial_value, double dt,
                const setting& row)
        : collocation_scheme{row, dimension, dt, kernel.size()}, variant{which}, g{forcing}, K{kernel},
          coefficient{matrices}, B{initial_value} {
        for (int j = 0; j < P; ++j) {
            beta.push_back({0.0});
            for (int p = 1; p <= P; ++p)
                beta[j].push_back(lambda[j][p - 1] * (1.0 / double(p)));
            at_node.push_back(basis_values(beta[j], c));
            at_product.push_back(basis_values(beta[j], row.products_of_nodes()));
            at_sample.push_back(basis_values(beta[j], row.samples()));
        }
    }

    solution solve() {
        return assemble(march(), g.size(), (P + 1) * D, [this](int n, solution& result) { write_step(n, result); });
    }

private:
    // Fills W and V, the kernel of the current step for the unknowns and for y(t_n).
    void build_step_kernels() {
        W.resize(n_sys * n_sys);
        V.resize(n_sys * D);
        for (int a = 0; a < D; ++a)
            for (int i = 0; i < P; ++i)
                for (int b = 0; b < D; ++b) {
                    const int R = a * P + i;
                    for (int j = 0; j < P; ++j) {
                        double sum = 0.0;
                        for (int q = 0; q < P; ++q)
                            sum = sum + (matrix_at(K, k[i] * (m - k[q]), a, b) * (c[i] * weight[q])) *
                                            at_product[j][i * P + q];
                        W[R * n_sys + b * P + j] = sum;
                    }
                    double sum = 0.0;
                    for (int q = 0; q < P; ++q)
                        sum = sum + matrix_at(K, k[i] * (m - k[q]), a, b) * weight[q];
                    V[R * D + b] = sum;
                }
    }

    // The columns of a block belong to the unknowns of a step, then to its y(t_n).
    void write_lag_block(int d, toeplitz_history& history) const {
        std::vector<double> x(P);
        for (int a = 0; a < D; ++a)
            for (int i = 0; i < P; ++i)
                for (int b = 0; b < D; ++b) {
                    const int R = a * P + i;
                    for (int q = 0; q < P; ++q)
                        x[q] = matrix_at(K, d * S + (k[i] - k[q]) * m, a, b) * weight[q];
                    for (int j = 0; j < P; ++j) {
                        double sum = 0.0;
                        for (int q = 0; q < P; ++q)
                            sum = sum + x[q] * at_node[j][q];
                        history.kernel_at(d, R, b * P + j) = (h * h) * sum;
                    }
                    double sum = 0.0;
                    for (int q = 0; q < P; ++q)
                        sum = sum + x[q];
                    history.kernel_at(d, R, n_sys + b) = h * sum;
                }
    }

    // Fills the matrix A and the right-hand side of the system of step n.
    void build_system(int n, toeplitz_history& history, std::vector<double>& A, std::vector<double>& rhs) const {
        for (int a = 0; a < D; ++a)
            for (int i = 0; i < P; ++i) {
                const int R = a * P + i, sample = n * S + k[i] * m;
                rhs[R] = g.at(sample * D + a) + history.sum_at(n, R);
                for (int b = 0; b < D; ++b) {
                    const double coefficient_ab = matrix_at(coefficient, sample, a, b);
                    for (int j = 0; j < P; ++j) {
                        const int C = b * P + j;
                        const double integral = at_node[j][i] - at_sample[j][0];
                        A[R * n_sys + C] =
                            step_entry(variant, R == C ? 1.0 : 0.0, W[R * n_sys + C], coefficient_ab * integral, h);
                    }
                    const double of_start = start_coefficient(variant, coefficient_ab, V[R * D + b], c[i], h);
                    rhs[R] = rhs[R] + of_start * B[n][b];
                }
            }
    }

    std::vector<double> end_value(int n) const {
        std::vector<double> end = B[n];
        for (int a = 0; a < D; ++a)
            for (int j = 0; j < P; ++j)
                end[a] = end[a] + end_increment(variant, U[n][a * P + j], at_sample[j][S], weight[j], h);
        return end;
    }

    // Computes U[n] and B[n] of every step. Returns false if the matrix of a step is singular.
    bool march() {
        build_step_kernels();
        toeplitz_history history(steps, n_sys, n_sys + D);
        history.set_kernel_provider([this](int d, toeplitz_history& blocks) { write_lag_block(d, blocks); });
        for (int n = 0; n < steps; ++n) {
            std::vector<double> A(n_sys * n_sys), rhs(n_sys);
            build_system(n, history, A, rhs);
            std::vector<int> pivots(n_sys);
            if (!solve_dense(matrix_order::row_major, n_sys, A, rhs, pivots))
                return false;
            U.push_back(rhs);
            std::vector<double> pushed = rhs;
            pushed.insert(pushed.end(), B[n].begin(), B[n].end());
            history.push(pushed);
            B.push_back(end_value(n));
        }
        return true;
    }

    void write_step(int n, solution& result) const {
        for (int a = 0; a < D; ++a) {
            for (int p = 0; p <= P; ++p) {
                double sum = p == 0 ? B[n][a] : 0.0;
                for (int j = 0; j < P; ++j)
                    sum = sum + (h * U[n][a * P + j]) * beta[j][p];
                result.coefficients[(n * (P + 1) + p) * D + a] = sum;
            }
            for (int e = 0; e <= S; ++e) {
                double value = B[n][a];
                for (int j = 0; j < P; ++j)
                    value = value + at_sample[j][e] * (h * U[n][a * P + j]);
                result.out[(n * S + e) * D + a] = result.out[(n * S + e) * D + a] + value;
            }
        }
    }

    const vide_variant variant;
    const std::vector<double>&g, &K, &coefficient;

    // beta[j][p] is the coefficient of s^p of the integral of L_j from 0 to s, and the others are values of that
    // integral. They are evaluated as every polynomial is, also at s = 0.
    std::vector<std::vector<double>> beta, at_node, at_product, at_sample;

    std::vector<double> W, V;           // row-major
    std::vector<std::vector<double>> U; // U[n][a * P + i]: component a of y' at node i of step n
    std::vector<std::vector<double>> B; // B[n][a]: component a of y(t_n)
};

inline solution solve_vide(vide_variant variant, const std::vector<double>& g, const std::vector<double>& K,
                           const std::vector<double>& a, int D, const std::vector<double>& y0, double dt,
                           const setting& row) {
    return vide_solver{variant, g, K, a, D, y0, dt, row}.solve();
}

} // namespace reference
