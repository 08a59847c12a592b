// The collocation scheme of the integro-differential equation, on steps of length h = S * dt with P nodes c_i = k_i /
// m.
//
// The unknowns Z[n] of a step are the values of the derivative at the collocation points t_n + c_i h. The solution is
// continuous: on step n it is y[n] + h * (sum over j of Z[n][j] B_j(s)), with the integrals B_j of the basis
// polynomials, and its end is y[n + 1]. In these unknowns the equation at the nodes is
//
//     (I - h Ba - h h W) Z[n] = Ya y[n] + G[n] + Q[n],     Ba = a B_j(c_i),  Ya = a + h V,
//
// where a is the coefficient at the nodes, the quadrature rule of the nodes replaces the integral over the finished
// steps by the history Q, and the integral over the part [t_n, t_n + c_i h] of the present step by the tables V and W
// (H. Brunner, Collocation Methods for Volterra Integral and Related Functional Equations, Cambridge University Press
// 2004, chapter 3).
#pragma once

#include "quenta_solvers/collocation_blocks.hpp"
#include "quenta_solvers/step_output.hpp"
#include "quenta_solvers/step_system.hpp"
#include "quenta_solvers/vide.hpp"
#include "utility/integers.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {

// One scheme, rounded in three ways on purpose: a body keeps its own grouping of these formulas, so that its results
// stay what they are. Everything else is common.
//
//   y_coefficient   an entry of Ya; sum is the kernel's part of it, without the factors c and h
//   matrix_entry    an entry of the step's matrix; e is that of the identity
//   end_weight      of h * Z[n][j] in y[n + 1], from b_j and B_j(1), which are the same number before rounding
struct scalar_rounding {
    static double y_coefficient(double a, double sum, double c, double h) { return a + (sum * c) * h; }
    static double matrix_entry(double e, double W, double Ba, double h) { return e - (W * h + Ba) * h; }
    static constexpr double end_weight(double, double B_at_end) { return B_at_end; }
};
struct vector_rounding {
    static double y_coefficient(double a, double sum, double c, double h) { return sum * (c * h) + a; }
    static double matrix_entry(double e, double W, double Ba, double h) { return e - ((h * h) * W + h * Ba); }
    static constexpr double end_weight(double b, double) { return b; }
};
struct any_dimension_rounding : vector_rounding {
    static double matrix_entry(double e, double W, double Ba, double h) { return (e - h * Ba) - (h * h) * W; }
};

// Kernel provider: the block of lag d, row-major. With x_l = K[d S + (k_i - k_l) m](r, c) * b_l, the
// entry for row r, i is (h * h) * (sum over l of x_l * B_j(c_l)) in the column of Z component c at node j, and h * (sum
// over l of x_l) in that of y component c; these come last.
template <int row, class dimension>
void vide_history_provider(void* context, std::int32_t d, ToeplitzHistory& history) {
    using tables = row_tables<row>;
    constexpr int P = tables::P;
    const auto& [K, h, dim] = *static_cast<const lag_block_context<dimension>*>(context);
    const std::int64_t D = dim.D;
    const double* const samples = lag_samples<row>(K, D, d);
    double* z = history.kernel_block(d).pointer;
    for (std::int64_t r = 0; r < D; ++r)
        for (int i = 0; i < P; ++i) {
            double* const y = z + P * D;
            for (std::int64_t c = 0; c < D; ++c) {
                double y_sum = 0.0;
                typename tables::template per_node<double> z_sum{};
                for (int l = 0; l < P; ++l) {
                    const std::int64_t sample = (tables::k[i] - tables::k[l]) * tables::m;
                    const double x = samples[(sample * D + r) * D + c] * tables::b[l];
                    y_sum += x;
                    for (int j = 0; j < P; ++j)
                        z_sum[j] += x * integrated_tables<row>::node_value[l][j];
                }
                for (int j = 0; j < P; ++j)
                    *z++ = (h * h) * z_sum[j];
                y[c] = h * y_sum;
            }
            z = y + D;
        }
}

// What the kernel adds to Ya, the same in every step: [r * P + i][c] is the sum over l of K[k_i (m - k_l)](r, c) * b_l.
template <int row>
[[gnu::noinline]] void vide_present_y_block(view<const double> K, std::int64_t D, view<double> block) {
    using tables = row_tables<row>;
    const double* const samples = present_samples<row>(K, D);
    double* cell = block.slice(0, std::uint64_t(tables::P * D * D)).pointer;
    for (std::int64_t r = 0; r < D; ++r)
        for (int i = 0; i < tables::P; ++i)
            for (std::int64_t c = 0; c < D; ++c) {
                double sum = 0.0;
                for (int l = 0; l < tables::P; ++l)
                    sum += samples[(tables::present[i].lag[l] * D + r) * D + c] * tables::b[l];
                *cell++ = sum;
            }
}

// `solution` holds Z[n], then y[n], for every step.
template <int row>
[[gnu::noinline]] void write_vide(const output_arrays& to, double h, const double* solution) {
    using integrals = integrated_tables<row>;
    constexpr int P = row_tables<row>::P;
    const std::int64_t D = to.D;
    const auto y = [=](std::int64_t n, std::int64_t r) {
        return solution[n * (P + 1) * D + P * D + r];
    };
    // The polynomial of a step, or one of its coefficients: the sum over j of h * Z[n][j] times a value or a
    // coefficient of B_j, on top of what `sum` is.
    const auto weighted_sum = [=](double sum, std::int64_t n, std::int64_t r, const auto& weight) {
        const double* const Z = solution + n * (P + 1) * D + r * P;
        for (int j = 0; j < P; ++j)
            sum += (h * Z[j]) * weight(j);
        return sum;
    };
    const auto vide_step_polynomial = [&](std::int64_t n, std::int64_t r, int power) {
        return weighted_sum(power == 0 ? y(n, r) : 0.0, n, r, [power](int j) { return integrals::beta[j][power]; });
    };
    const auto vide_step_value = [&](std::int64_t n, std::int64_t r, int e) {
        return weighted_sum(y(n, r), n, r, [e](int j) { return integrals::sample_value[e][j]; });
    };
    write_output<row_tables<row>::S>(to, P + 1, P + 1, vide_step_polynomial, vide_step_value);
}

