// The collocation scheme of the second-kind equation, on steps of length h = S * dt with P nodes c_i = k_i / m.
//
// The unknowns U[n] of a step are the values of the solution at the collocation points t_n + c_i h, and
//
//     U[n] = G[n] + Q[n] + h W U[n],     so that     (I - h W) U[n] = G[n] + Q[n],
//
// where the quadrature rule of the nodes replaces the integral over the previous steps by the history Q, and the table
// W replaces the integral over the part [t_n, t_n + c_i h] of the current step (H. Brunner, Collocation Methods for
// Volterra Integral and Related Functional Differential Equations, Cambridge University Press 2004, section 2.2).
#pragma once

#include "quenta_solvers/collocation_blocks.hpp"
#include "quenta_solvers/step_output.hpp"
#include "quenta_solvers/step_system.hpp"
#include "quenta_solvers/vie2.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {

// I - h W into the matrix A of the step. `W` is scratch. All dimensions share this code.
template <int P>
[[gnu::noinline]] void fill_vie2_system(const collocation_scheme<P>& scheme, view<const double> K, std::int64_t D,
                                        double h, view<double> W, const matrix_cells& A) {
    diagonal_block(scheme, scheme.nodes, K, D, W);
    const double* cell = W.pointer;
    for (std::int64_t R = 0; R < P * D; ++R)
        for (std::int64_t C = 0; C < P * D; ++C)
            A.at(R, C) = (R == C ? 1.0 : 0.0) - h * *cell++;
}

// U[n] stands at n * P * D.
template <int P>
[[gnu::noinline]] void write_vie2(const basis_table<P, P, P>& basis, const output_arrays& to, const double* U) {
    // The sum starts from 0.0.
    write_output(to, basis, [=, D = to.D](std::int64_t n, std::int64_t a, sum_of, const auto& weight) {
        const double* const values = U + (n * D + a) * P;
        double sum = 0.0;
        for (int j = 0; j < P; ++j)
            sum += values[j] * weight(j);
        return sum;
    });
}

// `samples` is the number of samples. The scalar and the vector form derive it from the length of K in their own ways.
template <int P, class dimension>
bool march_vie2(const collocation_scheme<P>& scheme, std::int32_t samples, const vie2_arguments& arguments,
                dimension dim, output_order first) {
    const auto& [g, K, dt, want_coeffs, out, coeffs, n_steps] = arguments;
    const std::int64_t D = dim.D, S = scheme.S;

    const double h = dt * double(S);
    const std::int32_t steps = whole_steps(scheme, samples);
    *n_steps = steps;

    // Without a step too, a kernel that is too short for the matrix is fatal.
    step_system<P, dimension> system{dim};
    const std::int64_t n_sys = system.n_sys;
    auto W = make_blocks<P * P>(dim);
    fill_vie2_system(scheme, K, D, h, whole(W), system.cells());

    std::vector<double> U(n_sys * steps); // U[n] at n * n_sys
    lag_block_context<P, dimension> context{scheme, K, h, dim};
    ToeplitzHistory history;
    history.init(steps, static_cast<std::int32_t>(n_sys), static_cast<std::int32_t>(n_sys));
    history.set_kernel_provider(&context, lag_block<P, dimension>);
    if (steps == 0) {
        clear_samples(out);
        return true;
    }

    if (!system.eliminate())
        return false;
    const double* forcing = samples_of_steps(scheme, g, steps, D);
    double* const rhs = system.rhs();
    for (std::int32_t n = 0; n < steps; ++n, forcing += S * D) {
        gather_node_forcing(scheme, forcing, D, rhs);
        const double* const Q = history.history_at(n).pointer;
        for (std::int64_t R = 0; R < n_sys; ++R)
            rhs[R] += Q[R];
        system.solve();
        double* const solved = U.data() + n * n_sys;
        std::copy_n(rhs, n_sys, solved);
        history.push({std::uint64_t(n_sys), solved});
    }

    write_vie2(scheme.nodes, {steps, S, D, want_coeffs, out, coeffs, first}, U.data());
    return true;
}

template <int row>
bool solve_vie2_impl(const vie2_arguments& arguments) {
    return march_vie2(scheme_of_row<row>, guarded_int(arguments.K.length), arguments, fixed_dimension<1>{},
                      output_order::cleared_samples);
}

template <int row, int D>
bool solve_vie2_vec_impl(const vie2_arguments& arguments) {
    return march_vie2(scheme_of_row<row>, sample_count(arguments.K, D), arguments, fixed_dimension<D>{},
                      output_order::coefficients);
}

template <int row>
bool solve_vie2_vec_any_impl(const vie2_arguments& arguments, int D) {
    return march_vie2(scheme_of_row<row>, sample_count(arguments.K, D), arguments, run_time_dimension{D},
                      output_order::coefficients);
}

template <int row>
bool solve_vie2_vec_row(const vie2_arguments& arguments, int D) {
    constexpr auto own = of_every_dimension([]<int own_D>() { return &solve_vie2_vec_impl<row, own_D>; });
    return has_own_variant(D) ? own[D - 1](arguments) : solve_vie2_vec_any_impl<row>(arguments, D);
}

} // namespace quenta
