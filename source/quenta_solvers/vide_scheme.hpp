// The collocation scheme of the integro-differential equation, on steps of length h = S * dt with P nodes c_i = k_i /
// m.
//
// The unknowns Z[n] of a step are the values of the derivative at the collocation points t_n + c_i h. The solution is
// continuous: on step n it is y[n] + h * (sum over j of Z[n][j] B_j(s)), with the integrals B_j of the basis
// polynomials, and its end value is y[n + 1]. In these unknowns the equation at the nodes is
//
//     (I - h Ba - h h W) Z[n] = Ya y[n] + G[n] + Q[n],     Ba = a B_j(c_i),  Ya = a + h V,
//
// where a is the coefficient at the nodes, the quadrature rule of the nodes replaces the integral over the previous
// steps by the history Q, and the tables V and W replace the integral over the part [t_n, t_n + c_i h] of the current
// step (H. Brunner, Collocation Methods for Volterra Integral and Related Functional Differential Equations, Cambridge
// University Press 2004, chapter 3).
#pragma once

#include "quenta_solvers/collocation_blocks.hpp"
#include "quenta_solvers/step_output.hpp"
#include "quenta_solvers/step_system.hpp"
#include "quenta_solvers/vide.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {

// One scheme in three roundings: each form keeps its own grouping of these formulas on purpose, so that its results
// stay the same. Everything else is common.
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

// Kernel provider: the block of lag d, row-major. With x_q = K[d S + (k_i - k_q) m](a, b) * b_q, the entry for row a, i
// is (h * h) * (sum over q of x_q * B_j(c_q)) in the column of component b of Z at node j, and h * (sum over q of x_q)
// in the column of component b of y; these come last.
template <int P, class dimension>
void vide_history_provider(void* context, std::int32_t d, ToeplitzHistory& history) {
    const auto& [scheme, K, h, dim] = *static_cast<const lag_block_context<P, dimension>*>(context);
    const std::int64_t D = dim.D;
    const std::array<double, P> weight = scheme.b;
    const auto integral_at_node = scheme.integral_at_node;
    const double* const samples = lag_samples(scheme, K, D, d);
    double* z = history.kernel_block(d).pointer;
    for (std::int64_t a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i) {
            double* const y = z + P * D;
            for (std::int64_t b = 0; b < D; ++b) {
                double y_sum = 0.0;
                std::array<double, P> z_sum{};
                for (int q = 0; q < P; ++q) {
                    const double x = samples[(scheme.sample_distance[i][q] * D + a) * D + b] * weight[q];
                    y_sum += x;
                    for (int j = 0; j < P; ++j)
                        z_sum[j] += x * integral_at_node[q][j];
                }
                for (int j = 0; j < P; ++j)
                    *z++ = (h * h) * z_sum[j];
                y[b] = h * y_sum;
            }
            z = y + D;
        }
}

// What the kernel adds to Ya, the same in every step: [a * P + i][b] is the sum over q of K[k_i (m - k_q)](a, b) * b_q.
template <int P>
[[gnu::noinline]] void vide_present_y_block(const collocation_scheme<P>& scheme, view<const double> K, std::int64_t D,
                                            view<double> block) {
    const double* const samples = present_samples(scheme, K, D);
    double* cell = block.slice(0, std::uint64_t(P * D * D)).pointer;
    for (std::int64_t a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i)
            for (std::int64_t b = 0; b < D; ++b) {
                double sum = 0.0;
                for (int q = 0; q < P; ++q)
                    sum += samples[(scheme.present[i].lag[q] * D + a) * D + b] * scheme.b[q];
                *cell++ = sum;
            }
}

// What Z[n] and y[n] are multiplied with in the current step of every n.
struct vide_present_blocks {
    const double* W;           // n_sys by n_sys
    const double* kernel_sums; // n_sys by D
};

// The matrix of a step, and its right-hand side, which holds the forcing before. `coefficient` points to the first
// sample of a in the step.
template <class rounding, int P, class dimension>
void fill_vide_system(const collocation_scheme<P>& scheme, step_system<P, dimension>& system,
                      const vide_present_blocks& present, const double* coefficient, const double* y, const double* Q,
                      double h, dimension dim) {
    // Copies, which the stores to the matrix cannot change.
    const auto integral_at_node = scheme.integral_at_node;
    const auto c = scheme.c;
    const int D = dim.D;
    const std::int64_t n_sys = system.n_sys;
    double* const rhs = system.rhs();
    for (int a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i) {
            const double* const a_row = coefficient + (std::int64_t{scheme.node_sample[i]} * D + a) * D;
            const int R = a * P + i;
            double right_side = rhs[R] + Q[R];
            for (int b = 0; b < D; ++b) {
                const double kernel_sum = present.kernel_sums[std::int64_t{R} * D + b];
                right_side += rounding::y_coefficient(a_row[b], kernel_sum, c[i], h) * y[b];
                for (int j = 0; j < P; ++j) {
                    const int C = b * P + j;
                    const double Ba = a_row[b] * integral_at_node[i][j];
                    system.at(R, C) = rounding::matrix_entry(R == C ? 1.0 : 0.0, present.W[R * n_sys + C], Ba, h);
                }
            }
            rhs[R] = right_side;
        }
}

