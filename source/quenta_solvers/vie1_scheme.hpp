// The collocation scheme of the first-kind equation, on steps of length h = S * dt with P nodes c_i = k_i / m.
//
// At every node, the quadrature rule of the nodes replaces the integral over the previous steps by the history, and a
// rule on the points c_i * c_q replaces the integral over the current step:
//
//     A0 U_n = G_n - history_n                    the polynomial of a step lives on the nodes c_1 .. c_P
//     A0 U_n = G_n - history_n + h C0 B_n         continuous: it also passes through B_n, the end value of the
//                                                 previous step
//
// (H. Brunner, Collocation Methods for Volterra Integral and Related Functional Differential Equations, Cambridge
// University Press 2004, section 2.4.) With many settings the errors of the continuous form grow from step to step,
// with some of them even where it does not extrapolate (c_P = 1). This is a property of the scheme, and nothing here
// damps it.
#pragma once

#include "quenta_solvers/collocation_blocks.hpp"
#include "quenta_solvers/step_output.hpp"
#include "quenta_solvers/step_system.hpp"
#include "quenta_solvers/vie1.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {

// C0 of the continuous form, from the block of the current step in its basis: row-major, n_sys by D.
template <int P>
void start_value_block(view<const double> raw, std::int64_t D, view<double> block) {
    for (std::int64_t cell = 0; cell < P * D * D; ++cell)
        block.pointer[cell] = -raw.pointer[cell * (P + 1)]; // the polynomial of the carried value comes first
}

// h * A0 into the matrix A of the step and, in the continuous form, h * C0 into `start_block`. `raw` is scratch for the
// block of the basis. All dimensions share this code.
template <int P, class basis_type>
[[gnu::noinline]] void fill_vie1_system(const collocation_scheme<P>& scheme, const basis_type& basis,
                                        view<const double> K, std::int64_t D, double h, view<double> raw,
                                        const matrix_cells& A, view<double> start_block) {
    constexpr int carried = basis_type::size - P;
    diagonal_block(scheme, basis, K, D, raw);
    const double* cell = raw.pointer;
    for (std::int64_t R = 0; R < P * D; ++R)
        for (std::int64_t b = 0; b < D; ++b) {
            cell += carried;
            for (int j = 0; j < P; ++j)
                A.at(R, b * P + j) = h * *cell++;
        }
    if (carried) {
        start_value_block<P>(raw, D, start_block);
        for (std::int64_t entry = 0; entry < P * D * D; ++entry)
            start_block.pointer[entry] = h * start_block.pointer[entry];
    }
}

// The same in either form, with scratch for this dimension.
template <int P, class dimension>
void build_vie1_system(const collocation_scheme<P>& scheme, view<const double> K, double h, bool continuous,
                       dimension dim, const matrix_cells& A, view<double> start_block) {
    if (continuous) {
        auto raw = make_blocks<P*(P + 1)>(dim);
        fill_vie1_system(scheme, scheme.continuous, K, dim.D, h, whole(raw), A, start_block);
    } else {
        auto raw = make_blocks<P * P>(dim);
        fill_vie1_system(scheme, scheme.nodes, K, dim.D, h, whole(raw), A, {});
    }
}

// B_(n+1): the polynomial of step n at its end.
template <int P, class dimension>
void carry_vie1(const std::array<double, P + 1>& weight, const double* U, const double* B, dimension dim,
                double* next) {
    for (std::int64_t a = 0; a < dim.D; ++a) {
        double end = weight[0] * B[a];
        for (int j = 0; j < P; ++j)
            end += weight[j + 1] * U[a * P + j];
        next[a] = end;
    }
}

// U_n stands at n * P * D and, in the continuous form, B_n at n * D.
template <int P, class basis_type>
[[gnu::noinline]] void write_vie1(const basis_type& basis, const output_arrays& to, const double* U, const double* B) {
    constexpr int terms = basis_type::size;
    constexpr int carried = terms - P; // the polynomial passes through B_n, then through U_n
    // The sum starts from its first term.
    write_output(to, basis, [=, D = to.D](std::int64_t n, std::int64_t a, sum_of, const auto& weight) {
        const double* const values = U + (n * D + a) * P;
        double sum = weight(0) * (carried ? B[n * D + a] : values[0]);
        for (int j = 1; j < terms; ++j)
            sum += weight(j) * values[j - carried];
        return sum;
    });
}

template <int P, class dimension>
bool march_vie1(const collocation_scheme<P>& scheme, const vie1_arguments& arguments, dimension dim) {
    const auto& [g, K, y0, dt, want_coeffs, continuous, out, coeffs, n_steps] = arguments;
    const std::int64_t D = dim.D, S = scheme.S;

    if (continuous)
        static_cast<void>(y0.at(0)); // for a dimension below 1 this failure comes before every other
    const double h = double(S) * dt;
    const std::int32_t steps = whole_steps(scheme, sample_count(K, dim.D));
    *n_steps = steps;

    // Without a step too, a kernel that is too short for the matrix is fatal.
    step_system<P, dimension> system{dim};
    const std::int64_t n_sys = system.n_sys;
    auto start_block = make_blocks<P>(dim, continuous);
    build_vie1_system(scheme, K, h, continuous, dim, system.cells(), whole(start_block));

    std::vector<double> U(n_sys * steps); // U_n at n * n_sys
    std::vector<double> B;                // continuous: B_n at n * D
    lag_block_context<P, dimension> context{scheme, K, h, dim};
    ToeplitzHistory history;
    history.init(steps, static_cast<std::int32_t>(n_sys), static_cast<std::int32_t>(n_sys));
    history.set_kernel_provider(&context, lag_block<P, dimension>);
    if (continuous) {
        B.resize((std::int64_t{steps} + 1) * D);
        std::copy_n(y0.slice(0, std::uint64_t(D)).pointer, D, B.data());
    }
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
        const double* const past = history.history_at(n).pointer;
        for (std::int64_t R = 0; R < n_sys; ++R) {
            rhs[R] -= past[R];
            if (continuous)
                for (std::int64_t b = 0; b < D; ++b)
                    rhs[R] += start_block[R * D + b] * B[n * D + b];
        }
        system.solve();
        double* const solved = U.data() + n * n_sys;
        std::copy_n(rhs, n_sys, solved);
        history.push({std::uint64_t(n_sys), solved});
        if (continuous)
            carry_vie1<P>(scheme.carried_weight, solved, B.data() + n * D, dim, B.data() + (n + 1) * D);
    }

    const output_arrays to{steps, S, D, want_coeffs, out, coeffs, output_order::coefficients};
    if (continuous)
        write_vie1<P>(scheme.continuous, to, U.data(), B.data());
    else
        write_vie1<P>(scheme.nodes, to, U.data(), nullptr);
    return true;
}

template <int row, int D>
bool vie1_solve(const vie1_arguments& arguments) {
    return march_vie1(scheme_of_row<row>, arguments, fixed_dimension<D>{});
}

template <int row>
bool vie1_solve_any(const vie1_arguments& arguments, int D) {
    return march_vie1(scheme_of_row<row>, arguments, run_time_dimension{D});
}

template <int row>
bool vie1_solve_row(const vie1_arguments& arguments, int D) {
    constexpr auto own = of_every_dimension([]<int own_D>() { return &vie1_solve<row, own_D>; });
    return has_own_variant(D) ? own[D - 1](arguments) : vie1_solve_any<row>(arguments, D);
}

} // namespace quenta
