// The reference implementation of the first-kind solver: slow and obvious, with the collocation scheme, the dimension
// and the form as run-time values. Samples are read with at(), so that a read past the end throws.
//
// In the continuous form, the polynomial of a step also takes the end value B[n] of the previous step, at the added
// node 0.
#pragma once

#include "reference/dense_solve.hpp"
#include "reference/lagrange.hpp"
#include "reference/scheme.hpp"
#include "reference/settings.hpp"
#include "reference/solution.hpp"
#include "reference/toeplitz_history.hpp"

#include <vector>

namespace reference {

class vie1_solver : collocation_scheme {
public:
    vie1_solver(const std::vector<double>& forcing, const std::vector<double>& kernel, int dimension,
                const std::vector<double>& initial_value, double dt, bool is_continuous, const setting& row)
        : collocation_scheme{row, dimension, dt, kernel.size()}, g{forcing}, K{kernel}, y0{initial_value},
          continuous{is_continuous}, first_node{is_continuous ? 1 : 0} {
        std::vector<double> basis_nodes = c;
        std::vector<double> samples = row.samples();
        if (continuous) {
            basis_nodes.insert(basis_nodes.begin(), 0.0);
            for (int e = 0; e <= S; ++e)
                samples[e] = double(e) * (1.0 / double(S));
        }
        for (int j = 0; j < int(basis_nodes.size()); ++j) {
            basis.push_back(lagrange_coefficients(basis_nodes, j));
            at_product.push_back(basis_values(basis[j], row.products_of_nodes()));
            at_sample.push_back(basis_values(basis[j], samples));
            at_end.push_back(basis_value(basis[j], 1.0));
        }
    }

    solution solve() {
        return assemble(march(), g.size(), int(basis.size()) * D, [this](int n, solution& result) {
            for (int a = 0; a < D; ++a)
                write_component(n, a, result);
        });
    }

private:
    // The kernel of the current step, at node i and component a: the weighted integral of basis polynomial j, for
    // component b of the solution.
    double current_step_integral(int a, int i, int b, int j) const {
        double sum = 0.0;
        for (int q = 0; q < P; ++q)
            sum = sum + (matrix_at(K, k[i] * (m - k[q]), a, b) * (c[i] * weight[q])) * at_product[j][i * P + q];
        return sum;
    }

    // Fills A0, which has the factor h, and C0, which does not have it.
    void build_step_matrices() {
        A0.assign(n_sys * n_sys, 0.0);
        C0.assign(n_sys * D, 0.0);
        for (int a = 0; a < D; ++a)
            for (int i = 0; i < P; ++i)
                for (int b = 0; b < D; ++b) {
                    const int R = a * P + i;
                    for (int j = 0; j < P; ++j)
                        A0[R * n_sys + b * P + j] = h * current_step_integral(a, i, b, first_node + j);
                    if (continuous)
                        C0[R * D + b] = -current_step_integral(a, i, b, 0);
                }
    }

    void write_lag_block(int d, toeplitz_history& history) const {
        for (int a = 0; a < D; ++a)
            for (int i = 0; i < P; ++i)
                for (int b = 0; b < D; ++b)
                    for (int j = 0; j < P; ++j)
                        history.kernel_at(d, a * P + i, b * P + j) =
                            h * (matrix_at(K, S * d + m * (k[i] - k[j]), a, b) * weight[j]);
    }

    std::vector<double> right_side(int n, toeplitz_history& history) const {
        std::vector<double> rhs(n_sys);
        for (int a = 0; a < D; ++a)
            for (int i = 0; i < P; ++i)
                rhs[a * P + i] = g.at((S * n + m * k[i]) * D + a);
        for (int R = 0; R < n_sys; ++R) {
            rhs[R] = rhs[R] - history.sum_at(n, R);
            if (continuous)
                for (int b = 0; b < D; ++b)
                    rhs[R] = rhs[R] + (h * C0[R * D + b]) * B[n][b];
        }
        return rhs;
    }

    std::vector<double> end_value(int n) const {
        std::vector<double> end(D);
        if (continuous)
            for (int a = 0; a < D; ++a) {
                end[a] = at_end[0] * B[n][a];
                for (int j = 0; j < P; ++j)
                    end[a] = end[a] + at_end[1 + j] * U[n][a * P + j];
            }
        return end;
    }

    // Computes U[n] and B[n] of every step. Returns false if the matrix is singular.
    bool march() {
        build_step_matrices();
        toeplitz_history history(steps, n_sys, n_sys);
        history.set_kernel_provider([this](int d, toeplitz_history& blocks) { write_lag_block(d, blocks); });
        B.push_back(continuous ? y0 : std::vector<double>(D));
        for (int n = 0; n < steps; ++n) {
            std::vector<double> rhs = right_side(n, history), factors = A0;
            std::vector<int> pivots(n_sys);
            if (!solve_dense(matrix_order::row_major, n_sys, factors, rhs, pivots))
                return false;
            U.push_back(rhs);
            history.push(rhs);
            B.push_back(end_value(n));
        }
        return true;
    }

    void write_component(int n, int a, solution& result) const {
        std::vector<double> values; // one for each basis polynomial
        if (continuous)
            values.push_back(B[n][a]);
        for (int j = 0; j < P; ++j)
            values.push_back(U[n][a * P + j]);
        for (int p = 0; p < int(basis.size()); ++p) {
            double coefficient = basis[0][p] * values[0];
            for (int j = 1; j < int(basis.size()); ++j)
                coefficient = coefficient + basis[j][p] * values[j];
            result.coefficients[((P + 1) * n + p) * D + a] = coefficient;
        }
        for (int e = 0; e <= S; ++e) {
            double value = at_sample[0][e] * values[0];
            for (int j = 1; j < int(basis.size()); ++j)
                value = value + at_sample[j][e] * values[j];
            result.out[(S * n + e) * D + a] = result.out[(S * n + e) * D + a] + value;
        }
    }

    const std::vector<double>&g, &K, &y0;
    const bool continuous;
    const int first_node; // the position of node 0 of the scheme in the basis

    // The basis of a step, on the nodes or on 0 and the nodes: basis[j][p], and its values.
    std::vector<std::vector<double>> basis, at_product, at_sample;
    std::vector<double> at_end;

    std::vector<double> A0, C0;         // row-major
    std::vector<std::vector<double>> U; // U[n][a * P + i]: component a of the solution at node i of step n
    std::vector<std::vector<double>> B; // B[n][a]: component a at the start of step n
};

inline solution solve_vie1(const std::vector<double>& g, const std::vector<double>& K, int D,
                           const std::vector<double>& y0, double dt, bool continuous, const setting& row) {
    return vie1_solver{g, K, D, y0, dt, continuous, row}.solve();
}

} // namespace reference
