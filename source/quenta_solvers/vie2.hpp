// The second kind:  y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds, for scalars and for vectors of any
// dimension.
#pragma once

#include "utility/view.hpp"

namespace quenta {

// The bodies of quenta_solve_vie2 and of quenta_solve_vie2_vec for one row of the settings table, and the latter for
// one dimension, `fixed_dimension` or `run_time_dimension`. `n_steps` receives the number of steps even where the block
// turns out singular, which is what `false` says; out and coeffs are then untouched.
template <int row>
bool solve_vie2_impl(view<const double> g, view<const double> K, double dt, bool want_coeffs, view<double> out,
                     view<double> coeffs, int* n_steps);
template <int row, class dimension>
bool solve_vie2_vec_impl(view<const double> g, view<const double> K, dimension dim, double dt, bool want_coeffs,
                         view<double> out, view<double> coeffs, int* n_steps);

} // namespace quenta
