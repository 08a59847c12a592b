// The collocation scheme of the scalar second-kind equation, on steps of length h = S * dt with P nodes c_i = k_i / m.
//
// The unknowns U[n][i] are the values of the solution at the collocation points t_n + c_i h, and
//
//     U[n][i] = g(t_n + c_i h) + T[n][i] + Q[n][i],
//
// where the quadrature rule of the nodes replaces the integral over the finished steps by the history Q, and the
// integral over the part [t_n, t_n + c_i h] of the present step by T (H. Brunner, Collocation Methods for Volterra
// Integral and Related Functional Equations, Cambridge University Press 2004, section 2.2).
#pragma once

#include "quenta_solvers/dense_solve.hpp"
#include "quenta_solvers/row_tables.hpp"
#include "quenta_solvers/vie2_scalar.hpp"
#include "toeplitz_history/toeplitz_history.hpp"
#include "utility/ieee.hpp"
#include "utility/integers.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace quenta {

// What the kernel provider needs. The history keeps a pointer to it for the length of the solve.
struct vie2_history_context {
    view<const double> K;
    double h;
};

template <int row>
using vie2_step_values = std::array<double, row_tables<row>::P>;

// A block of a step is filled with this until its cells are known, so that a forgotten cell shows in the result.
template <int n>
constexpr std::array<double, n> unfilled() {
    std::array<double, n> block{};
    block.fill(ieee::quiet_nan);
    return block;
}

// W[i][l] = sum over q of (K[k_i (m - k_q)] * (c_i * b_q)) * L_l(c_i * c_q), so that T = h * W * U. A factor of zero is
// a factor like any other: a non-finite sample spoils its row through it.
template <int row>
square_matrix<row_tables<row>::P> vie2_present_block(view<const double> K) {
    using tables = row_tables<row>;
    const double* const sample = K.slice(0, tables::present_samples).pointer;
    square_matrix<tables::P> W{};
    for (int i = 0; i < tables::P; ++i)
        for (int l = 0; l < tables::P; ++l) {
            double sum = 0.0;
            for (int q = 0; q < tables::P; ++q)
                sum +=
                    (sample[tables::present[i].lag[q]] * tables::present[i].weight[q]) * tables::present[i].value[q][l];
            W[i][l] = sum;
        }
    return W;
}

// A = I - h * W, the matrix of every step.
template <int row>
square_matrix<row_tables<row>::P> vie2_step_matrix(const square_matrix<row_tables<row>::P>& W, double h) {
    square_matrix<row_tables<row>::P> A;
    for (int i = 0; i < row_tables<row>::P; ++i)
        for (int l = 0; l < row_tables<row>::P; ++l)
            A[i][l] = (i == l ? 1.0 : 0.0) - h * W[i][l];
    return A;
}

// B[j][i][l] = h * (b_l * K[j S + (k_i - k_l) m]): the block of lag j.
template <int row>
void vie2_history_provider(void* context, std::int32_t j, ToeplitzHistory& history) {
    using tables = row_tables<row>;
    constexpr int reach = (tables::k[tables::P - 1] - tables::k[0]) * tables::m;
    const auto& [K, h] = *static_cast<const vie2_history_context*>(context);
    const std::int64_t lag = std::int64_t{j} * tables::S;
    const double* const sample = K.slice(std::uint64_t(lag - reach), 2 * reach + 1).pointer + reach;
    for (int i = 0; i < tables::P; ++i) {
        double* const block_row = history.kernel_row(j, i).pointer;
        for (int l = 0; l < tables::P; ++l)
            block_row[l] = h * (tables::b[l] * sample[(tables::k[i] - tables::k[l]) * tables::m]);
    }
}

// The power coefficients of u_n(s) = sum over l of U[n][l] * L_l(s), ascending.
template <int row>
vie2_step_values<row> vie2_step_polynomial(std::int64_t n, const std::vector<vie2_step_values<row>>& U) {
    using tables = row_tables<row>;
    vie2_step_values<row> coefficients = unfilled<tables::P>();
    for (int p = 0; p < tables::P; ++p) {
        double sum = 0.0;
        for (int l = 0; l < tables::P; ++l)
            sum += U[n][l] * tables::lambda[l][p];
        coefficients[p] = sum;
    }
    return coefficients;
}

// Adjacent steps both have a value at their common sample; the samples between report the mean of the two.
template <int row>
void vie2_write_samples(const std::vector<vie2_step_values<row>>& U, view<double> out) {
    using tables = row_tables<row>;
    const std::int64_t steps = std::int64_t(U.size());
    double* step_out = out.slice(0, std::uint64_t(steps * tables::S + 1)).pointer;
    for (const vie2_step_values<row>& values : U) {
        for (int e = 0; e <= tables::S; ++e) {
            double sum = 0.0;
            for (int l = 0; l < tables::P; ++l)
                sum += values[l] * tables::sample_value[e][l];
            step_out[e] += sum;
        }
        step_out += tables::S;
    }
    for (std::int64_t j = 1; j < steps; ++j)
        out.pointer[j * tables::S] *= 0.5;
}

template <int row>
void vie2_write_coefficients(const std::vector<vie2_step_values<row>>& U, view<double> coeffs) {
    constexpr int P = row_tables<row>::P;
    for (std::int64_t n = 0; n < std::int64_t(U.size()); ++n) {
        // A step has P + 1 slots; its last one belongs to forms of a higher degree and is left alone.
        const view<double> slots = coeffs.slice(std::uint64_t(n * (P + 1)), P);
        const vie2_step_values<row> polynomial = vie2_step_polynomial<row>(n, U);
        std::copy(polynomial.begin(), polynomial.end(), slots.pointer);
    }
}

template <int row>
bool solve_vie2_impl(view<const double> g, view<const double> K, double dt, bool want_coeffs, view<double> out,
                     view<double> coeffs, int* steps_out) {
    using tables = row_tables<row>;
    constexpr int P = tables::P;
    constexpr int S = tables::S;

    const double h = dt * double(S);
    vie2_history_context context{K, h};
    const std::int32_t samples = guarded_int(K.length);
    const std::int32_t steps = (samples - 1) / S;
    *steps_out = steps;

    // Before anything else is decided, so that a kernel too short for it is fatal even where there is no step.
    const square_matrix<P> A = vie2_step_matrix<row>(vie2_present_block<row>(K), h);

    std::vector<vie2_step_values<row>> U(static_cast<std::size_t>(steps));
    ToeplitzHistory history;
    history.init(steps, P, P);
    history.set_kernel_provider(&context, vie2_history_provider<row>);

    if (steps == 0) {
        std::fill_n(out.pointer, out.length, 0.0);
        return true;
    }

    const double* forcing = g.slice(0, std::uint64_t(std::int64_t{steps} * S + 1)).pointer;
    for (std::int32_t n = 0; n < steps; ++n, forcing += S) {
        const double* const Q = history.history_at(n).pointer;
        std::array<double, P> rhs = unfilled<P>();
        for (int i = 0; i < P; ++i)
            rhs[i] = forcing[tables::k[i] * tables::m] + Q[i];
        square_matrix<P> factors = A; // eliminated anew at every step; it is overwritten
        bool regular = false;
        U[n] = solve_dense_fixed<P>(factors, rhs, regular);
        if (!regular)
            return false;
        history.push({P, U[n].data()});
    }

    if (want_coeffs)
        vie2_write_coefficients<row>(U, coeffs);
    std::fill_n(out.pointer, out.length, 0.0);
    vie2_write_samples<row>(U, out);
    return true;
}

} // namespace quenta
