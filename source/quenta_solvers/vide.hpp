// The integro-differential equation:  y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds, y(0) = y0,
// for scalars and for vectors of any dimension.
#pragma once

#include "utility/view.hpp"

namespace quenta {

struct vide_arguments {
    view<const double> g, K, a, y0;
    double dt;
    bool want_coeffs;
    view<double> out, coeffs;
    int* n_steps; // receives the number of steps even if the system of a step is singular
};

// The implementation of quenta_solve_vide for one row of the settings table. False: the system of a step is singular;
// out and coeffs are then untouched.
template <int row>
bool solve_vide_impl(const vide_arguments& arguments);

// The implementations of quenta_solve_vide_vec: one for each fixed dimension, and one for all other dimensions.
template <int row, int D>
bool solve_vide_vec_impl(const vide_arguments& arguments);
template <int row>
bool solve_vide_vec_any_impl(const vide_arguments& arguments, int D);

// Calls the variant for this dimension.
template <int row>
bool solve_vide_vec_row(const vide_arguments& arguments, int D);

} // namespace quenta
