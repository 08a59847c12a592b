// The reference implementation of the second-kind solver: slow and obvious, with the collocation scheme and the
// dimension as run-time values. Samples are read with at(), so that a read past the end throws.
#pragma once

#include "reference/dense_solve.hpp"
#include "reference/lagrange.hpp"
#include "reference/scheme.hpp"
#include "reference/settings.hpp"
#include "reference/solution.hpp"
#include "reference/toeplitz_history.hpp"

#include <vector>

namespace reference {

class vie2_solver : collocation_scheme {
public:
    vie2_solver(const std::vector<double>& forcing, const std::vector<double>& kernel, int dimension, double dt,
                const setting& row)
        : collocation_scheme{row, dimension, dt, kernel.size()}, g{forcing}, K{kernel} {
        for (const std::vector<double>& L : lambda) {
            L_at_product.push_back(basis_values(L, row.products_of_nodes()));
            L_at_sample.push_back(basis_values(L, row.samples()));
        }
    }

    solution solve() {
        return assemble(march(), g.size(), P * D, [this](int n, solution& result) { write_step(n, result); });
    }

private:
    // The matrix of every step, row-major: A = 1 - h W.
    std::vector<double> step_matrix() const {
        std::vector<double> A(n_sys * n_sys);
        for (int a = 0; a < D; ++a)
            for (int i = 0; i < P; ++i)
                for (int b = 0; b < D; ++b)
                    for (int j = 0; j < P; ++j) {
                        const int R = a * P + i, C = b * P + j;
                        double W = 0.0;
                        for (int q = 0; q < P; ++q)
                            W = W + (matrix_at(K, k[i] * (m - k[q]), a, b) * (c[i] * weight[q])) *
                                        L_at_product[j][i * P + q];
                        A[R * n_sys + C] = (R == C ? 1.0 : 0.0) - h * W;
                    }
        return A;
    }

    void write_lag_block(int d, toeplitz_history& history) const {
        for (int a = 0; a < D; ++a)
            for (int i = 0; i < P; ++i)
                for (int b = 0; b < D; ++b)
                    for (int j = 0; j < P; ++j)
                        history.kernel_at(d, a * P + i, b * P + j) =
                            h * (weight[j] * matrix_at(K, d * S + (k[i] - k[j]) * m, a, b));
    }

    // Computes U[n] of every step. Returns false if the matrix is singular.
    bool march() {
        const std::vector<double> A = step_matrix();
        toeplitz_history history(steps, n_sys, n_sys);
        history.set_kernel_provider([this](int d, toeplitz_history& blocks) { write_lag_block(d, blocks); });
        for (int n = 0; n < steps; ++n) {
            std::vector<double> rhs(n_sys);
            for (int a = 0; a < D; ++a)
                for (int i = 0; i < P; ++i)
                    rhs[a * P + i] = g.at((n * S + k[i] * m) * D + a) + history.sum_at(n, a * P + i);
            std::vector<double> eliminated = A;
            std::vector<int> pivots(n_sys);
            if (!solve_dense(matrix_order::row_major, n_sys, eliminated, rhs, pivots))
                return false;
            U.push_back(rhs);
            history.push(rhs);
        }
        return true;
    }

    void write_step(int n, solution& result) const {
        for (int a = 0; a < D; ++a) {
            for (int p = 0; p < P; ++p) {
                double coefficient = 0.0;
                for (int j = 0; j < P; ++j)
                    coefficient = coefficient + U[n][a * P + j] * lambda[j][p];
                result.coefficients[(n * (P + 1) + p) * D + a] = coefficient;
            }
            for (int e = 0; e <= S; ++e) {
                double value = 0.0;
                for (int j = 0; j < P; ++j)
                    value = value + U[n][a * P + j] * L_at_sample[j][e];
                result.out[(n * S + e) * D + a] = result.out[(n * S + e) * D + a] + value;
            }
        }
    }

    const std::vector<double>&g, &K;
    std::vector<std::vector<double>> L_at_product, L_at_sample;
    std::vector<std::vector<double>> U; // U[n][a * P + i]: component a of the solution at node i of step n
};

inline solution solve_vie2(const std::vector<double>& g, const std::vector<double>& K, int D, double dt,
                           const setting& row) {
    return vie2_solver{g, K, D, dt, row}.solve();
}

} // namespace reference
