// Measured FFTW plans with owners. The arrays are quenta::aligned_vector, which starts on a cache line: the alignment
// is at least that of FFTW's own allocator.
#pragma once

#include <fftw3.h>

#include <memory>
#include <type_traits>

struct fftw_plan_deleter {
    void operator()(fftw_plan plan) const { fftw_destroy_plan(plan); }
};
using owned_fftw_plan = std::unique_ptr<std::remove_pointer_t<fftw_plan>, fftw_plan_deleter>;

// A complex transform of n points in place on separate real and imaginary parts. Planning overwrites them.
inline owned_fftw_plan plan_split_transform(double* re, double* im, int n, bool inverse) {
    const fftw_iodim dimension{n, 1, 1};
    // The split interface has no sign argument: swapping the two parts gives the inverse transform.
    double* const first = inverse ? im : re;
    double* const second = inverse ? re : im;
    return owned_fftw_plan(
        fftw_plan_guru_split_dft(1, &dimension, 0, nullptr, first, second, first, second, FFTW_MEASURE));
}

// Real transforms of n points: from `values` to n/2 + 1 frequencies, and back, which destroys the frequencies. The
// complex numbers are interleaved, since FFTW's real transforms are faster on these than on split arrays.
inline owned_fftw_plan plan_real_to_complex(double* values, fftw_complex* frequencies, int n) {
    return owned_fftw_plan(fftw_plan_dft_r2c_1d(n, values, frequencies, FFTW_MEASURE));
}

inline owned_fftw_plan plan_complex_to_real(fftw_complex* frequencies, double* values, int n) {
    return owned_fftw_plan(fftw_plan_dft_c2r_1d(n, frequencies, values, FFTW_MEASURE | FFTW_DESTROY_INPUT));
}
