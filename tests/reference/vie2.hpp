// The second-kind solver, once more: slow, obvious, and with the row and the dimension at run time. Every sample is
// read with at(), so that a read past the end is an exception.
#pragma once

#include "reference/dense_solve.hpp"
#include "reference/lagrange.hpp"
#include "reference/settings.hpp"
#include "reference/solution.hpp"
#include "reference/toeplitz_history.hpp"

#include <vector>

namespace reference {

// The unknown of component r at node i has the number r * P + i.
inline solution solve_vie2(const std::vector<double>& g, const std::vector<double>& K, int D, double dt,
                           const setting& row) {
    const int m = row.m, S = m * m, P = int(row.indices.size()), n_sys = P * D;
    const std::vector<int>& k = row.indices;
    const std::vector<double> c = row.nodes();
    const double h = dt * double(S);
    const auto K_at = [&](int x, int r, int s) {
        return K.at(x * D * D + r * D + s);
    };
    // lambda[l][p] is the coefficient of s^p of L_l.
    std::vector<std::vector<double>> lambda, L_at_product, L_at_sample;
    std::vector<double> b;
    for (int l = 0; l < P; ++l) {
        lambda.push_back(lagrange_coefficients(c, l));
        L_at_product.push_back(basis_values(lambda[l], row.products_of_nodes()));
        L_at_sample.push_back(basis_values(lambda[l], row.samples()));
        b.push_back(quadrature_weight(lambda[l]));
    }

    const int steps = (int(K.size()) / (D * D) - 1) / S;
    solution result{.steps = steps,
                    .out = std::vector<double>(g.size()),
                    .coefficients = std::vector<double>(steps * (P + 1) * D),
                    .coefficients_of_a_step = (P + 1) * D,
                    .meaningful_of_a_step = P * D};

    // The step matrix, row-major: A = 1 - h W.
    std::vector<double> A(n_sys * n_sys);
    for (int r = 0; r < D; ++r)
        for (int i = 0; i < P; ++i)
            for (int s = 0; s < D; ++s)
                for (int l = 0; l < P; ++l) {
                    double W = 0.0;
                    for (int q = 0; q < P; ++q)
                        W = W + (K_at(k[i] * (m - k[q]), r, s) * (c[i] * b[q])) * L_at_product[l][i * P + q];
                    const double e = r == s && i == l ? 1.0 : 0.0;
                    A[(r * P + i) * n_sys + s * P + l] = e - h * W;
                }

    toeplitz_history history(steps, n_sys, n_sys);
    history.set_kernel_provider([&](int j, toeplitz_history& blocks) {
        for (int r = 0; r < D; ++r)
            for (int i = 0; i < P; ++i)
                for (int s = 0; s < D; ++s)
                    for (int l = 0; l < P; ++l)
                        blocks.kernel_at(j, r * P + i, s * P + l) = h * (b[l] * K_at(j * S + (k[i] - k[l]) * m, r, s));
    });
    std::vector<std::vector<double>> U;
    for (int n = 0; n < steps; ++n) {
        std::vector<double> rhs(n_sys);
        for (int r = 0; r < D; ++r)
            for (int i = 0; i < P; ++i)
                rhs[r * P + i] = g.at((n * S + k[i] * m) * D + r) + history.sum_at(n, r * P + i);
        std::vector<double> eliminated = A;
        std::vector<int> pivots(n_sys);
        if (!solve_dense(matrix_order::row_major, n_sys, eliminated, rhs, pivots)) {
            result.solved = false;
            return result;
        }
        U.push_back(rhs);
        history.push(rhs);
    }

    for (int n = 0; n < steps; ++n)
        for (int r = 0; r < D; ++r) {
            for (int p = 0; p < P; ++p) {
                double coefficient = 0.0;
                for (int l = 0; l < P; ++l)
                    coefficient = coefficient + U[n][r * P + l] * lambda[l][p];
                result.coefficients[(n * (P + 1) + p) * D + r] = coefficient;
            }
            for (int e = 0; e <= S; ++e) {
                double value = 0.0;
                for (int l = 0; l < P; ++l)
                    value = value + U[n][r * P + l] * L_at_sample[l][e];
                result.out[(n * S + e) * D + r] = result.out[(n * S + e) * D + r] + value;
            }
        }
    for (int j = 1; j < steps; ++j)
        for (int r = 0; r < D; ++r)
            result.out[j * S * D + r] = result.out[j * S * D + r] * 0.5;
    return result;
}

} // namespace reference
