// Integro-differential equations: the unknowns x are the derivatives at a step's points,
//
//   x[n,i] = b[n,i] + C[n,i] (y[n] + h[n] sum over j of E[i][j] x[n,j])
//            + the sum over k = 0 .. n of (A[(n,i), slot P of k] y[k] + h[k] sum over j of A[(n,i), slot j of k]
//            x[k,j]),
//
// and y[n+1] = y[n] + h[n] times the sum over j of w[j] x[n,j]. The two forms group these products in their own ways.
#pragma once

#include "quenta_function_solvers/forward_recursion.hpp"
#include "quenta_function_solvers/function_solvers.hpp"

namespace quenta {

template <int P, int D, form F>
struct integro_differential : block_equation<P, D, integro_differential_history<F>> {
    integro_differential(view<const double> blocks, view<const double> forcing, view<const double> coefficients,
                         view<const double> table, view<const double> weights, view<const double> lengths,
                         view<const double> initial, int N, view<double> unknowns, view<double> carried)
        : integro_differential::block_equation{blocks, N, unknowns}, G{this->elements(forcing,
                                                                                      std::uint64_t(N) * P * D)},
          C{this->elements(coefficients, std::uint64_t(N) * P * D * D)}, E{this->elements(table, P * P)},
          w{this->elements(weights, P)}, y0{this->elements(initial, D)} {
        this->y = this->elements(carried, (std::uint64_t(N) + 1) * D);
        this->h = this->elements(lengths, std::uint64_t(N));
    }

    void start() const { std::copy_n(y0, D, this->y); }

    double right_side(std::int64_t n, int i, int a) const {
        const double* const of_carried = this->block(n, i, n, P) + a * D;
        const double* const coefficient = C + (n * P + i) * D * D + a * D;
        const double* const yn = this->y + n * D;
        double sum = G[(n * P + i) * D + a];
        if constexpr (F == form::scalar)
            return *of_carried * *yn + (*yn * *coefficient + sum);
        for (int b = 0; b < D; ++b) {
            sum += coefficient[b] * yn[b];
            sum += of_carried[b] * yn[b];
        }
        return sum;
    }

    double matrix(std::int64_t n, int i, int a, int j, int b) const {
        const double one = i == j && a == b ? 1.0 : 0.0;
        const double coefficient = C[(n * P + i) * D * D + a * D + b];
        const double integrated = this->block(n, i, n, j)[a * D + b] * this->h[n];
        if constexpr (F == form::scalar)
            return one - E[i * P + j] * (coefficient * this->h[n]) - integrated;
        else
            return one - coefficient * (E[i * P + j] * this->h[n]) - integrated;
    }

    void end_step(std::int64_t n) const {
        for (int a = 0; a < D; ++a) {
            double sum = 0.0;
            for (int j = 0; j < P; ++j)
                sum += this->point(n, j)[a] * w[j];
            this->y[(n + 1) * D + a] = this->y[n * D + a] + this->h[n] * sum;
        }
    }

    const double* G;
    const double* C;
    const double* E;
    const double* w;
    const double* y0;
};

template <int P>
bool function_solve_vide_impl(view<const double> A, view<const double> b, view<const double> C, view<const double> E,
                              view<const double> w, view<const double> h, double y0, int N, view<double> x,
                              view<double> y) {
    return solve_forward(integro_differential<P, 1, form::scalar>{A, b, C, E, w, h, {1, &y0}, N, x, y}, N);
}

template <int P, int D>
bool function_solve_vide_vec_impl(view<const double> A, view<const double> b, view<const double> C,
                                  view<const double> E, view<const double> w, view<const double> h,
                                  view<const double> y0, int N, view<double> x, view<double> y) {
    return solve_forward(integro_differential<P, D, form::vector>{A, b, C, E, w, h, y0, N, x, y}, N);
}

} // namespace quenta
