// Compares the transform with FFTW (split complex, in place, measured plans) and with a plain loop of the same
// arithmetic.

#include "comparison.hpp"
#include "fftw_transforms.hpp"

#include "toeplitz_history/fft.hpp"
#include "toeplitz_history/vector_kernels.hpp"
#include "utility/aligned_vector.hpp"
#include "utility/instruction_sets.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

namespace {

using quenta::aligned_vector;
using quenta::vector_kernels;

struct complex_rows {
    aligned_vector re, im;
    explicit complex_rows(std::int64_t n) : re(n), im(n) {}
};

complex_rows decaying_oscillation(std::int64_t n) {
    complex_rows x(n);
    for (std::int64_t sample = 0; sample < n; ++sample) {
        const double t = 16.0 * double(sample) / double(n);
        x.re[sample] = std::exp(-0.1 * t) * std::cos(3.0 * t);
        x.im[sample] = std::exp(-0.2 * t) * std::sin(5.0 * t);
    }
    return x;
}

// The textbook radix-2 loop, with the twiddles, operations and order of the library.
void plain_transform(double* re, double* im, std::int64_t n, bool inverse) {
    for (std::int64_t i = 0, j = 0; i < n - 1; ++i) {
        if (i < j) {
            std::swap(re[i], re[j]);
            std::swap(im[i], im[j]);
        }
        std::int64_t bit = n >> 1;
        for (; (j & bit) != 0; bit >>= 1)
            j ^= bit;
        j |= bit;
    }
    for (std::int64_t length = 2; length <= n; length *= 2) {
        const double theta = (inverse ? 6.283185307179586 : -6.283185307179586) / double(length);
        const double step_re = std::cos(theta), step_im = std::sin(theta);
        const std::int64_t half = length / 2;
        for (std::int64_t group = 0; group < n; group += length) {
            double w_re = 1.0, w_im = 0.0;
            for (std::int64_t k = 1; k <= half; ++k) {
                const std::int64_t lo = group + k - 1, hi = lo + half;
                const double t_im = w_re * im[hi] + w_im * re[hi];
                const double t_re = re[hi] * w_re - im[hi] * w_im;
                re[hi] = re[lo] - t_re;
                im[hi] = im[lo] - t_im;
                re[lo] = t_re + re[lo];
                im[lo] = t_im + im[lo];
                if ((k & 31) == 0) {
                    w_re = std::cos(double(k) * theta);
                    w_im = std::sin(double(k) * theta);
                } else {
                    const double old_re = w_re;
                    w_re = step_re * old_re - step_im * w_im;
                    w_im = w_im * step_re + old_re * step_im;
                }
            }
        }
    }
}

// The number of transforms before the data are refilled. Each multiplies their size by sqrt(n); they stay finite and
// normal.
int batch_for(std::int64_t n) {
    return static_cast<int>(std::clamp<std::int64_t>((1 << 17) / n, 1, 100));
}

int pairs_of_transforms(std::int64_t n) {
    return n <= 65536 ? 101 : 15;
}

// `ours` and `peer` transform n points in place, given (re, im).
template <class ours_type, class peer_type>
void compare_transforms(benchmark::State& state, std::int64_t n, double limit, const ours_type& ours,
                        const peer_type& peer, complex_rows& x) {
    const complex_rows fresh = decaying_oscillation(n);
    const auto refill = [&] {
        std::copy(fresh.re.begin(), fresh.re.end(), x.re.begin());
        std::copy(fresh.im.begin(), fresh.im.end(), x.im.begin());
    };
    refill();
    ours();
    const complex_rows result = x;
    refill();
    peer();
    if (agree(state, result.re.data(), x.re.data(), n, 1e-13) && agree(state, result.im.data(), x.im.data(), n, 1e-13))
        compare(state, limit, batch_for(n), refill, ours, peer);
}

// The transform on the instruction set that is in use.
void against_fftw(benchmark::State& state, std::int64_t n, bool inverse) {
    complex_rows x(n);
    const owned_fftw_plan plan = plan_split_transform(x.re.data(), x.im.data(), static_cast<int>(n), inverse);
    compare_transforms(
        state, n, n <= 65536 ? 2.0 : no_limit,
        [&] {
            quenta::fft_inplace({x.re.size(), x.re.data()}, {x.im.size(), x.im.data()}, inverse);
        },
        [&] { fftw_execute(plan.get()); }, x);
}

// The transform on one instruction set.
void table_against_fftw(benchmark::State& state, const vector_kernels& kernels, std::int64_t n) {
    complex_rows x(n);
    const owned_fftw_plan plan = plan_split_transform(x.re.data(), x.im.data(), static_cast<int>(n), false);
    compare_transforms(
        state, n, no_limit, [&] { kernels.transform_rows(x.re.data(), x.im.data(), n, 1, false); },
        [&] { fftw_execute(plan.get()); }, x);
}

void table_against_plain_loop(benchmark::State& state, const vector_kernels& kernels, std::int64_t n) {
    complex_rows x(n);
    compare_transforms(
        state, n, no_limit, [&] { kernels.transform_rows(x.re.data(), x.im.data(), n, 1, false); },
        [&] { plain_transform(x.re.data(), x.im.data(), n, false); }, x);
}

const bool registered = [] {
    for (const bool inverse : {false, true})
        for (std::int64_t n = 64; n <= 1 << 20; n *= 2)
            register_line(std::string("transform, ") + (inverse ? "inverse" : "forward") + " / FFTW", n,
                          pairs_of_transforms(n),
                          [n, inverse](benchmark::State& state) { against_fftw(state, n, inverse); });
    for (const vector_kernels* const kernels : quenta::runnable_tables<vector_kernels>())
        for (const std::int64_t n : {64, 1024, 16384, 65536})
            register_line(std::string("transform, ") + kernels->name + " / FFTW", n, pairs_of_transforms(n),
                          [n, kernels](benchmark::State& state) { table_against_fftw(state, *kernels, n); });
    for (const vector_kernels* const kernels : quenta::runnable_tables<vector_kernels>())
        for (const std::int64_t n : {64, 1024, 16384, 65536})
            register_line(std::string("transform, ") + kernels->name + " / plain loop", n, pairs_of_transforms(n),
                          [n, kernels](benchmark::State& state) { table_against_plain_loop(state, *kernels, n); });
    return true;
}();

} // namespace
