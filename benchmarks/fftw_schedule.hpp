// The peer of the solvers: the same online block schedule on FFTW's real transforms, optimized for speed.
//
// Plans (measured) and arrays are made before the clock starts. The spectra of the kernel are cached without a limit
// and contain the scale of the transform. Data are planar, one row for each component, so that every inner loop runs
// along the steps. Up to block size 16 the sums are direct, in loops of fixed length whose sums stay in registers.
#pragma once

#include "fftw_transforms.hpp"

#include "utility/aligned_vector.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

// H[n] = sum over k = 0 .. n-1 of K[n - k] x[k], with K[d] of `rows` x `columns`. `push` passes x[k], in order.
template <int rows, int columns>
class fftw_history {
public:
    explicit fftw_history(std::int64_t number_of_steps)
        : steps(number_of_steps), stride(rounded_up(steps)), kernel_rows(rows * columns * stride),
          sum_rows(rows * stride), pushed_rows(columns * stride) {
        std::int64_t largest = 0;
        for (std::int64_t size = smallest_block; size + smallest_block <= steps; size *= 2) {
            levels.emplace_back(size);
            largest = size;
        }
        values.resize(2 * largest);
        source_spectra.resize(columns * spectrum_size(largest));
        product.resize(spectrum_size(largest));
        for (level& each : levels) {
            const int points = static_cast<int>(2 * each.size);
            each.forward = plan_real_to_complex(values.data(), as_complex(product.data()), points);
            each.inverse = plan_complex_to_real(as_complex(product.data()), values.data(), points);
        }
    }

    // Entry (R, C) at all lags, to be filled before `start`.
    double* kernel(int R, int C) { return kernel_rows.data() + (R * columns + C) * stride; }
    // Component R of H at all steps.
    const double* sums(int R) const { return sum_rows.data() + R * stride; }

    // If the kernel is the same as before, so are its spectra.
    void start(bool is_new_kernel = true) {
        transforms_kernel = is_new_kernel;
        std::fill(sum_rows.begin(), sum_rows.end(), 0.0);
        pushed = 0;
    }

    void push(const double* x) {
        for (int C = 0; C < columns; ++C)
            pushed_rows[C * stride + pushed] = x[C];
        const std::int64_t n = ++pushed;
        if (n >= steps)
            return;
        const std::int64_t size = n & -n;
        const std::int64_t targets = std::min(size, steps - n);
        if (size >= smallest_block && targets >= smallest_block)
            add_transformed(n, size, targets);
        else if (targets < size)
            add_direct(n, size, targets);
        else if (size == 1)
            add_direct<1>(n);
        else if (size == 2)
            add_direct<2>(n);
        else if (size == 4)
            add_direct<4>(n);
        else if (size == 8)
            add_direct<8>(n);
        else
            add_direct<16>(n);
    }

private:
    static constexpr std::int64_t smallest_block = 32;

    static std::int64_t rounded_up(std::int64_t count) { return (count + 7) / 8 * 8; }
    // Doubles for the size + 1 frequencies of a real transform of 2 size points, in whole cache lines.
    static std::int64_t spectrum_size(std::int64_t size) { return rounded_up(2 * (size + 1)); }
    static fftw_complex* as_complex(double* spectrum) { return reinterpret_cast<fftw_complex*>(spectrum); }

    struct level {
        explicit level(std::int64_t block_size)
            : size(block_size), spectra(rows * columns * spectrum_size(block_size)) {}
        std::int64_t size;
        quenta::aligned_vector spectra; // entry (R, C) at (R * columns + C) * spectrum_size(size)
        owned_fftw_plan forward, inverse;
    };

    // Adds the terms of x[n - size .. n - 1] to H[n .. n + size - 1].
    template <int size>
    void add_direct(std::int64_t n) {
        for (int R = 0; R < rows; ++R) {
            std::array<double, size> added{};
            for (int C = 0; C < columns; ++C) {
                const double* const x = &pushed_rows[C * stride + n - size];
                const double* const first_lag = kernel(R, C) + size;
                for (int source = 0; source < size; ++source)
                    for (int target = 0; target < size; ++target)
                        added[target] += first_lag[target - source] * x[source];
            }
            double* const sum = &sum_rows[R * stride + n];
            for (int target = 0; target < size; ++target)
                sum[target] += added[target];
        }
    }

