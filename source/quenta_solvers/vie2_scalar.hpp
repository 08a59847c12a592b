// The second kind, scalar:  y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.
#pragma once

#include "utility/view.hpp"

namespace quenta {

// The body of quenta_solve_vie2 for one row of the settings table. `steps_out` receives the number of steps even where
// the block turns out singular, which is what `false` says; out and coeffs are then untouched.
template <int row>
bool solve_vie2_impl(view<const double> g, view<const double> K, double dt, bool want_coeffs, view<double> out,
                     view<double> coeffs, int* steps_out);

} // namespace quenta
