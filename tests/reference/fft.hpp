// The radix-2 transform, decimation in time. The twiddles come from a recurrence that restarts from cos and sin after
// every 32 butterflies.
#pragma once

#include <cmath>
#include <cstddef>
#include <utility>

namespace reference {

// n is 0 or a power of two.
inline void fft(double* re, double* im, std::size_t n, bool inverse) {
    if (n < 2)
        return;

    std::size_t j = 0;
    for (std::size_t i = 0; i <= n - 2; ++i) {
        if (i < j) {
            std::swap(re[i], re[j]);
            std::swap(im[i], im[j]);
        }
        std::size_t bit = n >> 1;
        while ((j & bit) != 0) {
            j = j & ~bit;
            bit = bit >> 1;
        }
        j = j | bit;
    }

    const double turn = inverse ? 6.283185307179586 : -6.283185307179586;
    for (std::size_t len = 2; len <= n; len = 2 * len) {
        const double theta = turn / double(len);
        const double step_re = std::cos(theta);
        const double step_im = std::sin(theta);
        const std::size_t half = len / 2;
        for (std::size_t first = 0; first < n; first = first + len) {
            double w_re = 1.0;
            double w_im = 0.0;
            for (std::size_t k = 1; k <= half; ++k) {
                const std::size_t lo = first + k - 1;
                const std::size_t hi = lo + half;
                const double t_im = w_re * im[hi] + w_im * re[hi];
                const double t_re = re[hi] * w_re - im[hi] * w_im;
                re[hi] = re[lo] - t_re;
                im[hi] = im[lo] - t_im;
                re[lo] = t_re + re[lo];
                im[lo] = t_im + im[lo];
                if (k % 32 == 0) {
                    const double angle = double(k) * theta;
                    w_re = std::cos(angle);
                    w_im = std::sin(angle);
                } else {
                    const double new_re = step_re * w_re - step_im * w_im;
                    const double new_im = w_im * step_re + w_re * step_im;
                    w_re = new_re;
                    w_im = new_im;
                }
            }
        }
    }
}

} // namespace reference