    // The same with H[n .. n + targets - 1].
    void add_direct(std::int64_t n, std::int64_t size, std::int64_t targets) {
        for (int R = 0; R < rows; ++R)
            for (int C = 0; C < columns; ++C)
                for (std::int64_t k = n - size; k < n; ++k) {
                    const double x = pushed_rows[C * stride + k];
                    const double* const first_lag = kernel(R, C) + (n - k);
                    double* const sum = &sum_rows[R * stride + n];
                    for (std::int64_t target = 0; target < targets; ++target)
                        sum[target] += first_lag[target] * x;
                }
    }

    // The spectrum of the first `used` values, padded with zeros.
    void transform(const level& at, std::int64_t used, double* spectrum) {
        std::fill(values.begin() + used, values.begin() + 2 * at.size, 0.0);
        fftw_execute_dft_r2c(at.forward.get(), values.data(), as_complex(spectrum));
    }

    void transform_kernel(level& at) {
        const std::int64_t lags = std::min(2 * at.size, steps);
        const double scale = 1.0 / double(2 * at.size);
        for (int R = 0; R < rows; ++R)
            for (int C = 0; C < columns; ++C) {
                const double* const entry = kernel(R, C);
                values[0] = 0.0; // lag 0 belongs to the current step
                for (std::int64_t d = 1; d < lags; ++d)
                    values[d] = entry[d] * scale;
                transform(at, lags, at.spectra.data() + (R * columns + C) * spectrum_size(at.size));
            }
    }

    void add_transformed(std::int64_t n, std::int64_t size, std::int64_t targets) {
        std::size_t index = 0;
        while (levels[index].size < size)
            ++index;
        level& at = levels[index];
        const bool is_first_of_this_size = n == size;
        if (is_first_of_this_size && transforms_kernel)
            transform_kernel(at);
        for (int C = 0; C < columns; ++C) {
            std::copy_n(&pushed_rows[C * stride + n - size], size, values.data());
            transform(at, size, source_spectra.data() + C * spectrum_size(size));
        }
        for (int R = 0; R < rows; ++R) {
            multiply(at, R);
            fftw_execute_dft_c2r(at.inverse.get(), as_complex(product.data()), values.data());
            double* const sum = &sum_rows[R * stride + n];
            for (std::int64_t target = 0; target < targets; ++target)
                sum[target] += values[size + target];
        }
    }

    // product = sum over C of spectrum (R, C) times the spectrum of component C.
    void multiply(const level& at, int R) {
        const std::int64_t doubles = spectrum_size(at.size);
        const double* const first = at.spectra.data() + R * columns * doubles;
        multiply_add<true>(first, source_spectra.data(), at.size);
        for (int C = 1; C < columns; ++C)
            multiply_add<false>(first + C * doubles, source_spectra.data() + C * doubles, at.size);
    }

    template <bool is_first>
    void multiply_add(const double* kernel_spectrum, const double* x, std::int64_t size) {
        double* const sum = product.data();
        for (std::int64_t f = 0; f <= size; ++f) {
            const double kernel_re = kernel_spectrum[2 * f], kernel_im = kernel_spectrum[2 * f + 1];
            const double re = kernel_re * x[2 * f] - kernel_im * x[2 * f + 1];
            const double im = kernel_im * x[2 * f] + kernel_re * x[2 * f + 1];
            sum[2 * f] = is_first ? re : sum[2 * f] + re;
            sum[2 * f + 1] = is_first ? im : sum[2 * f + 1] + im;
        }
    }

    std::int64_t steps, stride, pushed = 0;
    bool transforms_kernel = true;
    quenta::aligned_vector kernel_rows, sum_rows, pushed_rows;
    std::vector<level> levels;
    quenta::aligned_vector values, source_spectra, product;
};
