// The peer of the solvers: the same online block schedule, written for speed on FFTW's real transforms.
//
// Everything that depends on the size alone is made before the clock starts: plans (measured) and all arrays. The
// kernel's spectra are cached without a limit and carry the scale of the transform. Data are planar, one row for each
// component, so that every loop runs along the steps. Up to block size 16 the sums are direct, in loops of fixed length
// whose sums stay in registers.
#pragma once

#include "fftw_transforms.hpp"

#include "utility/aligned_vector.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

// H[t] = sum over j = 0 .. t-1 of K[t-j] * x[j] with p x q blocks; x[j] is given by push, in order.
template <int p, int q>
class fftw_history {
public:
    explicit fftw_history(std::int64_t steps)
        : n(steps), stride(rounded_up(steps)), kernel_rows(p * q * stride), sum_rows(p * stride),
          pushed_rows(q * stride) {
        std::int64_t largest = 0;
        for (std::int64_t s = smallest_block; s + smallest_block <= n; s *= 2) {
            levels.emplace_back(s);
            largest = s;
        }
        values.resize(2 * largest);
        source_spectra.resize(q * spectrum_size(largest));
        product.resize(spectrum_size(largest));
        for (level& each : levels) {
            const int points = static_cast<int>(2 * each.s);
            each.forward = plan_real_to_complex(values.data(), as_complex(product.data()), points);
            each.inverse = plan_complex_to_real(as_complex(product.data()), values.data(), points);
        }
    }

    // Entry (r, c) of all lags, to be filled before `start`.
    double* kernel(int r, int c) { return kernel_rows.data() + (r * q + c) * stride; }
    // Component r of H.
    const double* sums(int r) const { return sum_rows.data() + r * stride; }

    void start() {
        std::fill(sum_rows.begin(), sum_rows.end(), 0.0);
        count = 0;
    }

    void push(const double* x) {
        for (int c = 0; c < q; ++c)
            pushed_rows[c * stride + count] = x[c];
        const std::int64_t i = ++count;
        if (i >= n)
            return;
        const std::int64_t s = i & -i;
        const std::int64_t targets = std::min(s, n - i);
        if (s >= smallest_block && targets >= smallest_block)
            add_transformed(i, s, targets);
        else if (targets < s)
            add_direct(i, s, targets);
        else if (s == 1)
            add_direct<1>(i);
        else if (s == 2)
            add_direct<2>(i);
        else if (s == 4)
            add_direct<4>(i);
        else if (s == 8)
            add_direct<8>(i);
        else
            add_direct<16>(i);
    }

private:
    static constexpr std::int64_t smallest_block = 32;

    static std::int64_t rounded_up(std::int64_t count) { return (count + 7) / 8 * 8; }
    // Doubles that the s + 1 frequencies of a real transform of 2 s points take, in whole cache lines.
    static std::int64_t spectrum_size(std::int64_t s) { return rounded_up(2 * (s + 1)); }
    static fftw_complex* as_complex(double* spectrum) { return reinterpret_cast<fftw_complex*>(spectrum); }

    struct level {
        explicit level(std::int64_t block_size) : s(block_size), spectra(p * q * spectrum_size(block_size)) {}
        std::int64_t s;
        quenta::aligned_vector spectra; // entry (r, c) at (r*q + c) * spectrum_size(s)
        owned_fftw_plan forward, inverse;
    };

    template <int s>
    void add_direct(std::int64_t i) {
        for (int r = 0; r < p; ++r) {
            std::array<double, s> added{};
            for (int c = 0; c < q; ++c) {
                const double* const x = &pushed_rows[c * stride + i - s];
                const double* const lag = kernel(r, c) + s;
                for (int j = 0; j < s; ++j)
                    for (int t = 0; t < s; ++t)
                        added[t] += lag[t - j] * x[j];
            }
            double* const sum = &sum_rows[r * stride + i];
            for (int t = 0; t < s; ++t)
                sum[t] += added[t];
        }
    }

    void add_direct(std::int64_t i, std::int64_t s, std::int64_t targets) {
        for (int r = 0; r < p; ++r)
            for (int c = 0; c < q; ++c)
                for (std::int64_t j = i - s; j < i; ++j) {
                    const double x = pushed_rows[c * stride + j];
                    const double* const lag = kernel(r, c) + (i - j);
                    double* const sum = &sum_rows[r * stride + i];
                    for (std::int64_t t = 0; t < targets; ++t)
                        sum[t] += lag[t] * x;
                }
    }

    // The spectrum of the `used` values in front, zeros behind them.
    void transform(const level& at, std::int64_t used, double* spectrum) {
        std::fill(values.begin() + used, values.begin() + 2 * at.s, 0.0);
        fftw_execute_dft_r2c(at.forward.get(), values.data(), as_complex(spectrum));
    }

    void transform_kernel(level& at) {
        const std::int64_t lags = std::min(2 * at.s, n);
        const double scale = 1.0 / double(2 * at.s);
        for (int r = 0; r < p; ++r)
            for (int c = 0; c < q; ++c) {
                const double* const lag = kernel(r, c);
                values[0] = 0.0; // lag 0 belongs to the present step
                for (std::int64_t u = 1; u < lags; ++u)
                    values[u] = lag[u] * scale;
                transform(at, lags, at.spectra.data() + (r * q + c) * spectrum_size(at.s));
            }
    }

    void add_transformed(std::int64_t i, std::int64_t s, std::int64_t targets) {
        std::size_t index = 0;
        while (levels[index].s < s)
            ++index;
        level& at = levels[index];
        if (i == s)
            transform_kernel(at); // the first block of this size
        for (int c = 0; c < q; ++c) {
            std::copy_n(&pushed_rows[c * stride + i - s], s, values.data());
            transform(at, s, source_spectra.data() + c * spectrum_size(s));
        }
        for (int r = 0; r < p; ++r) {
            multiply(at, r);
            fftw_execute_dft_c2r(at.inverse.get(), as_complex(product.data()), values.data());
            double* const sum = &sum_rows[r * stride + i];
            for (std::int64_t t = 0; t < targets; ++t)
                sum[t] += values[s + t];
        }
    }

    // product = sum over c of spectrum (r, c) times the spectrum of component c.
    void multiply(const level& at, int r) {
        const std::int64_t size = spectrum_size(at.s);
        const double* const k = at.spectra.data() + r * q * size;
        multiply_add<true>(k, source_spectra.data(), at.s);
        for (int c = 1; c < q; ++c)
            multiply_add<false>(k + c * size, source_spectra.data() + c * size, at.s);
    }

    template <bool first>
    void multiply_add(const double* k, const double* x, std::int64_t s) {
        double* const sum = product.data();
        for (std::int64_t u = 0; u <= s; ++u) {
            const double re = k[2 * u] * x[2 * u] - k[2 * u + 1] * x[2 * u + 1];
            const double im = k[2 * u + 1] * x[2 * u] + k[2 * u] * x[2 * u + 1];
            sum[2 * u] = first ? re : sum[2 * u] + re;
            sum[2 * u + 1] = first ? im : sum[2 * u + 1] + im;
        }
    }

    std::int64_t n, stride, count = 0;
    quenta::aligned_vector kernel_rows, sum_rows, pushed_rows;
    std::vector<level> levels;
    quenta::aligned_vector values, source_spectra, product;
};
