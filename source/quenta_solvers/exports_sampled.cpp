// The exports that solve from samples.
#include "quenta_solvers/quenta_native.h"
#include "quenta_solvers/sampled_entry.hpp"
#include "quenta_solvers/variants.hpp"
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

// The bodies of each solver, by row of the settings table.
constexpr auto vie1_rows = of_every_row([]<int row>() { return vie1_solve_row<row>; });
constexpr auto vie2_rows = of_every_row([]<int row>() { return solve_vie2_impl<row>; });
constexpr auto vie2_vec_rows = of_every_row([]<int row>() { return solve_vie2_vec_row<row>; });
constexpr auto vide_rows = of_every_row([]<int row>() { return solve_vide_impl<row>; });
constexpr auto vide_vec_rows = of_every_row([]<int row>() { return solve_vide_vec_row<row>; });

} // namespace

int quenta_solve_vie1_vec(const double* g, const double* K, int N, int D, const double* y0, double dt, int m,
                          const int* list, int count, int want_coeffs, int continuous, double* out, double* coeffs,
                          int* n_steps) {
    const sampled_request request{N, D, m, list, count};
    return run_sampled_solver(request, grows_in_the_first_kind, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        // A dimension below 1 has no initial value.
        const vie1_arguments arguments{
            {sizes.vectors, g}, {sizes.matrices, K},  {std::uint64_t(std::max(D, 0)), y0}, dt,   want_coeffs != 0,
            continuous != 0,    {sizes.vectors, out}, coefficient_view(coeffs, sizes),     steps};
        return vie1_rows[sizes.row](arguments, D);
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
        const vie2_arguments arguments{{sizes.vectors, g},
                                       {sizes.matrices, K},
                                       dt,
                                       want_coeffs != 0,
                                       {sizes.vectors, out},
                                       coefficient_view(coeffs, sizes),
                                       steps};
        return vie2_vec_rows[sizes.row](arguments, D);
    });
}

int quenta_solve_vie2(const double* g, const double* K, int N, double dt, int m, const int* list, int count,
                      int want_coeffs, double* out, double* coeffs, int* n_steps) {
    const sampled_request request{N, 1, m, list, count};
    return run_sampled_solver(request, accept_all_rows, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        const vie2_arguments arguments{{sizes.vectors, g},
                                       {sizes.vectors, K},
                                       dt,
                                       want_coeffs != 0,
                                       {sizes.vectors, out},
                                       coefficient_view(coeffs, sizes),
                                       steps};
        return vie2_rows[sizes.row](arguments);
    });
}

int quenta_solve_vide_vec(const double* g, const double* K, const double* a, int N, int D, const double* y0, double dt,
                          int m, const int* list, int count, int want_coeffs, double* out, double* coeffs,
                          int* n_steps) {
    const sampled_request request{N, D, m, list, count};
    return run_sampled_solver(request, accept_all_rows, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        const vide_arguments arguments{{sizes.vectors, g},
                                       {sizes.matrices, K},
                                       {sizes.matrices, a},
                                       {extended_length(D), y0},
                                       dt,
                                       want_coeffs != 0,
                                       {sizes.vectors, out},
                                       coefficient_view(coeffs, sizes),
                                       steps};
        return vide_vec_rows[sizes.row](arguments, D);
    });
}

int quenta_solve_vide(const double* g, const double* K, const double* a, int N, double y0, double dt, int m,
                      const int* list, int count, int want_coeffs, double* out, double* coeffs, int* n_steps) {
    const sampled_request request{N, 1, m, list, count};
    return run_sampled_solver(request, accept_all_rows, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        const vide_arguments arguments{{sizes.vectors, g},
                                       {sizes.vectors, K},
                                       {sizes.vectors, a},
                                       {1, &y0},
                                       dt,
                                       want_coeffs != 0,
                                       {sizes.vectors, out},
                                       coefficient_view(coeffs, sizes),
                                       steps};
        return vide_rows[sizes.row](arguments);
    });
}
