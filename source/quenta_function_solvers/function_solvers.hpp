// The variants of the block solvers, one for every number of points P (1 to 5) and, in the vector forms, every
// dimension D (1 to 8). quenta_native.h describes what they compute and the shapes of the arrays.
//
// Except for those of the second kind they are exported too, for C++ programs that know P and D at build time and were
// built by the same compiler. True: solved. False: the matrix of a step is singular. A view that is too short is an
// index failure. They use the floating-point mode of the thread; the functions of quenta_native.h set the standard
// mode.
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
