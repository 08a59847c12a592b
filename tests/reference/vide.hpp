// The integro-differential solver, once more: slow, obvious, and with the row and the dimension at run time. Every
// sample is read with at(), so that a read past the end is an exception.
//
// There are three bodies, for one equation, for a system of a dimension known early, and of one known late. They solve
// the same equations and round differently in three places.
#pragma once

#include "reference/dense_solve.hpp"
#include "reference/lagrange.hpp"
#include "reference/settings.hpp"
#include "reference/solution.hpp"
#include "reference/toeplitz_history.hpp"

#include <cmath>
#include <vector>

namespace reference {

enum class vide_body { scalar, fixed_dimension, any_dimension };

// An entry of the step matrix, e - h Ba - h^2 W.
inline double step_entry(vide_body body, double e, double W, double Ba, double h) {
    switch (body) {
    case vide_body::scalar:
        return e - (W * h + Ba) * h;
    case vide_body::fixed_dimension:
        return e - ((h * h) * W + h * Ba);
    case vide_body::any_dimension:
        return (e - h * Ba) - (h * h) * W;
    }
    return NAN;
}

// The coefficient of y(t_n) in the equation of node c; `sum` is that of the weighted kernel.
inline double start_coefficient(vide_body body, double a, double sum, double c, double h) {
    return body == vide_body::scalar ? a + (sum * c) * h : sum * (c * h) + a;
}

// What a step's polynomial adds to y(t_n) up to the step's end: at s = 1, or by the weight of the node.
inline double end_increment(vide_body body, double Z, double B_at_1, double b, double h) {
    return body == vide_body::scalar ? B_at_1 * (Z * h) : (h * Z) * b;
}

// The unknown of component r at node i, a value of y', has the number r * P + i.
inline solution solve_vide(vide_body body, const std::vector<double>& g, const std::vector<double>& K,
                           const std::vector<double>& a, int D, const std::vector<double>& y0, double dt,
                           const setting& row) {
    const int m = row.m, S = m * m, P = int(row.indices.size()), n_sys = P * D;
    const std::vector<int>& k = row.indices;
    const std::vector<double> c = row.nodes();
    const double h = dt * double(S);
    const auto matrix_at = [&](const std::vector<double>& samples, int x, int r, int s) {
        return samples.at(x * D * D + r * D + s);
    };

    // beta[j][q] is the coefficient of s^q of B_j(s), the integral of L_j from 0 to s; its values are those of any sum
    // of powers.
    std::vector<std::vector<double>> beta, B_at_node, B_at_product, B_at_sample;
    std::vector<double> b;
    for (int j = 0; j < P; ++j) {
        const std::vector<double> lambda = lagrange_coefficients(c, j);
        b.push_back(quadrature_weight(lambda));
        beta.push_back({0.0});
        for (int q = 1; q <= P; ++q)
            beta[j].push_back(lambda[q - 1] * (1.0 / double(q)));
        B_at_node.push_back(basis_values(beta[j], c));
        B_at_product.push_back(basis_values(beta[j], row.products_of_nodes()));
        B_at_sample.push_back(basis_values(beta[j], row.samples()));
    }

    const int steps = (int(K.size()) / (D * D) - 1) / S;
    solution result{.steps = steps,
                    .out = std::vector<double>(g.size()),
                    .coefficients = std::vector<double>(steps * (P + 1) * D),
                    .coefficients_of_a_step = (P + 1) * D,
                    .meaningful_of_a_step = (P + 1) * D};

    // What the present step has of the kernel: W for the unknowns, V for y(t_n); both row-major.
    std::vector<double> W(n_sys * n_sys), V(n_sys * D);
    for (int r = 0; r < D; ++r)
        for (int i = 0; i < P; ++i)
            for (int s = 0; s < D; ++s) {
                for (int j = 0; j < P; ++j) {
                    double sum = 0.0;
                    for (int l = 0; l < P; ++l)
                        sum =
                            sum + (matrix_at(K, k[i] * (m - k[l]), r, s) * (c[i] * b[l])) * B_at_product[j][i * P + l];
                    W[(r * P + i) * n_sys + s * P + j] = sum;
                }
                double sum = 0.0;
                for (int l = 0; l < P; ++l)
                    sum = sum + matrix_at(K, k[i] * (m - k[l]), r, s) * b[l];
                V[(r * P + i) * D + s] = sum;
            }

    // Columns: the unknowns of a step, then its y(t_n).
    toeplitz_history history(steps, n_sys, n_sys + D);
    history.set_kernel_provider([&](int d, toeplitz_history& blocks) {
        std::vector<double> x(P);
        for (int r = 0; r < D; ++r)
            for (int i = 0; i < P; ++i)
                for (int s = 0; s < D; ++s) {
                    for (int l = 0; l < P; ++l)
                        x[l] = matrix_at(K, d * S + (k[i] - k[l]) * m, r, s) * b[l];
                    for (int j = 0; j < P; ++j) {
                        double sum = 0.0;
                        for (int l = 0; l < P; ++l)
                            sum = sum + x[l] * B_at_node[j][l];
                        blocks.kernel_at(d, r * P + i, s * P + j) = (h * h) * sum;
                    }
                    double sum = 0.0;
                    for (int l = 0; l < P; ++l)
                        sum = sum + x[l];
                    blocks.kernel_at(d, r * P + i, n_sys + s) = h * sum;
                }
    });

    std::vector<std::vector<double>> Z, y{y0};
    for (int n = 0; n < steps; ++n) {
        std::vector<double> A(n_sys * n_sys), rhs(n_sys);
        for (int r = 0; r < D; ++r)
            for (int i = 0; i < P; ++i) {
                const int position = r * P + i, sample = n * S + k[i] * m;
                rhs[position] = g.at(sample * D + r) + history.sum_at(n, position);
                for (int s = 0; s < D; ++s) {
                    const double a_rs = matrix_at(a, sample, r, s);
                    for (int j = 0; j < P; ++j) {
                        const double e = r == s && i == j ? 1.0 : 0.0;
                        const double Bc = B_at_node[j][i] - B_at_sample[j][0];
                        const int entry = position * n_sys + s * P + j;
                        A[entry] = step_entry(body, e, W[entry], a_rs * Bc, h);
                    }
                    const double Ya = start_coefficient(body, a_rs, V[position * D + s], c[i], h);
                    rhs[position] = rhs[position] + Ya * y[n][s];
                }
            }
        std::vector<int> pivots(n_sys);
        if (!solve_dense(matrix_order::row_major, n_sys, A, rhs, pivots)) {
            result.solved = false;
            return result;
        }
        Z.push_back(rhs);
        std::vector<double> pushed = rhs;
        pushed.insert(pushed.end(), y[n].begin(), y[n].end());
        history.push(pushed);
        y.push_back(y[n]);
        for (int r = 0; r < D; ++r)
            for (int j = 0; j < P; ++j)
                y[n + 1][r] = y[n + 1][r] + end_increment(body, Z[n][r * P + j], B_at_sample[j][S], b[j], h);
    }

    for (int n = 0; n < steps; ++n)
        for (int r = 0; r < D; ++r) {
            for (int q = 0; q <= P; ++q) {
                double coefficient = q == 0 ? y[n][r] : 0.0;
                for (int j = 0; j < P; ++j)
                    coefficient = coefficient + (h * Z[n][r * P + j]) * beta[j][q];
                result.coefficients[(n * (P + 1) + q) * D + r] = coefficient;
            }
            for (int e = 0; e <= S; ++e) {
                double value = y[n][r];
                for (int j = 0; j < P; ++j)
                    value = value + B_at_sample[j][e] * (h * Z[n][r * P + j]);
                result.out[(n * S + e) * D + r] = result.out[(n * S + e) * D + r] + value;
            }
        }
    for (int n = 1; n < steps; ++n)
        for (int r = 0; r < D; ++r)
            result.out[n * S * D + r] = result.out[n * S * D + r] * 0.5;
    return result;
}

} // namespace reference
