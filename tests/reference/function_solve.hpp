// The block solvers, each as the plain recursion of its equation: one product after the other, all sizes at run time.
#pragma once

#include "reference/dense_solve.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace reference {

// x, and y where there is one: on a singular block, what was computed until then.
struct block_solution {
    bool solved = false;
    std::vector<double> x, y;
};

struct block_shape {
    std::size_t N, P, D;
    std::size_t slots; // of a step in a row of A: P, or P + 1 with a carried value
    bool vector_form;  // a row product starts from 0.0

    std::size_t M() const { return P * D; }
    std::size_t matrix_length() const { return N * P * N * slots * D * D; }

    // Entry (r, c) for the row point i of step n and the slot j of step k.
    std::size_t entry(std::size_t n, std::size_t i, std::size_t r, std::size_t k, std::size_t j, std::size_t c) const {
        const std::size_t R = n * P + i, S = k * slots + j;
        return (R * (N * slots) + S) * D * D + r * D + c;
    }
};

// The product of row r of a slot's matrix with a stored vector.
inline double row_product(const block_shape& shape, std::span<const double> A, std::size_t first_entry,
                          const double* values) {
    if (!shape.vector_form)
        return A[first_entry] * values[0];
    double t = 0.0;
    for (std::size_t c = 0; c < shape.D; ++c)
        t += A[first_entry + c] * values[c];
    return t;
}

// Solves the block of step n, which is `local`, row-major, and puts the solution behind x.
inline bool append_block_solution(std::size_t M, std::vector<double> local, std::vector<double> rhs,
                                  std::vector<double>& x) {
    std::vector<int> pivots(M);
    if (!solve_dense(matrix_order::row_major, int(M), local, rhs, pivots))
        return false;
    x.insert(x.end(), rhs.begin(), rhs.end());
    return true;
}

// sum over k <= n of A[n,k] x[k] = b[n]
inline block_solution function_solve_vie1(std::size_t N, std::size_t P, std::size_t D, bool vector_form,
                                          std::span<const double> A, std::span<const double> b) {
    const block_shape shape{N, P, D, P, vector_form};
    const std::size_t M = shape.M();
    block_solution solution;
    for (std::size_t n = 0; n < N; ++n) {
        std::vector<double> rhs(M), local(M * M);
        for (std::size_t i = 0; i < P; ++i)
            for (std::size_t r = 0; r < D; ++r) {
                double& sum = rhs[i * D + r];
                sum = b[(n * P + i) * D + r];
                for (std::size_t k = 0; k < n; ++k)
                    for (std::size_t j = 0; j < P; ++j)
                        sum -= row_product(shape, A, shape.entry(n, i, r, k, j, 0), &solution.x[(k * P + j) * D]);
                for (std::size_t j = 0; j < P; ++j)
                    for (std::size_t c = 0; c < D; ++c)
                        local[(i * D + r) * M + j * D + c] = A[shape.entry(n, i, r, n, j, c)];
            }
        if (!append_block_solution(M, local, rhs, solution.x))
            return solution;
    }
    solution.solved = true;
    return solution;
}

// x[n] = b[n] + sum over k <= n of A[n,k] x[k]
inline block_solution function_solve_vie2(std::size_t N, std::size_t P, std::size_t D, bool vector_form,
                                          std::span<const double> A, std::span<const double> b) {
    const block_shape shape{N, P, D, P, vector_form};
    const std::size_t M = shape.M();
    block_solution solution;
    for (std::size_t n = 0; n < N; ++n) {
        std::vector<double> rhs(M), local(M * M);
        for (std::size_t i = 0; i < P; ++i)
            for (std::size_t r = 0; r < D; ++r) {
                double& sum = rhs[i * D + r];
                sum = b[(n * P + i) * D + r];
                for (std::size_t k = 0; k < n; ++k)
                    for (std::size_t j = 0; j < P; ++j)
                        sum += row_product(shape, A, shape.entry(n, i, r, k, j, 0), &solution.x[(k * P + j) * D]);
                for (std::size_t j = 0; j < P; ++j)
                    for (std::size_t c = 0; c < D; ++c)
                        local[(i * D + r) * M + j * D + c] =
                            (i == j && r == c ? 1.0 : 0.0) - A[shape.entry(n, i, r, n, j, c)];
            }
        if (!append_block_solution(M, local, rhs, solution.x))
            return solution;
    }
    solution.solved = true;
    return solution;
}

