// The reference implementation of the block solvers: each is the plain recursion of its equation. N, P and D are
// run-time values.
#pragma once

#include "reference/dense_solve.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace reference {

// x, and y in the kinds that carry a value. After a singular block they hold the steps before it.
struct block_solution {
    bool solved = false;
    std::vector<double> x, y;
};

struct block_shape {
    std::size_t N, P, D;
    std::size_t slots; // matrices per step in a row of A: one per point, and one for the carried value
    bool vector_form;  // a row product starts from 0.0

    std::size_t n_sys() const { return P * D; }
    std::size_t matrix_length() const { return N * P * N * slots * D * D; }

    // Entry (a, b) of the matrix for point i of step n and slot j of step k.
    std::size_t entry(std::size_t n, std::size_t i, std::size_t a, std::size_t k, std::size_t j, std::size_t b) const {
        const std::size_t row = n * P + i, column = k * slots + j;
        return (row * (N * slots) + column) * D * D + a * D + b;
    }
};

// The product of one row of a matrix, from first_entry, with D values.
inline double row_product(const block_shape& shape, std::span<const double> A, std::size_t first_entry,
                          const double* values) {
    if (!shape.vector_form)
        return A[first_entry] * values[0];
    double sum = 0.0;
    for (std::size_t b = 0; b < shape.D; ++b)
        sum += A[first_entry + b] * values[b];
    return sum;
}

// Solves the system of a step and appends the solution to x. The matrix is row-major. Returns false if it is singular.
inline bool append_block_solution(std::size_t n_sys, std::vector<double> matrix, std::vector<double> rhs,
                                  std::vector<double>& x) {
    std::vector<int> pivots(n_sys);
    if (!solve_dense(matrix_order::row_major, int(n_sys), matrix, rhs, pivots))
        return false;
    x.insert(x.end(), rhs.begin(), rhs.end());
    return true;
}

// sum over k <= n of A[n,k] x[k] = forcing[n]
inline block_solution function_solve_vie1(std::size_t N, std::size_t P, std::size_t D, bool vector_form,
                                          std::span<const double> A, std::span<const double> forcing) {
    const block_shape shape{N, P, D, P, vector_form};
    const std::size_t n_sys = shape.n_sys();
    block_solution solution;
    for (std::size_t n = 0; n < N; ++n) {
        std::vector<double> rhs(n_sys), matrix(n_sys * n_sys);
        for (std::size_t i = 0; i < P; ++i)
            for (std::size_t a = 0; a < D; ++a) {
                double& sum = rhs[i * D + a];
                sum = forcing[(n * P + i) * D + a];
                for (std::size_t k = 0; k < n; ++k)
                    for (std::size_t j = 0; j < P; ++j)
                        sum -= row_product(shape, A, shape.entry(n, i, a, k, j, 0), &solution.x[(k * P + j) * D]);
                for (std::size_t j = 0; j < P; ++j)
                    for (std::size_t b = 0; b < D; ++b)
                        matrix[(i * D + a) * n_sys + j * D + b] = A[shape.entry(n, i, a, n, j, b)];
            }
        if (!append_block_solution(n_sys, matrix, rhs, solution.x))
            return solution;
    }
    solution.solved = true;
    return solution;
}

// x[n] = forcing[n] + sum over k <= n of A[n,k] x[k]
inline block_solution function_solve_vie2(std::size_t N, std::size_t P, std::size_t D, bool vector_form,
                                          std::span<const double> A, std::span<const double> forcing) {
    const block_shape shape{N, P, D, P, vector_form};
    const std::size_t n_sys = shape.n_sys();
    block_solution solution;
    for (std::size_t n = 0; n < N; ++n) {
        std::vector<double> rhs(n_sys), matrix(n_sys * n_sys);
        for (std::size_t i = 0; i < P; ++i)
            for (std::size_t a = 0; a < D; ++a) {
                double& sum = rhs[i * D + a];
                sum = forcing[(n * P + i) * D + a];
                for (std::size_t k = 0; k < n; ++k)
                    for (std::size_t j = 0; j < P; ++j)
                        sum += row_product(shape, A, shape.entry(n, i, a, k, j, 0), &solution.x[(k * P + j) * D]);
                for (std::size_t j = 0; j < P; ++j)
                    for (std::size_t b = 0; b < D; ++b)
                        matrix[(i * D + a) * n_sys + j * D + b] =
                            (i == j && a == b ? 1.0 : 0.0) - A[shape.entry(n, i, a, n, j, b)];
            }
        if (!append_block_solution(n_sys, matrix, rhs, solution.x))
            return solution;
    }
    solution.solved = true;
    return solution;
}

