// First kind: the sum over k = 0 .. n of A[n,k] x[k] is b[n].
#pragma once

#include "quenta_function_solvers/forward_recursion.hpp"
#include "quenta_function_solvers/function_solvers.hpp"

namespace quenta {

template <int P, int D, form F>
struct first_kind : block_equation<P, D, first_kind_history<F>> {
    first_kind(view<const double> blocks, view<const double> forcing, int N, view<double> unknowns)
        : first_kind::block_equation{blocks, N, unknowns}, G{this->elements(forcing, std::uint64_t(N) * P * D)} {}

    double right_side(std::int64_t n, int i, int a) const { return G[(n * P + i) * D + a]; }

    double matrix(std::int64_t n, int i, int a, int j, int b) const { return this->block(n, i, n, j)[a * D + b]; }

    const double* G;
};

template <int P>
bool function_solve_vie1_impl(view<const double> A, view<const double> b, int N, view<double> x) {
    return solve_forward(first_kind<P, 1, form::scalar>{A, b, N, x}, N);
}

template <int P, int D>
bool function_solve_vie1_vec_impl(view<const double> A, view<const double> b, int N, view<double> x) {
    return solve_forward(first_kind<P, D, form::vector>{A, b, N, x}, N);
}

} // namespace quenta
