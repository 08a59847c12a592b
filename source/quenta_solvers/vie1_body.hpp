// The collocation scheme of the first-kind equation, on steps of length h = S * dt with P nodes c_i = k_i / m.
//
// At every node the quadrature rule of the nodes replaces the integral over the finished steps by the history, and the
// integral over the piece of the present step by a rule on the points c_i * c_q:
//
//     A0 U_j = G_j - history_j                    the polynomial of a step lives on the nodes c_1 .. c_P
//     A0 U_j = G_j - history_j + h C0 B_j         continuous: it also starts at B_j, the end of the step before
//
// (H. Brunner, Collocation Methods for Volterra Integral and Related Functional Equations, Cambridge University Press
// 2004, section 2.4.) The continuous form extrapolates where c_P is not 1, and errors may then grow from step to step.
// That is the scheme; nothing here damps it.
#pragma once

#include "quenta_solvers/collocation_blocks.hpp"
#include "quenta_solvers/step_system.hpp"
#include "quenta_solvers/vie1.hpp"
#include "utility/integers.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {

// A value of a step's polynomial, or one of its coefficients: weights times the values at the nodes, in the continuous
// form with the carried value first. The sum starts from its first term.
template <int P>
double weighted_sum(const std::array<double, P>& weight, const double* node_values) {
    double sum = weight[0] * node_values[0];
    for (int l = 1; l < P; ++l)
        sum += weight[l] * node_values[l];
    return sum;
}

template <int P>
double weighted_sum(const std::array<double, P + 1>& weight, double carried, const double* node_values) {
    double sum = weight[0] * carried;
    for (int l = 0; l < P; ++l)
        sum += weight[l + 1] * node_values[l];
    return sum;
}

// [p][l] from [l][p].
template <std::size_t n>
constexpr std::array<std::array<double, n>, n> transposed(const std::array<std::array<double, n>, n>& from) {
    std::array<std::array<double, n>, n> to{};
    for (std::size_t l = 0; l < n; ++l)
        for (std::size_t p = 0; p < n; ++p)
            to[p][l] = from[l][p];
    return to;
}

// All that a march leaves: U_j at j * P * D and, in the continuous form, B_j at j * D.
struct vie1_solution {
    std::vector<double> U, carried;
};

// Calls write(j, component, the node values, the carried value) for every step and component.
template <int P, class visitor>
void for_each_polynomial(const vie1_solution& solution, std::int64_t steps, std::int64_t D, bool continuous,
                         const visitor& write) {
    for (std::int64_t j = 0; j < steps; ++j)
        for (std::int64_t b = 0; b < D; ++b)
            write(j, b, solution.U.data() + (j * D + b) * P, continuous ? solution.carried[j * D + b] : 0.0);
}

// The coefficient of v^e of step j, component b, at ((P + 1) j + e) D + b. The discontinuous form leaves e = P alone.
template <int row>
void vie1_write_coefficients(const vie1_solution& solution, std::int64_t steps, std::int64_t D, bool continuous,
                             view<double> coeffs) {
    constexpr int P = row_tables<row>::P;
    static constexpr auto discontinuous_power = transposed(row_tables<row>::lambda);
    static constexpr auto continuous_power = transposed(continuous_tables<row>::lambda);
    const int powers = continuous ? P + 1 : P;
    // As far as the last coefficient that is written.
    double* const to = coeffs.slice(0, std::uint64_t(((P + 1) * (steps - 1) + powers) * D)).pointer;
    for_each_polynomial<P>(
        solution, steps, D, continuous, [&](std::int64_t j, std::int64_t b, const double* values, double carried) {
            for (int e = 0; e < powers; ++e)
                to[((P + 1) * j + e) * D + b] = continuous ? weighted_sum<P>(continuous_power[e], carried, values)
                                                           : weighted_sum<P>(discontinuous_power[e], values);
        });
}

// Adjacent steps both have a value at their common sample; the samples between report the mean of the two.
template <int row>
void vie1_write_samples(const vie1_solution& solution, std::int64_t steps, std::int64_t D, bool continuous,
                        view<double> out) {
    using tables = row_tables<row>;
    constexpr int P = tables::P;
    constexpr int S = tables::S;
    double* const to = out.slice(0, std::uint64_t((steps * S + 1) * D)).pointer;
    for_each_polynomial<P>(
        solution, steps, D, continuous, [&](std::int64_t j, std::int64_t b, const double* values, double carried) {
            for (int e = 0; e <= S; ++e)
                to[(S * j + e) * D + b] +=
                    continuous ? weighted_sum<P>(continuous_tables<row>::sample_value[e], carried, values)
                               : weighted_sum<P>(tables::sample_value[e], values);
        });
    for (std::int64_t j = 1; j < steps; ++j)
        for (std::int64_t b = 0; b < D; ++b)
            to[S * j * D + b] *= 0.5;
}

