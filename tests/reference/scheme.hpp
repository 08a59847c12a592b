// What the reference implementations of the sample-based solvers share: the numbers of a collocation scheme, access to
// samples of a matrix, and the result.
#pragma once

#include "reference/lagrange.hpp"
#include "reference/settings.hpp"
#include "reference/solution.hpp"

#include <cstddef>
#include <vector>

namespace reference {

struct collocation_scheme {
    collocation_scheme(const setting& row, int dimension, double dt, std::size_t kernel_values)
        : m{row.m}, S{m * m}, P{int(row.indices.size())}, D{dimension}, n_sys{P * D},
          steps{(int(kernel_values) / (D * D) - 1) / S}, h{dt * double(S)}, k{row.indices}, c{row.nodes()} {
        for (int j = 0; j < P; ++j) {
            lambda.push_back(lagrange_coefficients(c, j));
            weight.push_back(quadrature_weight(lambda[j]));
        }
    }

    // Entry (a, b) of a matrix sample. A read past the end of the samples throws.
    double matrix_at(const std::vector<double>& samples, int sample, int a, int b) const {
        return samples.at(sample * D * D + a * D + b);
    }

    // Builds the result. write_step(n, result) writes the coefficients of step n and adds its values to `out`. A sample
    // between two steps receives a value from both steps. It becomes their mean.
    template <class writer>
    solution assemble(bool solved, std::size_t out_size, int meaningful_of_a_step, const writer& write_step) const {
        solution result{.steps = steps,
                        .solved = solved,
                        .out = std::vector<double>(out_size),
                        .coefficients = std::vector<double>(steps * (P + 1) * D),
                        .coefficients_of_a_step = (P + 1) * D,
                        .meaningful_of_a_step = meaningful_of_a_step};
        if (!solved)
            return result;
        for (int n = 0; n < steps; ++n)
            write_step(n, result);
        for (int n = 1; n < steps; ++n)
            for (int a = 0; a < D; ++a)
                result.out[n * S * D + a] = result.out[n * S * D + a] * 0.5;
        return result;
    }

    int m, S, P, D, n_sys, steps;
    double h;
    std::vector<int> k;                      // c_j = k_j / m
    std::vector<double> c;                   // the nodes
    std::vector<std::vector<double>> lambda; // lambda[j][p]: the coefficient of s^p of L_j
    std::vector<double> weight;              // weight[j]: the quadrature weight b_j
};

} // namespace reference
