#include "toeplitz_history/fft.hpp"

#include "toeplitz_history/vector_kernels.hpp"
#include "utility/instruction_sets.hpp"

#include <cmath>
#include <cstdint>
#include <utility>

namespace quenta {

namespace {

// The plain loop, for lengths that are too short for the vector kernels. Lengths 0 and 1 need no work.
void transform_plainly(double* re, double* im, std::int64_t n, bool inverse) {
    for (std::int64_t i = 0, j = 0; i < n - 1; ++i) {
        if (i < j) {
            std::swap(re[i], re[j]);
            std::swap(im[i], im[j]);
        }
        std::int64_t bit = n >> 1;
        for (; (j & bit) != 0; bit >>= 1)
            j &= ~bit;
        j |= bit;
    }
    for (std::int64_t length = 2; length <= n; length *= 2) {
        const double theta = (inverse ? 6.283185307179586 : -6.283185307179586) / double(length);
        const double step_re = std::cos(theta);
        const double step_im = std::sin(theta);
        const std::int64_t half = length / 2;
        for (std::int64_t group = 0; group < n; group += length) {
            // A group has at most 16 butterflies, so the recurrence is never restarted.
            double w_re = 1.0, w_im = 0.0;
            for (std::int64_t lo = group; lo < group + half; ++lo) {
                const std::int64_t hi = lo + half;
                const double t_im = w_re * im[hi] + w_im * re[hi];
                const double t_re = re[hi] * w_re - im[hi] * w_im;
                re[hi] = re[lo] - t_re;
                im[hi] = im[lo] - t_im;
                re[lo] = t_re + re[lo];
                im[lo] = t_im + im[lo];
                const double next_re = step_re * w_re - step_im * w_im;
                w_im = w_im * step_re + w_re * step_im;
                w_re = next_re;
            }
        }
    }
}

} // namespace

void fft_inplace(view<double> re, view<double> im, bool inverse) {
    const std::uint64_t n = re.length;
    require(n == im.length);
    require((n & (n - 1)) == 0); // at most one bit
    if (n < shortest_vector_transform)
        transform_plainly(re.pointer, im.pointer, std::int64_t(n), inverse);
    else
        widest_table<vector_kernels>().transform_rows(re.pointer, im.pointer, std::int64_t(n), 1, inverse);
}

} // namespace quenta