// The points of step k stand in slots 0 .. P-1, y[k] in slot P; y[n+1] = rho y[n] + w[0] x[n,0] + ...
inline block_solution function_solve_vie1_cont(std::size_t N, std::size_t P, std::size_t D, bool vector_form,
                                               std::span<const double> A, std::span<const double> b,
                                               std::span<const double> w, double rho, std::span<const double> y0) {
    const block_shape shape{N, P, D, P + 1, vector_form};
    const std::size_t M = shape.M();
    block_solution solution;
    std::vector<double>&x = solution.x, &y = solution.y;
    y.assign(y0.begin(), y0.end());
    for (std::size_t n = 0; n < N; ++n) {
        std::vector<double> rhs(M), local(M * M);
        for (std::size_t i = 0; i < P; ++i)
            for (std::size_t r = 0; r < D; ++r) {
                double& sum = rhs[i * D + r];
                sum = b[(n * P + i) * D + r];
                for (std::size_t c = 0; c < D; ++c)
                    sum -= A[shape.entry(n, i, r, n, P, c)] * y[n * D + c];
                for (std::size_t k = 0; k < n; ++k) {
                    sum -= row_product(shape, A, shape.entry(n, i, r, k, P, 0), &y[k * D]);
                    for (std::size_t j = 0; j < P; ++j)
                        sum -= row_product(shape, A, shape.entry(n, i, r, k, j, 0), &x[(k * P + j) * D]);
                }
                for (std::size_t j = 0; j < P; ++j)
                    for (std::size_t c = 0; c < D; ++c)
                        local[(i * D + r) * M + j * D + c] = A[shape.entry(n, i, r, n, j, c)];
            }
        if (!append_block_solution(M, local, rhs, x))
            return solution;
        for (std::size_t r = 0; r < D; ++r) {
            double next = rho * y[n * D + r];
            for (std::size_t j = 0; j < P; ++j)
                next = next + w[j] * x[(n * P + j) * D + r];
            y.push_back(next);
        }
    }
    solution.solved = true;
    return solution;
}

struct vide_blocks {
    std::span<const double> A, b, C, E, w, h, y0;
};

inline block_solution function_solve_vide(std::size_t N, std::size_t P, const vide_blocks& given) {
    const auto& [A, b, C, E, w, h, y0] = given;
    const block_shape shape{N, P, 1, P + 1, false};
    block_solution solution;
    std::vector<double>&x = solution.x, &y = solution.y;
    y.push_back(y0[0]);
    for (std::size_t n = 0; n < N; ++n) {
        const double hn = h[n], yn = y[n];
        std::vector<double> rhs(P), local(P * P);
        for (std::size_t i = 0; i < P; ++i) {
            const std::size_t R = n * P + i;
            rhs[i] = A[shape.entry(n, i, 0, n, P, 0)] * yn + (yn * C[R] + b[R]);
            for (std::size_t j = 0; j < P; ++j)
                local[i * P + j] =
                    (i == j ? 1.0 : 0.0) - E[i * P + j] * (C[R] * hn) - A[shape.entry(n, i, 0, n, j, 0)] * hn;
            for (std::size_t k = 0; k < n; ++k) {
                rhs[i] += A[shape.entry(n, i, 0, k, P, 0)] * y[k];
                for (std::size_t j = 0; j < P; ++j)
                    rhs[i] += A[shape.entry(n, i, 0, k, j, 0)] * (x[k * P + j] * h[k]);
            }
        }
        if (!append_block_solution(P, local, rhs, x))
            return solution;
        double t = 0.0;
        for (std::size_t j = 0; j < P; ++j)
            t = t + x[n * P + j] * w[j];
        y.push_back(y[n] + hn * t);
    }
    solution.solved = true;
    return solution;
}

inline block_solution function_solve_vide_vec(std::size_t N, std::size_t P, std::size_t D, const vide_blocks& given) {
    const auto& [A, b, C, E, w, h, y0] = given;
    const block_shape shape{N, P, D, P + 1, true};
    const std::size_t M = shape.M();
    block_solution solution;
    std::vector<double>&x = solution.x, &y = solution.y;
    y.assign(y0.begin(), y0.end());
    for (std::size_t n = 0; n < N; ++n) {
        const double hn = h[n];
        std::vector<double> rhs(M), local(M * M);
        for (std::size_t i = 0; i < P; ++i)
            for (std::size_t r = 0; r < D; ++r) {
                const std::size_t R = n * P + i;
                double& sum = rhs[i * D + r];
                sum = b[R * D + r];
                for (std::size_t c = 0; c < D; ++c) {
                    sum += C[R * D * D + r * D + c] * y[n * D + c];
                    sum += A[shape.entry(n, i, r, n, P, c)] * y[n * D + c];
                }
                for (std::size_t j = 0; j < P; ++j)
                    for (std::size_t c = 0; c < D; ++c)
                        local[(i * D + r) * M + j * D + c] = (i == j && r == c ? 1.0 : 0.0) -
                                                             C[R * D * D + r * D + c] * (E[i * P + j] * hn) -
                                                             A[shape.entry(n, i, r, n, j, c)] * hn;
                for (std::size_t k = 0; k < n; ++k) {
                    sum += row_product(shape, A, shape.entry(n, i, r, k, P, 0), &y[k * D]);
                    for (std::size_t j = 0; j < P; ++j)
                        sum += h[k] * row_product(shape, A, shape.entry(n, i, r, k, j, 0), &x[(k * P + j) * D]);
                }
            }
        if (!append_block_solution(M, local, rhs, x))
            return solution;
        for (std::size_t r = 0; r < D; ++r) {
            double t = 0.0;
            for (std::size_t j = 0; j < P; ++j)
                t = t + x[(n * P + j) * D + r] * w[j];
            y.push_back(y[n * D + r] + hn * t);
        }
    }
    solution.solved = true;
    return solution;
}

} // namespace reference