// Slots 0 .. P-1 of step k belong to its points, slot P to y[k]. y[n+1] = rho y[n] + w[0] x[n,0] + w[1] x[n,1] + ...
inline block_solution function_solve_vie1_cont(std::size_t N, std::size_t P, std::size_t D, bool vector_form,
                                               std::span<const double> A, std::span<const double> forcing,
                                               std::span<const double> w, double rho, std::span<const double> y0) {
    const block_shape shape{N, P, D, P + 1, vector_form};
    const std::size_t n_sys = shape.n_sys();
    block_solution solution;
    std::vector<double>&x = solution.x, &y = solution.y;
    y.assign(y0.begin(), y0.end());
    for (std::size_t n = 0; n < N; ++n) {
        std::vector<double> rhs(n_sys), matrix(n_sys * n_sys);
        for (std::size_t i = 0; i < P; ++i)
            for (std::size_t a = 0; a < D; ++a) {
                double& sum = rhs[i * D + a];
                sum = forcing[(n * P + i) * D + a];
                for (std::size_t b = 0; b < D; ++b)
                    sum -= A[shape.entry(n, i, a, n, P, b)] * y[n * D + b];
                for (std::size_t k = 0; k < n; ++k) {
                    sum -= row_product(shape, A, shape.entry(n, i, a, k, P, 0), &y[k * D]);
                    for (std::size_t j = 0; j < P; ++j)
                        sum -= row_product(shape, A, shape.entry(n, i, a, k, j, 0), &x[(k * P + j) * D]);
                }
                for (std::size_t j = 0; j < P; ++j)
                    for (std::size_t b = 0; b < D; ++b)
                        matrix[(i * D + a) * n_sys + j * D + b] = A[shape.entry(n, i, a, n, j, b)];
            }
        if (!append_block_solution(n_sys, matrix, rhs, x))
            return solution;
        for (std::size_t a = 0; a < D; ++a) {
            double next = rho * y[n * D + a];
            for (std::size_t j = 0; j < P; ++j)
                next = next + w[j] * x[(n * P + j) * D + a];
            y.push_back(next);
        }
    }
    solution.solved = true;
    return solution;
}

// The arguments A, b, C, E, w, h and y0 of the integro-differential solvers.
struct vide_blocks {
    std::span<const double> A, forcing, coefficient, E, w, h, y0;
};

inline block_solution function_solve_vide(std::size_t N, std::size_t P, const vide_blocks& given) {
    const auto& [A, forcing, coefficient, E, w, h, y0] = given;
    const block_shape shape{N, P, 1, P + 1, false};
    block_solution solution;
    std::vector<double>&x = solution.x, &y = solution.y;
    y.push_back(y0[0]);
    for (std::size_t n = 0; n < N; ++n) {
        const double hn = h[n], yn = y[n];
        std::vector<double> rhs(P), matrix(P * P);
        for (std::size_t i = 0; i < P; ++i) {
            const double coefficient_i = coefficient[n * P + i];
            rhs[i] = A[shape.entry(n, i, 0, n, P, 0)] * yn + (yn * coefficient_i + forcing[n * P + i]);
            for (std::size_t j = 0; j < P; ++j)
                matrix[i * P + j] =
                    (i == j ? 1.0 : 0.0) - E[i * P + j] * (coefficient_i * hn) - A[shape.entry(n, i, 0, n, j, 0)] * hn;
            for (std::size_t k = 0; k < n; ++k) {
                rhs[i] += A[shape.entry(n, i, 0, k, P, 0)] * y[k];
                for (std::size_t j = 0; j < P; ++j)
                    rhs[i] += A[shape.entry(n, i, 0, k, j, 0)] * (x[k * P + j] * h[k]);
            }
        }
        if (!append_block_solution(P, matrix, rhs, x))
            return solution;
        double sum = 0.0;
        for (std::size_t j = 0; j < P; ++j)
            sum = sum + x[n * P + j] * w[j];
        y.push_back(y[n] + hn * sum);
    }
    solution.solved = true;
    return solution;
}

inline block_solution function_solve_vide_vec(std::size_t N, std::size_t P, std::size_t D, const vide_blocks& given) {
    const auto& [A, forcing, coefficient, E, w, h, y0] = given;
    const block_shape shape{N, P, D, P + 1, true};
    const std::size_t n_sys = shape.n_sys();
    block_solution solution;
    std::vector<double>&x = solution.x, &y = solution.y;
    y.assign(y0.begin(), y0.end());
    for (std::size_t n = 0; n < N; ++n) {
        const double hn = h[n];
        std::vector<double> rhs(n_sys), matrix(n_sys * n_sys);
        for (std::size_t i = 0; i < P; ++i)
            for (std::size_t a = 0; a < D; ++a) {
                const std::size_t point = n * P + i;
                double& sum = rhs[i * D + a];
                sum = forcing[point * D + a];
                for (std::size_t b = 0; b < D; ++b) {
                    sum += coefficient[point * D * D + a * D + b] * y[n * D + b];
                    sum += A[shape.entry(n, i, a, n, P, b)] * y[n * D + b];
                }
                for (std::size_t j = 0; j < P; ++j)
                    for (std::size_t b = 0; b < D; ++b)
                        matrix[(i * D + a) * n_sys + j * D + b] =
                            (i == j && a == b ? 1.0 : 0.0) -
                            coefficient[point * D * D + a * D + b] * (E[i * P + j] * hn) -
                            A[shape.entry(n, i, a, n, j, b)] * hn;
                for (std::size_t k = 0; k < n; ++k) {
                    sum += row_product(shape, A, shape.entry(n, i, a, k, P, 0), &y[k * D]);
                    for (std::size_t j = 0; j < P; ++j)
                        sum += h[k] * row_product(shape, A, shape.entry(n, i, a, k, j, 0), &x[(k * P + j) * D]);
                }
            }
        if (!append_block_solution(n_sys, matrix, rhs, x))
            return solution;
        for (std::size_t a = 0; a < D; ++a) {
            double sum = 0.0;
            for (std::size_t j = 0; j < P; ++j)
                sum = sum + x[(n * P + j) * D + a] * w[j];
            y.push_back(y[n * D + a] + hn * sum);
        }
    }
    solution.solved = true;
    return solution;
}

} // namespace reference
