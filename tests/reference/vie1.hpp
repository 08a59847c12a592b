// The first-kind solver, once more: slow, obvious, with the row, the dimension and the form at run time. Every sample
// is read with at(), so that a read past the end is an exception.
#pragma once

#include "reference/dense_solve.hpp"
#include "reference/lagrange.hpp"
#include "reference/settings.hpp"
#include "reference/solution.hpp"
#include "reference/toeplitz_history.hpp"

#include <vector>

namespace reference {

inline solution solve_vie1(const std::vector<double>& g, const std::vector<double>& K, int D,
                           const std::vector<double>& y0, double dt, bool continuous, const setting& row) {
    const int m = row.m, S = m * m, P = int(row.indices.size()), n_sys = P * D;
    const std::vector<int>& k = row.indices;
    const std::vector<double> c = row.nodes();
    const double h = double(S) * dt;
    const auto K_at = [&](int n, int a, int b) {
        return K.at(n * D * D + a * D + b);
    };

    std::vector<double> w; // the quadrature weights of the nodes
    for (int l = 0; l < P; ++l)
        w.push_back(quadrature_weight(lagrange_coefficients(c, l)));

    // The basis of a step: on the nodes, or on 0 and the nodes. first_node is the place of node 0 of the row in it.
    std::vector<double> basis_nodes = c;
    if (continuous)
        basis_nodes.insert(basis_nodes.begin(), 0.0);
    const int first_node = continuous ? 1 : 0;
    std::vector<double> samples = row.samples();
    if (continuous)
        for (int e = 0; e <= S; ++e)
            samples[e] = double(e) * (1.0 / double(S));
    std::vector<std::vector<double>> basis, at_product, at_sample;
    for (int l = 0; l < int(basis_nodes.size()); ++l) {
        basis.push_back(lagrange_coefficients(basis_nodes, l));
        at_product.push_back(basis_values(basis[l], row.products_of_nodes()));
        at_sample.push_back(basis_values(basis[l], samples));
    }

    const int steps = (int(K.size()) / (D * D) - 1) / S;
    solution result{.steps = steps,
                    .out = std::vector<double>(g.size()),
                    .coefficients = std::vector<double>(steps * (P + 1) * D),
                    .coefficients_of_a_step = (P + 1) * D,
                    .meaningful_of_a_step = int(basis.size()) * D};

    // A0 with its factor h, and C0 without it, both row-major.
    std::vector<double> A0(n_sys * n_sys, 0.0), C0(n_sys * D, 0.0);
    for (int a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i)
            for (int b = 0; b < D; ++b) {
                const int position = a * P + i;
                for (int l = 0; l < P; ++l) {
                    double sum = 0.0;
                    for (int r = 0; r < P; ++r)
                        sum = sum +
                              (K_at(k[i] * (m - k[r]), a, b) * (c[i] * w[r])) * at_product[first_node + l][i * P + r];
                    A0[position * n_sys + b * P + l] = h * sum;
                }
                if (continuous) {
                    double sum = 0.0;
                    for (int r = 0; r < P; ++r)
                        sum = sum + (K_at(k[i] * (m - k[r]), a, b) * (c[i] * w[r])) * at_product[0][i * P + r];
                    C0[position * D + b] = -sum;
                }
            }

    toeplitz_history history(steps, n_sys, n_sys);
    history.set_kernel_provider([&](int d, toeplitz_history& blocks) {
        for (int a = 0; a < D; ++a)
            for (int i = 0; i < P; ++i)
                for (int b = 0; b < D; ++b)
                    for (int l = 0; l < P; ++l)
                        blocks.kernel_at(d, a * P + i, b * P + l) = h * (K_at(S * d + m * (k[i] - k[l]), a, b) * w[l]);
    });

    std::vector<double> at_end;
    for (const std::vector<double>& polynomial : basis)
        at_end.push_back(basis_value(polynomial, 1.0));
    std::vector<std::vector<double>> U, B{std::vector<double>(D)};
    if (continuous)
        B[0] = y0;
    for (int j = 0; j < steps; ++j) {
        std::vector<double> rhs(n_sys);
        for (int b = 0; b < D; ++b)
            for (int i = 0; i < P; ++i)
                rhs[b * P + i] = g.at((S * j + m * k[i]) * D + b);
        for (int r = 0; r < n_sys; ++r) {
            rhs[r] = rhs[r] - history.sum_at(j, r);
            if (continuous)
                for (int b = 0; b < D; ++b)
                    rhs[r] = rhs[r] + (h * C0[r * D + b]) * B[j][b];
        }
        std::vector<double> factors = A0;
        std::vector<int> pivots(n_sys);
        if (!solve_dense(matrix_order::row_major, n_sys, factors, rhs, pivots)) {
            result.solved = false;
            return result;
        }
        U.push_back(rhs);
        history.push(rhs);
        B.emplace_back(D);
        if (continuous)
            for (int b = 0; b < D; ++b) {
                double end = at_end[0] * B[j][b];
                for (int l = 0; l < P; ++l)
                    end = end + at_end[1 + l] * rhs[b * P + l];
                B[j + 1][b] = end;
            }
    }

    // The values that belong to the basis polynomials of step j, component b.
    const auto values_of = [&](int j, int b) {
        std::vector<double> values;
        if (continuous)
            values.push_back(B[j][b]);
        for (int l = 0; l < P; ++l)
            values.push_back(U[j][b * P + l]);
        return values;
    };
    for (int j = 0; j < steps; ++j)
        for (int b = 0; b < D; ++b) {
            const std::vector<double> values = values_of(j, b);
            for (int e = 0; e < int(basis.size()); ++e) {
                double coefficient = basis[0][e] * values[0];
                for (int l = 1; l < int(basis.size()); ++l)
                    coefficient = coefficient + basis[l][e] * values[l];
                result.coefficients[((P + 1) * j + e) * D + b] = coefficient;
            }
            for (int e = 0; e <= S; ++e) {
                double value = at_sample[0][e] * values[0];
                for (int l = 1; l < int(basis.size()); ++l)
                    value = value + at_sample[l][e] * values[l];
                result.out[(S * j + e) * D + b] = result.out[(S * j + e) * D + b] + value;
            }
        }
    for (int j = 1; j < steps; ++j)
        for (int b = 0; b < D; ++b)
            result.out[S * j * D + b] = result.out[S * j * D + b] * 0.5;
    return result;
}

} // namespace reference
