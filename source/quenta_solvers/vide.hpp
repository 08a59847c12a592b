// The integro-differential equation:  y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds, y(0) = y0,
// for scalars and for vectors of any dimension.
#pragma once

#include "utility/view.hpp"

namespace quenta {

// The bodies of quenta_solve_vide and of quenta_solve_vide_vec for one row of the settings table, and the latter for
// one dimension, `fixed_dimension` or `run_time_dimension`. `n_steps` receives the number of steps even where the
// system of a step turns out singular, which is what `false` says; out and coeffs are then untouched.
template <int row>
bool solve_vide_impl(view<const double> g, view<const double> K, view<const double> a, double y0, double dt,
                     bool want_coeffs, view<double> out, view<double> coeffs, int* n_steps);
template <int row, class dimension>
bool solve_vide_vec_impl(view<const double> g, view<const double> K, view<const double> a, dimension dim,
                         view<const double> y0, double dt, bool want_coeffs, view<double> out, view<double> coeffs,
                         int* n_steps);

} // namespace quenta
