// The second kind:  y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds, for scalars and for vectors of any
// dimension.
#pragma once

#include "utility/view.hpp"

namespace quenta {

struct vie2_arguments {
    view<const double> g, K;
    double dt;
    bool want_coeffs;
    view<double> out, coeffs;
    int* n_steps; // receives the number of steps even if the block is singular
};

// The implementation of quenta_solve_vie2 for one row of the settings table. False: the block is singular; out and
// coeffs are then untouched.
template <int row>
bool solve_vie2_impl(const vie2_arguments& arguments);

// The implementations of quenta_solve_vie2_vec: one for each fixed dimension, and one for all other dimensions.
template <int row, int D>
bool solve_vie2_vec_impl(const vie2_arguments& arguments);
template <int row>
bool solve_vie2_vec_any_impl(const vie2_arguments& arguments, int D);

// Calls the variant for this dimension.
template <int row>
bool solve_vie2_vec_row(const vie2_arguments& arguments, int D);

} // namespace quenta
