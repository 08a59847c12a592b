// The exports of the sample-based solvers. Each makes the checks, and calls the implementation for the row of its
// setting; this calls the variant for its dimension.
#include "quenta_solvers/quenta_native.h"
#include "quenta_solvers/sampled_entry.hpp"
#include "quenta_solvers/variants.hpp"
#include "quenta_solvers/vide.hpp"
#include "quenta_solvers/vie1.hpp"
#include "quenta_solvers/vie2.hpp"
#include "utility/floating_point_mode.hpp"

#include <algorithm>

using namespace quenta;

namespace {

// Three settings amplify the errors of a first-kind solution from step to step, even without a carried value: the
// product over their nodes of (1 - c_i) / c_i is above 1.
bool grows_in_the_first_kind(const sampled_request& request) {
    const auto is = [&](int m, std::initializer_list<int> nodes) {
        return request.m == m && request.count == int(nodes.size()) &&
               std::equal(nodes.begin(), nodes.end(), request.list);
    };
    return is(3, {1}) || is(4, {1}) || is(4, {1, 2});
}

// By row of the settings table.
constexpr auto vie1_vec = of_every_row([]<int row>() { return &vie1_solve_row<row>; });
constexpr auto vie2 = of_every_row([]<int row>() { return &solve_vie2_impl<row>; });
constexpr auto vie2_vec = of_every_row([]<int row>() { return &solve_vie2_vec_row<row>; });
constexpr auto vide = of_every_row([]<int row>() { return &solve_vide_impl<row>; });
constexpr auto vide_vec = of_every_row([]<int row>() { return &solve_vide_vec_row<row>; });

} // namespace

int quenta_solve_vie1_vec(const double* g, const double* K, int N, int D, const double* y0, double dt, int m,
                          const int* list, int count, int want_coeffs, int continuous, double* out, double* coeffs,
                          int* n_steps) {
    sampled_sizes sizes;
    const int status = begin_sampled_call({N, D, m, list, count}, grows_in_the_first_kind, sizes);
    if (status != status_solved)
        return status;
    const standard_floating_point_mode mode;
    int steps = 0;
    // A dimension below 1 has no initial value.
    const vie1_arguments arguments{
        {sizes.vectors, g}, {sizes.matrices, K},  {std::uint64_t(std::max(D, 0)), y0}, dt,    want_coeffs != 0,
        continuous != 0,    {sizes.vectors, out}, coefficient_view(coeffs, sizes),     &steps};
    const bool solved = vie1_vec[sizes.row](arguments, D);
    return end_sampled_call(solved, steps, n_steps);
}

int quenta_solve_vie1(const double* g, const double* K, int N, double y0, double dt, int m, const int* list, int count,
                      int want_coeffs, int continuous, double* out, double* coeffs, int* n_steps) {
    return quenta_solve_vie1_vec(g, K, N, 1, &y0, dt, m, list, count, want_coeffs, continuous, out, coeffs, n_steps);
}

int quenta_solve_vie2_vec(const double* g, const double* K, int N, int D, double dt, int m, const int* list, int count,
                          int want_coeffs, double* out, double* coeffs, int* n_steps) {
    sampled_sizes sizes;
    const int status = begin_sampled_call({N, D, m, list, count}, accept_all_settings, sizes);
    if (status != status_solved)
        return status;
    const standard_floating_point_mode mode;
    int steps = 0;
    const vie2_arguments arguments{{sizes.vectors, g},
                                   {sizes.matrices, K},
                                   dt,
                                   want_coeffs != 0,
                                   {sizes.vectors, out},
                                   coefficient_view(coeffs, sizes),
                                   &steps};
    const bool solved = vie2_vec[sizes.row](arguments, D);
    return end_sampled_call(solved, steps, n_steps);
}

int quenta_solve_vie2(const double* g, const double* K, int N, double dt, int m, const int* list, int count,
                      int want_coeffs, double* out, double* coeffs, int* n_steps) {
    sampled_sizes sizes;
    const int status = begin_sampled_call({N, 1, m, list, count}, accept_all_settings, sizes);
    if (status != status_solved)
        return status;
    const standard_floating_point_mode mode;
    int steps = 0;
    const vie2_arguments arguments{{sizes.vectors, g},
                                   {sizes.vectors, K},
                                   dt,
                                   want_coeffs != 0,
                                   {sizes.vectors, out},
                                   coefficient_view(coeffs, sizes),
                                   &steps};
    const bool solved = vie2[sizes.row](arguments);
    return end_sampled_call(solved, steps, n_steps);
}

int quenta_solve_vide_vec(const double* g, const double* K, const double* a, int N, int D, const double* y0, double dt,
                          int m, const int* list, int count, int want_coeffs, double* out, double* coeffs,
                          int* n_steps) {
    sampled_sizes sizes;
    const int status = begin_sampled_call({N, D, m, list, count}, accept_all_settings, sizes);
    if (status != status_solved)
        return status;
    const standard_floating_point_mode mode;
    int steps = 0;
    const vide_arguments arguments{{sizes.vectors, g},
                                   {sizes.matrices, K},
                                   {sizes.matrices, a},
                                   {extended_length(D), y0},
                                   dt,
                                   want_coeffs != 0,
                                   {sizes.vectors, out},
                                   coefficient_view(coeffs, sizes),
                                   &steps};
    const bool solved = vide_vec[sizes.row](arguments, D);
    return end_sampled_call(solved, steps, n_steps);
}

int quenta_solve_vide(const double* g, const double* K, const double* a, int N, double y0, double dt, int m,
                      const int* list, int count, int want_coeffs, double* out, double* coeffs, int* n_steps) {
    sampled_sizes sizes;
    const int status = begin_sampled_call({N, 1, m, list, count}, accept_all_settings, sizes);
    if (status != status_solved)
        return status;
    const standard_floating_point_mode mode;
    int steps = 0;
    const vide_arguments arguments{{sizes.vectors, g},
                                   {sizes.vectors, K},
                                   {sizes.vectors, a},
                                   {1, &y0},
                                   dt,
                                   want_coeffs != 0,
                                   {sizes.vectors, out},
                                   coefficient_view(coeffs, sizes),
                                   &steps};
    const bool solved = vide[sizes.row](arguments);
    return end_sampled_call(solved, steps, n_steps);
}
