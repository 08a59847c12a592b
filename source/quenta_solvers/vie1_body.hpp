// The collocation scheme of the first-kind equation, on steps of length h = S * dt with P nodes c_i = k_i / m.
//
// At every node the quadrature rule of the nodes replaces the integral over the finished steps by the history, and the
// integral over the piece of the present step by a rule on the points c_i * c_q:
//
//     A0 U_j = G_j - history_j                    the polynomial of a step lives on the nodes c_1 .. c_P
//     A0 U_j = G_j - history_j + h C0 B_j         continuous: it also starts at B_j, the end of the step before
//
// (H. Brunner, Collocation Methods for Volterra Integral and Related Functional Equations, Cambridge University Press
// 2004, section 2.4.) With many settings errors of the continuous form grow from step to step, also with some where it
// does not extrapolate (c_P = 1). That is the scheme; nothing here damps it.
#pragma once

#include "quenta_solvers/collocation_blocks.hpp"
#include "quenta_solvers/step_output.hpp"
#include "quenta_solvers/step_system.hpp"
#include "quenta_solvers/vie1.hpp"
#include "utility/integers.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {

// C0 of the continuous form, from the present-step block of its basis: row-major, n_sys by D.
template <int row>
void start_value_block(view<const double> raw, std::int64_t D, view<double> block) {
    constexpr int P = row_tables<row>::P;
    for (std::int64_t cell = 0; cell < P * D * D; ++cell)
        block.pointer[cell] = -raw.pointer[cell * (P + 1)]; // the polynomial of the carried value stands first
}

// U_j stands at j * P * D, and in the continuous form B_j at j * D.
template <int row, class basis>
[[gnu::noinline]] void write_vie1(const output_arrays& to, const double* U, const double* B) {
    constexpr int P = row_tables<row>::P;
    constexpr int terms = int(basis::lambda.size());
    constexpr int carried = terms - P; // the polynomial goes through B_j, then through U_j
    // A value of the polynomial of step j, or one of its coefficients. The sum starts from its first term.
    const auto weighted_sum = [=, D = to.D](std::int64_t j, std::int64_t b, const auto& weight) {
        const double* const values = U + (j * D + b) * P;
        double sum = weight(0) * (carried ? B[j * D + b] : values[0]);
        for (int l = 1; l < terms; ++l)
            sum += weight(l) * values[l - carried];
        return sum;
    };
    const auto coefficient = [&](std::int64_t j, std::int64_t b, int power) {
        return weighted_sum(j, b, [power](int l) { return basis::lambda[l][power]; });
    };
    const auto value = [&](std::int64_t j, std::int64_t b, int e) {
        return weighted_sum(j, b, [e](int l) { return basis::sample_value[e][l]; });
    };
    write_output<row_tables<row>::S>(to, P + 1, terms, coefficient, value);
}

template <int row, class dimension>
bool march_vie1(const vie1_arguments& arguments, dimension dim) {
    const auto& [g, K, y0, dt, want_coeffs, continuous, out, coeffs, n_steps] = arguments;
    using tables = row_tables<row>;
    constexpr int P = tables::P;
    constexpr int S = tables::S;
    const std::int64_t D = dim.D;

    // Looked at first: a dimension below 1 has no first value, which is fatal before anything else can be.
    if (continuous)
        static_cast<void>(y0.at(0));
    const double h = double(S) * dt;
    const std::int32_t steps = wrapping_sum(sample_count(K, dim.D), -1) / S;
    *n_steps = steps;

    // The blocks are built before anything else is decided, so that a kernel too short for them is fatal even where
    // there is no step.
    step_system<P, dimension> system{dim};
    const std::int64_t n_sys = system.n_sys;
    auto start_block = make_blocks<P>(dim, continuous); // h * C0
    if (continuous) {
        auto raw = make_blocks<P*(P + 1)>(dim);
        diagonal_block<row, continuous_tables<row>>(K, D, whole(raw));
        for (std::int64_t r = 0; r < n_sys; ++r)
            for (std::int64_t b = 0; b < D; ++b)
                for (int l = 0; l < P; ++l)
                    system.at(int(r), int(b * P + l)) = h * raw[(r * D + b) * (P + 1) + l + 1];
        start_value_block<row>(whole(raw), D, whole(start_block));
        for (double& cell : start_block)
            cell = h * cell;
    } else {
        auto raw = make_blocks<P * P>(dim);
        diagonal_block<row, tables>(K, D, whole(raw));
        for (std::int64_t r = 0; r < n_sys; ++r)
            for (std::int64_t c = 0; c < n_sys; ++c)
                system.at(int(r), int(c)) = h * raw[r * n_sys + c];
    }

    std::vector<double> U(n_sys * steps); // U_j at j * n_sys
    std::vector<double> B;                // continuous: B_j at j * D
    lag_block_context<dimension> context{K, h, dim};
    ToeplitzHistory history;
    history.init(steps, static_cast<std::int32_t>(n_sys), static_cast<std::int32_t>(n_sys));
    history.set_kernel_provider(&context, lag_block<row, dimension>);
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
    const double* forcing = g.slice(0, std::uint64_t((std::int64_t{steps} * S + 1) * D)).pointer;
    double* const rhs = system.rhs();
    for (std::int32_t j = 0; j < steps; ++j, forcing += S * D) {
        gather_node_forcing<row>(forcing, D, rhs);
        const double* const past = history.history_at(j).pointer;
        for (std::int64_t r = 0; r < n_sys; ++r) {
            rhs[r] -= past[r];
            if (continuous)
                for (int c = 0; c < D; ++c)
                    rhs[r] += start_block[r * D + c] * B[j * D + c];
        }
        system.solve();
        const view<double> solved{std::uint64_t(n_sys), U.data() + j * n_sys};
        std::copy_n(rhs, n_sys, solved.pointer);
        history.push(solved);
        if (continuous)
            for (int b = 0; b < D; ++b) {
                constexpr auto& weight = continuous_tables<row>::end_value;
                double end = weight[0] * B[j * D + b];
                for (int l = 0; l < P; ++l)
                    end += weight[l + 1] * solved.pointer[b * P + l];
                B[(j + 1) * D + b] = end;
            }
    }

    const output_arrays to{steps, D, want_coeffs, out, coeffs, output_order::coefficients};
    if (continuous)
        write_vie1<row, continuous_tables<row>>(to, U.data(), B.data());
    else
        write_vie1<row, tables>(to, U.data(), nullptr);
    return true;
}

template <int row, int D>
bool vie1_solve(const vie1_arguments& arguments) {
    return march_vie1<row>(arguments, fixed_dimension<D>{});
}

template <int row>
bool vie1_solve_any(const vie1_arguments& arguments, int D) {
    return march_vie1<row>(arguments, run_time_dimension{D});
}

template <int row>
bool vie1_solve_row(const vie1_arguments& arguments, int D) {
    constexpr auto own = of_every_dimension([]<int own_D>() { return vie1_solve<row, own_D>; });
    return has_own_variant(D) ? own[D - 1](arguments) : vie1_solve_any<row>(arguments, D);
}

} // namespace quenta
