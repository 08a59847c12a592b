// The first kind:  integral from 0 to t of K(t - s) y(s) ds = g(t), for vectors of any dimension.
#pragma once

#include "utility/view.hpp"

namespace quenta {

// The body of quenta_solve_vie1_vec for one row of the settings table and one dimension, `fixed_dimension` or
// `run_time_dimension`. `n_steps` receives the number of steps even where the block turns out singular, which is what
// `false` says; out and coeffs are then untouched.
template <int row, class dimension>
bool vie1_solve(view<const double> g, view<const double> K, dimension dim, view<const double> y0, double dt,
                bool want_coeffs, bool continuous, view<double> out, view<double> coeffs, int* n_steps);

} // namespace quenta
