// First kind with a carried value: a step's equations see its points, in slots 0 .. P-1 of the step, and the value y[n]
// at its left end, in slot P; y[n+1] is a weighted sum of y[n] and of the new points.
#pragma once

#include "quenta_function_solvers/forward_recursion.hpp"
#include "quenta_function_solvers/function_solvers.hpp"

namespace quenta {

template <int P, int D, form F>
struct continuous_first_kind : block_equation<P, D, continuous_first_kind_history<F>> {
    continuous_first_kind(view<const double> blocks, view<const double> forcing, int N, view<const double> weights,
                          double weight_of_carried, view<const double> initial, view<double> unknowns,
                          view<double> carried)
        : continuous_first_kind::block_equation{blocks, N, unknowns}, G{this->elements(forcing,
                                                                                       std::uint64_t(N) * P * D)},
          w{this->elements(weights, P)}, rho{weight_of_carried}, y0{this->elements(initial, D)} {
        this->y = this->elements(carried, (std::uint64_t(N) + 1) * D);
    }

    void start() const { std::copy_n(y0, D, this->y); }

    double right_side(std::int64_t n, int i, int a) const {
        const double* const of_carried = this->block(n, i, n, P) + a * D;
        double sum = G[(n * P + i) * D + a];
        for (int b = 0; b < D; ++b)
            sum -= of_carried[b] * this->y[n * D + b];
        return sum;
    }

    double matrix(std::int64_t n, int i, int a, int j, int b) const { return this->block(n, i, n, j)[a * D + b]; }

    void end_step(std::int64_t n) const {
        for (int a = 0; a < D; ++a) {
            double sum = rho * this->y[n * D + a];
            for (int j = 0; j < P; ++j)
                sum += w[j] * this->point(n, j)[a];
            this->y[(n + 1) * D + a] = sum;
        }
    }

    const double* G;
    const double* w;
    double rho;
    const double* y0;
};

template <int P>
bool function_solve_vie1_cont_impl(view<const double> A, view<const double> b, int N, view<const double> w, double rho,
                                   double y0, view<double> x, view<double> y) {
    return solve_forward(continuous_first_kind<P, 1, form::scalar>{A, b, N, w, rho, {1, &y0}, x, y}, N);
}

template <int P, int D>
bool function_solve_vie1_cont_vec_impl(view<const double> A, view<const double> b, int N, view<const double> w,
                                       double rho, view<const double> y0, view<double> x, view<double> y) {
    return solve_forward(continuous_first_kind<P, D, form::vector>{A, b, N, w, rho, y0, x, y}, N);
}

} // namespace quenta
