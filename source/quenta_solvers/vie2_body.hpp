// The collocation scheme of the second-kind equation, on steps of length h = S * dt with P nodes c_i = k_i / m.
//
// The unknowns U[n] of a step are the values of the solution at the collocation points t_n + c_i h, and
//
//     U[n] = G[n] + Q[n] + h W U[n],     so that     (I - h W) U[n] = G[n] + Q[n],
//
// where the quadrature rule of the nodes replaces the integral over the finished steps by the history Q, and the
// integral over the part [t_n, t_n + c_i h] of the present step by the table W (H. Brunner, Collocation Methods for
// Volterra Integral and Related Functional Equations, Cambridge University Press 2004, section 2.2).
#pragma once

#include "quenta_solvers/collocation_blocks.hpp"
#include "quenta_solvers/step_output.hpp"
#include "quenta_solvers/step_system.hpp"
#include "quenta_solvers/vie2.hpp"
#include "utility/integers.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {

// U[n] stands at n * P * D.
template <int row>
[[gnu::noinline]] void write_vie2(const output_arrays& to, const double* U) {
    using tables = row_tables<row>;
    constexpr int P = tables::P;
    // A value of the polynomial of step n, or one of its coefficients. The sum starts from 0.0.
    const auto weighted_sum = [=, D = to.D](std::int64_t n, std::int64_t b, const auto& weight) {
        const double* const values = U + (n * D + b) * P;
        double sum = 0.0;
        for (int l = 0; l < P; ++l)
            sum += values[l] * weight(l);
        return sum;
    };
    const auto vie2_step_polynomial = [&](std::int64_t n, std::int64_t b, int power) {
        return weighted_sum(n, b, [power](int l) { return tables::lambda[l][power]; });
    };
    const auto vie2_step_value = [&](std::int64_t n, std::int64_t b, int e) {
        return weighted_sum(n, b, [e](int l) { return tables::sample_value[e][l]; });
    };
    write_output<tables::S>(to, P + 1, P, vie2_step_polynomial, vie2_step_value);
}

// From `samples` samples, and everything else from the arrays as they come.
template <int row, class dimension>
bool march_vie2(std::int32_t samples, const vie2_arguments& arguments, dimension dim, output_order first) {
    const auto& [g, K, dt, want_coeffs, out, coeffs, n_steps] = arguments;
    using tables = row_tables<row>;
    constexpr int P = tables::P;
    constexpr int S = tables::S;
    const std::int64_t D = dim.D;

    const double h = dt * double(S);
    const std::int32_t steps = wrapping_sum(samples, -1) / S;
    *n_steps = steps;

    // The matrix is built before anything else is decided, so that a kernel too short for it is fatal even where there
    // is no step.
    step_system<P, dimension> system{dim};
    const std::int64_t n_sys = system.n_sys;
    auto W = make_blocks<P * P>(dim);
    diagonal_block<row, tables>(K, D, whole(W));
    for (std::int64_t r = 0; r < n_sys; ++r)
        for (std::int64_t c = 0; c < n_sys; ++c)
            system.at(int(r), int(c)) = (r == c ? 1.0 : 0.0) - h * W[r * n_sys + c];

    std::vector<double> U(n_sys * steps); // U[n] at n * n_sys
    lag_block_context<dimension> context{K, h, dim};
    ToeplitzHistory history;
    history.init(steps, static_cast<std::int32_t>(n_sys), static_cast<std::int32_t>(n_sys));
    history.set_kernel_provider(&context, lag_block<row, dimension>);
    if (steps == 0) {
        clear_samples(out);
        return true;
    }

    if (!system.eliminate())
        return false;
    const double* forcing = g.slice(0, std::uint64_t((std::int64_t{steps} * S + 1) * D)).pointer;
    double* const rhs = system.rhs();
    for (std::int32_t n = 0; n < steps; ++n, forcing += S * D) {
        gather_node_forcing<row>(forcing, D, rhs);
        const double* const Q = history.history_at(n).pointer;
        for (std::int64_t r = 0; r < n_sys; ++r)
            rhs[r] += Q[r];
        system.solve();
        const view<double> solved{std::uint64_t(n_sys), U.data() + n * n_sys};
        std::copy_n(rhs, n_sys, solved.pointer);
        history.push(solved);
    }

    write_vie2<row>({steps, D, want_coeffs, out, coeffs, first}, U.data());
    return true;
}

template <int row>
bool solve_vie2_impl(const vie2_arguments& arguments) {
    return march_vie2<row>(guarded_int(arguments.K.length), arguments, fixed_dimension<1>{},
                           output_order::cleared_samples);
}

template <int row, int D>
bool solve_vie2_vec_impl(const vie2_arguments& arguments) {
    return march_vie2<row>(sample_count(arguments.K, D), arguments, fixed_dimension<D>{}, output_order::coefficients);
}

template <int row>
bool solve_vie2_vec_any_impl(const vie2_arguments& arguments, int D) {
    return march_vie2<row>(sample_count(arguments.K, D), arguments, run_time_dimension{D}, output_order::coefficients);
}

template <int row>
bool solve_vie2_vec_row(const vie2_arguments& arguments, int D) {
    constexpr auto own = of_every_dimension([]<int own_D>() { return solve_vie2_vec_impl<row, own_D>; });
    return has_own_variant(D) ? own[D - 1](arguments) : solve_vie2_vec_any_impl<row>(arguments, D);
}

} // namespace quenta