// From `samples` samples, and everything else from the arrays as they come.
template <int row, class rounding, class dimension>
bool march_vide(std::int32_t samples, const vide_arguments& arguments, dimension dim, output_order first) {
    const auto& [g, K, a, y0, dt, want_coeffs, out, coeffs, n_steps] = arguments;
    using tables = row_tables<row>;
    using integrals = integrated_tables<row>;
    constexpr int P = tables::P;
    constexpr int S = tables::S;
    const std::int64_t D = dim.D;

    const double h = dt * double(S);
    const std::int32_t steps = wrapping_sum(samples, -1) / S;
    *n_steps = steps;

    // The tables of the present step are the same in every step; the coefficient is what varies. They are built before
    // anything else is decided, so that a kernel too short for them is fatal even where there is no step.
    step_system<P, dimension> system{dim};
    const std::int64_t n_sys = system.n_sys;
    auto W = make_blocks<P * P>(dim);
    diagonal_block<row, integrals>(K, D, whole(W));
    auto kernel_sums = make_blocks<P>(dim);
    vide_present_y_block<row>(K, D, whole(kernel_sums));

    // What the history is given of each step: Z[n], then y[n]. The last block is there for the y alone.
    const std::int64_t width = n_sys + D;
    std::vector<double> solution((std::int64_t{steps} + 1) * width);
    const auto Z = [&](std::int64_t n, std::int64_t r) {
        return solution.data() + n * width + r * P;
    };
    const auto y = [&](std::int64_t n) {
        return solution.data() + n * width + n_sys;
    };
    lag_block_context<dimension> context{K, h, dim};
    ToeplitzHistory history;
    history.init(steps, static_cast<std::int32_t>(n_sys), static_cast<std::int32_t>(width));
    history.set_kernel_provider(&context, vide_history_provider<row, dimension>);
    std::copy_n(y0.slice(0, D).pointer, D, y(0));
    if (steps == 0) {
        clear_samples(out);
        return true;
    }

    const double* forcing = g.slice(0, std::uint64_t((std::int64_t{steps} * S + 1) * D)).pointer;
    const double* coefficient = a.slice(0, std::uint64_t((std::int64_t{steps} * S + 1) * D * D)).pointer;
    double* const rhs = system.rhs();
    for (std::int32_t n = 0; n < steps; ++n, forcing += S * D, coefficient += S * D * D) {
        gather_node_forcing<row>(forcing, D, rhs);
        const double* const Q = history.history_at(n).pointer;
        for (int r = 0; r < D; ++r)
            for (int i = 0; i < P; ++i) {
                const double* const a_row = coefficient + (tables::m * tables::k[i] * D + r) * D;
                const int R = r * P + i;
                double right_side = rhs[R] + Q[R];
                for (int c = 0; c < D; ++c) {
                    right_side += rounding::y_coefficient(a_row[c], kernel_sums[R * D + c], tables::c[i], h) * y(n)[c];
                    for (int j = 0; j < P; ++j) {
                        const int C = c * P + j;
                        const double Ba = a_row[c] * integrals::node_value[i][j];
                        system.at(R, C) = rounding::matrix_entry(R == C ? 1.0 : 0.0, W[R * n_sys + C], Ba, h);
                    }
                }
                rhs[R] = right_side;
            }
        if (!system.eliminate())
            return false;
        system.solve();

        std::copy_n(rhs, n_sys, Z(n, 0));
        for (std::int64_t r = 0; r < D; ++r) {
            double end = y(n)[r];
            for (int j = 0; j < P; ++j)
                end += (h * Z(n, r)[j]) * rounding::end_weight(tables::b[j], integrals::sample_value[S][j]);
            y(n + 1)[r] = end;
        }
        history.push({std::uint64_t(width), Z(n, 0)});
    }

    write_vide<row>({steps, D, want_coeffs, out, coeffs, first}, h, solution.data());
    return true;
}

template <int row>
bool solve_vide_impl(const vide_arguments& arguments) {
    return march_vide<row, scalar_rounding>(guarded_int(arguments.K.length), arguments, fixed_dimension<1>{},
                                            output_order::cleared_samples);
}

template <int row, int D>
bool solve_vide_vec_impl(const vide_arguments& arguments) {
    return march_vide<row, vector_rounding>(sample_count(arguments.K, D), arguments, fixed_dimension<D>{},
                                            output_order::coefficients);
}

template <int row>
bool solve_vide_vec_any_impl(const vide_arguments& arguments, int D) {
    return march_vide<row, any_dimension_rounding>(sample_count(arguments.K, D), arguments, run_time_dimension{D},
                                                   output_order::coefficients);
}

template <int row>
bool solve_vide_vec_row(const vide_arguments& arguments, int D) {
    constexpr auto own = of_every_dimension([]<int own_D>() { return solve_vide_vec_impl<row, own_D>; });
    return has_own_variant(D) ? own[D - 1](arguments) : solve_vide_vec_any_impl<row>(arguments, D);
}

} // namespace quenta