template <int row, class dimension>
bool vie1_solve(view<const double> g, view<const double> K, dimension dim, view<const double> y0, double dt,
                bool want_coeffs, bool continuous, view<double> out, view<double> coeffs, int* n_steps) {
    using tables = row_tables<row>;
    constexpr int P = tables::P;
    constexpr int S = tables::S;
    const int D = dim.D;

    const double h = double(S) * dt;
    const std::int32_t samples = faulting_quotient(static_cast<std::int32_t>(K.length), wrapping_product(D, D));
    const std::int32_t steps = wrapping_sum(samples, -1) / S;
    *n_steps = steps;
    // Looked at first: a dimension below 1, which has no first value, is fatal.
    const double* const first_carried = continuous ? &y0.at(0) : nullptr;

    // The blocks are built before anything else is decided, so that a kernel too short for them is fatal even where
    // there is no step.
    step_system<P, dimension> system{dim};
    const std::int64_t n_sys = system.n_sys;
    std::vector<double> start_block; // h * C0, row-major, n_sys by D
    if (continuous) {
        start_block.resize(n_sys * D);
        const auto value = [](int i, int q, int l) {
            return continuous_tables<row>::present[i][q][l];
        };
        visit_present_step<row, P + 1>(K, D, value, [&](int r, int b, int l, double sum) {
            if (l == 0)
                start_block[std::int64_t{r} * D + b] = h * -sum;
            else
                system.at(r, b * P + l - 1) = h * sum;
        });
    } else {
        const auto value = [](int i, int q, int l) {
            return tables::present[i].value[q][l];
        };
        visit_present_step<row, P>(K, D, value,
                                   [&](int r, int b, int l, double sum) { system.at(r, b * P + l) = h * sum; });
    }

    vie1_solution solution;
    solution.U.resize(n_sys * steps);
    lag_block_context<dimension> context{K, h, dim};
    ToeplitzHistory history;
    history.init(steps, static_cast<std::int32_t>(n_sys), static_cast<std::int32_t>(n_sys));
    history.set_kernel_provider(&context, lag_block_provider<row, dimension>);
    if (continuous) {
        solution.carried.resize((std::int64_t{steps} + 1) * D);
        std::copy_n(first_carried, D, solution.carried.data());
    }
    if (steps == 0) {
        std::fill_n(out.pointer, out.length, 0.0);
        return true;
    }

    const double* forcing = g.slice(0, std::uint64_t((std::int64_t{steps} * S + 1) * D)).pointer;
    double* const rhs = system.rhs();
    for (std::int32_t j = 0; j < steps; ++j, forcing += S * D) {
        for (int b = 0; b < D; ++b)
            for (int i = 0; i < P; ++i)
                rhs[b * P + i] = forcing[tables::m * tables::k[i] * D + b];
        const double* const past = history.history_at(j).pointer;
        const double* const carried = solution.carried.data() + std::int64_t{j} * D;
        for (std::int64_t r = 0; r < n_sys; ++r) {
            rhs[r] -= past[r];
            if (continuous)
                for (int c = 0; c < D; ++c)
                    rhs[r] += start_block[r * D + c] * carried[c];
        }
        if (!system.solve())
            return false;
        double* const U = solution.U.data() + j * n_sys;
        std::copy_n(rhs, n_sys, U);
        history.push({std::uint64_t(n_sys), U});
        if (continuous)
            for (int b = 0; b < D; ++b)
                solution.carried[(std::int64_t{j} + 1) * D + b] =
                    weighted_sum<P>(continuous_tables<row>::end_value, carried[b], U + b * P);
    }

    if (want_coeffs)
        vie1_write_coefficients<row>(solution, steps, D, continuous, coeffs);
    std::fill_n(out.pointer, out.length, 0.0);
    vie1_write_samples<row>(solution, steps, D, continuous, out);
    return true;
}

} // namespace quenta
