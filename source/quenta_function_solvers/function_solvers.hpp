// The variants behind the block solvers' exports, one for every number of points P (1 to 5) and in the vector forms
// every dimension D (1 to 8). What they compute, and the shapes of the arrays, is told in quenta_native.h.
//
// They are exported too, those of the second kind excepted, for C++ programs that know P and D when they are compiled
// and were built by the same compiler. True: solved. False: the matrix of a step is singular. A view that is too short
// is an index failure. They calculate in the mode that the thread has set; the functions of quenta_native.h see to it.
#pragma once

#include "quenta_solvers/quenta_native.h"
#include "utility/view.hpp"

namespace quenta {

template <int P>
QUENTA_API bool function_solve_vie1_impl(view<const double> A, view<const double> b, int N, view<double> x);
template <int P, int D>
QUENTA_API bool function_solve_vie1_vec_impl(view<const double> A, view<const double> b, int N, view<double> x);

template <int P>
QUENTA_API bool function_solve_vie1_cont_impl(view<const double> A, view<const double> b, int N, view<const double> w,
                                              double rho, double y0, view<double> x, view<double> y);
template <int P, int D>
QUENTA_API bool function_solve_vie1_cont_vec_impl(view<const double> A, view<const double> b, int N,
                                                  view<const double> w, double rho, view<const double> y0,
                                                  view<double> x, view<double> y);

template <int P>
bool function_solve_vie2_impl(view<const double> A, view<const double> b, int N, view<double> x);
template <int P, int D>
bool function_solve_vie2_vec_impl(view<const double> A, view<const double> b, int N, view<double> x);

template <int P>
QUENTA_API bool function_solve_vide_impl(view<const double> A, view<const double> b, view<const double> C,
                                         view<const double> E, view<const double> w, view<const double> h, double y0,
                                         int N, view<double> x, view<double> y);
template <int P, int D>
QUENTA_API bool function_solve_vide_vec_impl(view<const double> A, view<const double> b, view<const double> C,
                                             view<const double> E, view<const double> w, view<const double> h,
                                             view<const double> y0, int N, view<double> x, view<double> y);

} // namespace quenta
