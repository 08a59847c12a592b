// The first kind:  integral from 0 to t of K(t - s) y(s) ds = g(t), for vectors of any dimension.
#pragma once

#include "utility/view.hpp"

namespace quenta {

struct vie1_arguments {
    view<const double> g, K, y0;
    double dt;
    bool want_coeffs, continuous;
    view<double> out, coeffs;
    int* n_steps; // receives the number of steps even if the block is singular
};

// The implementations of quenta_solve_vie1_vec for one row of the settings table: one for each fixed dimension, and one
// for all other dimensions. False: the block is singular; out and coeffs are then untouched.
template <int row, int D>
bool vie1_solve(const vie1_arguments& arguments);
template <int row>
bool vie1_solve_any(const vie1_arguments& arguments, int D);

// Calls the variant for this dimension.
template <int row>
bool vie1_solve_row(const vie1_arguments& arguments, int D);

} // namespace quenta