// y[n + 1]: the polynomial of step n at its end.
template <class rounding, int P, class dimension>
void carry_vide(const collocation_scheme<P>& scheme, const double* Z, const double* y, double h, dimension dim,
                double* next) {
    for (std::int64_t a = 0; a < dim.D; ++a) {
        double end = y[a];
        for (int j = 0; j < P; ++j)
            end += (h * Z[a * P + j]) * rounding::end_weight(scheme.b[j], scheme.integral_at_end[j]);
        next[a] = end;
    }
}

// `solution` holds Z[n], then y[n], for every step.
template <int P>
[[gnu::noinline]] void write_vide(const basis_table<P, P, P + 1>& integrals, const output_arrays& to, double h,
                                  const double* solution) {
    const std::int64_t D = to.D;
    // y[n] belongs to the values and to the coefficients of s^0; to it comes the sum over j of h * Z[n][j] times a
    // value or a coefficient of B_j.
    write_output(to, integrals, [=](std::int64_t n, std::int64_t a, sum_of what, const auto& weight) {
        const double* const step = solution + n * (P + 1) * D;
        // GCOVR_EXCL_BR_START: the instance for values has one case only
        double sum = what == sum_of::higher_coefficient ? 0.0 : step[P * D + a];
        // GCOVR_EXCL_BR_STOP
        for (int j = 0; j < P; ++j)
            sum += (h * step[a * P + j]) * weight(j);
        return sum;
    });
}

// `samples` is the number of samples. The scalar and the vector form derive it from the length of K in their own ways.
template <class rounding, int P, class dimension>
bool march_vide(const collocation_scheme<P>& scheme, std::int32_t samples, const vide_arguments& arguments,
                dimension dim, output_order first) {
    const auto& [g, K, a, y0, dt, want_coeffs, out, coeffs, n_steps] = arguments;
    const std::int64_t D = dim.D, S = scheme.S;

    const double h = dt * double(S);
    const std::int32_t steps = whole_steps(scheme, samples);
    *n_steps = steps;

    // The parts of the matrix that are the same in every step. Without a step too, a kernel that is too short for them
    // is fatal.
    step_system<P, dimension> system{dim};
    const std::int64_t n_sys = system.n_sys;
    auto W = make_blocks<P * P>(dim);
    diagonal_block(scheme, scheme.integrated, K, D, whole(W));
    auto kernel_sums = make_blocks<P>(dim);
    vide_present_y_block(scheme, K, D, whole(kernel_sums));

    // What is pushed to the history after each step: Z[n], then y[n]. The last block has room for the final y only.
    const std::int64_t width = n_sys + D;
    std::vector<double> solution((std::int64_t{steps} + 1) * width);
    lag_block_context<P, dimension> context{scheme, K, h, dim};
    ToeplitzHistory history;
    history.init(steps, static_cast<std::int32_t>(n_sys), static_cast<std::int32_t>(width));
    history.set_kernel_provider(&context, vide_history_provider<P, dimension>);
    std::copy_n(y0.slice(0, D).pointer, D, solution.data() + n_sys);
    if (steps == 0) {
        clear_samples(out);
        return true;
    }

    const double* forcing = samples_of_steps(scheme, g, steps, D);
    const double* coefficient = samples_of_steps(scheme, a, steps, D * D);
    double* const rhs = system.rhs();
    for (std::int32_t n = 0; n < steps; ++n, forcing += S * D, coefficient += S * D * D) {
        double* const Z = solution.data() + n * width;
        double* const y = Z + n_sys;
        gather_node_forcing(scheme, forcing, D, rhs);
        const double* const Q = history.history_at(n).pointer;
        fill_vide_system<rounding>(scheme, system, {W.data(), kernel_sums.data()}, coefficient, y, Q, h, dim);
        if (!system.eliminate())
            return false;
        system.solve();
        std::copy_n(rhs, n_sys, Z);
        carry_vide<rounding>(scheme, Z, y, h, dim, y + width);
        history.push({std::uint64_t(width), Z});
    }

    write_vide(scheme.integrated, {steps, S, D, want_coeffs, out, coeffs, first}, h, solution.data());
    return true;
}

template <int row>
bool solve_vide_impl(const vide_arguments& arguments) {
    return march_vide<scalar_rounding>(scheme_of_row<row>, guarded_int(arguments.K.length), arguments,
                                       fixed_dimension<1>{}, output_order::cleared_samples);
}

template <int row, int D>
bool solve_vide_vec_impl(const vide_arguments& arguments) {
    return march_vide<vector_rounding>(scheme_of_row<row>, sample_count(arguments.K, D), arguments,
                                       fixed_dimension<D>{}, output_order::coefficients);
}

template <int row>
bool solve_vide_vec_any_impl(const vide_arguments& arguments, int D) {
    return march_vide<any_dimension_rounding>(scheme_of_row<row>, sample_count(arguments.K, D), arguments,
                                              run_time_dimension{D}, output_order::coefficients);
}

template <int row>
bool solve_vide_vec_row(const vide_arguments& arguments, int D) {
    constexpr auto own = of_every_dimension([]<int own_D>() { return &solve_vide_vec_impl<row, own_D>; });
    return has_own_variant(D) ? own[D - 1](arguments) : solve_vide_vec_any_impl<row>(arguments, D);
}

} // namespace quenta
