// The fast Fourier transform of the block convolution.
#pragma once

#include "utility/view.hpp"

namespace quenta {

// The discrete Fourier transform, in place, of n complex numbers given as separate real and imaginary parts:
//
//     X[k] = sum over j of x[j] * exp(sign * 2 * pi * i * j * k / n),  sign = -1 forward, +1 inverse, not scaled.
//
// n is 0 or a power of two and the same for both views; anything else is an assertion failure. Radix 2, decimation in
// time (J. W. Cooley and J. W. Tukey, Mathematics of Computation 19, 1965). The twiddles of a group are computed by a
// recurrence that is restarted from `cos` and `sin` every 32 butterflies. Nothing is allocated or kept.
//
// The solvers call the kernels of vector_kernels.hpp directly. Tests compare this single transform with its reference
// implementation.
void fft_inplace(view<double> re, view<double> im, bool inverse);

} // namespace quenta
