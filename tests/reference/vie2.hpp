// The scalar second-kind solver, once more: slow, obvious, and with the row as a list of nodes at run time. Every
// sample is read with at(), so that a read past the end is an exception.
#pragma once

#include "reference/dense_solve.hpp"
#include "reference/lagrange.hpp"
#include "reference/settings.hpp"
#include "reference/toeplitz_history.hpp"

#include <vector>

namespace reference {

struct vie2_solution {
    int steps = 0;
    bool solved = true;
    std::vector<double> out;
    std::vector<double> coefficients; // step n, power p at n * (P + 1) + p; the last slot of a step means nothing
};

inline vie2_solution solve_vie2(const std::vector<double>& g, const std::vector<double>& K, double dt,
                                const setting& row) {
    const int m = row.m, S = m * m, P = int(row.indices.size());
    const std::vector<int>& k = row.indices;
    const std::vector<double> c = row.nodes();
    const double h = dt * double(S);
    std::vector<std::vector<double>> lambda; // [l][p]: the coefficient of s^p of L_l
    std::vector<double> b;
    for (int l = 0; l < P; ++l) {
        lambda.push_back(lagrange_coefficients(c, l));
        b.push_back(quadrature_weight(lambda[l]));
    }

    vie2_solution solution;
    const int steps = (int(K.size()) - 1) / S;
    solution.steps = steps;
    solution.out.assign(K.size(), 0.0);
    solution.coefficients.assign(steps * (P + 1), 0.0);

    // The step matrix, row-major: A = 1 - h W.
    std::vector<double> A(P * P);
    for (int i = 0; i < P; ++i)
        for (int l = 0; l < P; ++l) {
            double W = 0.0;
            for (int q = 0; q < P; ++q)
                W = W + (K.at(k[i] * (m - k[q])) * (c[i] * b[q])) * basis_value(lambda[l], c[i] * c[q]);
            const double e = i == l ? 1.0 : 0.0;
            A[i * P + l] = e - h * W;
        }

    toeplitz_history history(steps, P, P);
    history.set_kernel_provider([&](int j, toeplitz_history& blocks) {
        for (int i = 0; i < P; ++i)
            for (int l = 0; l < P; ++l)
                blocks.kernel_at(j, i, l) = h * (b[l] * K.at(j * S + (k[i] - k[l]) * m));
    });
    std::vector<std::vector<double>> U;
    for (int n = 0; n < steps; ++n) {
        std::vector<double> rhs(P);
        for (int i = 0; i < P; ++i)
            rhs[i] = g.at(n * S + k[i] * m) + history.sum_at(n, i);
        std::vector<double> eliminated = A;
        std::vector<int> pivots(P);
        if (!solve_dense(matrix_order::row_major, P, eliminated, rhs, pivots)) {
            solution.solved = false;
            return solution;
        }
        U.push_back(rhs);
        history.push(rhs);
    }

    for (int n = 0; n < steps; ++n) {
        for (int p = 0; p < P; ++p) {
            double coefficient = 0.0;
            for (int l = 0; l < P; ++l)
                coefficient = coefficient + U[n][l] * lambda[l][p];
            solution.coefficients[n * (P + 1) + p] = coefficient;
        }
        for (int e = 0; e <= S; ++e) {
            double value = 0.0;
            for (int l = 0; l < P; ++l)
                value = value + U[n][l] * basis_value(lambda[l], double(e) / double(S));
            solution.out[n * S + e] = solution.out[n * S + e] + value;
        }
    }
    for (int j = 1; j < steps; ++j)
        solution.out[j * S] = solution.out[j * S] * 0.5;
    return solution;
}

} // namespace reference
