// The exports that solve from samples.
#include "quenta_solvers/quenta_native.h"
#include "quenta_solvers/sampled_entry.hpp"
#include "quenta_solvers/variant_dispatch.hpp"
#include "quenta_solvers/vide.hpp"
#include "quenta_solvers/vie1.hpp"
#include "quenta_solvers/vie2.hpp"

#include <algorithm>

using namespace quenta;

namespace {

// Three rows amplify the errors of a first-kind solution from step to step, in the form without a carried value too:
// the product over their nodes of (1 - c_i) / c_i is above 1.
bool grows_in_the_first_kind(const sampled_request& request) {
    const auto is = [&](int m, std::initializer_list<int> nodes) {
        return request.m == m && request.count == int(nodes.size()) &&
               std::equal(nodes.begin(), nodes.end(), request.list);
    };
    return is(3, {1}) || is(4, {1}) || is(4, {1, 2});
}

} // namespace

int quenta_solve_vie1_vec(const double* g, const double* K, int N, int D, const double* y0, double dt, int m,
                          const int* list, int count, int want_coeffs, int continuous, double* out, double* coeffs,
                          int* n_steps) {
    const sampled_request request{N, D, m, list, count};
    return run_sampled_solver(request, grows_in_the_first_kind, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        // A dimension below 1 has no initial value.
        const view<const double> initial{std::uint64_t(std::max(D, 0)), y0};
        return dispatch_row(sizes.row, [&]<int row>() {
            return dispatch_dimension(D, [&](auto dimension) {
                return vie1_solve<row>({sizes.vectors, g}, {sizes.matrices, K}, dimension, initial, dt,
                                       want_coeffs != 0, continuous != 0, {sizes.vectors, out},
                                       coefficient_view(coeffs, sizes), steps);
            });
        });
    });
}

int quenta_solve_vie1(const double* g, const double* K, int N, double y0, double dt, int m, const int* list, int count,
                      int want_coeffs, int continuous, double* out, double* coeffs, int* n_steps) {
    return quenta_solve_vie1_vec(g, K, N, 1, &y0, dt, m, list, count, want_coeffs, continuous, out, coeffs, n_steps);
}

int quenta_solve_vie2_vec(const double* g, const double* K, int N, int D, double dt, int m, const int* list, int count,
                          int want_coeffs, double* out, double* coeffs, int* n_steps) {
    const sampled_request request{N, D, m, list, count};
    return run_sampled_solver(request, accept_all_rows, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        return dispatch_row(sizes.row, [&]<int row>() {
            return dispatch_dimension(D, [&](auto dimension) {
                return solve_vie2_vec_impl<row>({sizes.vectors, g}, {sizes.matrices, K}, dimension, dt,
                                                want_coeffs != 0, {sizes.vectors, out}, coefficient_view(coeffs, sizes),
                                                steps);
            });
        });
    });
}

int quenta_solve_vie2(const double* g, const double* K, int N, double dt, int m, const int* list, int count,
                      int want_coeffs, double* out, double* coeffs, int* n_steps) {
    const sampled_request request{N, 1, m, list, count};
    return run_sampled_solver(request, accept_all_rows, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        return dispatch_row(sizes.row, [&]<int row>() {
            return solve_vie2_impl<row>({sizes.vectors, g}, {sizes.vectors, K}, dt, want_coeffs != 0,
                                        {sizes.vectors, out}, coefficient_view(coeffs, sizes), steps);
        });
    });
}

int quenta_solve_vide_vec(const double* g, const double* K, const double* a, int N, int D, const double* y0, double dt,
                          int m, const int* list, int count, int want_coeffs, double* out, double* coeffs,
                          int* n_steps) {
    const sampled_request request{N, D, m, list, count};
    return run_sampled_solver(request, accept_all_rows, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        return dispatch_row(sizes.row, [&]<int row>() {
            return dispatch_dimension(D, [&](auto dimension) {
                return solve_vide_vec_impl<row>({sizes.vectors, g}, {sizes.matrices, K}, {sizes.matrices, a}, dimension,
                                                {extended_length(D), y0}, dt, want_coeffs != 0, {sizes.vectors, out},
                                                coefficient_view(coeffs, sizes), steps);
            });
        });
    });
}

int quenta_solve_vide(const double* g, const double* K, const double* a, int N, double y0, double dt, int m,
                      const int* list, int count, int want_coeffs, double* out, double* coeffs, int* n_steps) {
    const sampled_request request{N, 1, m, list, count};
    return run_sampled_solver(request, accept_all_rows, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        return dispatch_row(sizes.row, [&]<int row>() {
            return solve_vide_impl<row>({sizes.vectors, g}, {sizes.vectors, K}, {sizes.vectors, a}, y0, dt,
                                        want_coeffs != 0, {sizes.vectors, out}, coefficient_view(coeffs, sizes), steps);
        });
    });
}
