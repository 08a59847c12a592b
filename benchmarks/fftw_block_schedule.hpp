// The schedule of known_kernel_history on FFTW's real transforms, optimized for speed: blocks of steps are split 8
// ways, each is transformed once, and each gets one inverse transform. Plans (measured), arrays and the spectra of the
// kernel are made before the clock starts. Data are planar, one row for each component.
#pragma once

#include "fftw_transforms.hpp"

#include "utility/aligned_vector.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

template <int rows, int columns>
class fftw_block_history {
public:
    // `kernel` is called with a row, a column and a lag from 1 to steps - 1.
    template <class function>
    fftw_block_history(std::int64_t number_of_steps, const function& kernel) : steps(number_of_steps) {
        constexpr std::int64_t most_blocks = rows * columns == 1 ? 16 : 8;
        std::int64_t largest = smallest;
        while (largest * most_blocks < steps)
            largest *= 2;
        stride = (steps + largest - 1) / largest * largest + 8;
        near_kernel.assign(rows * columns * near_stride, 0.0);
        for (int R = 0; R < rows; ++R)
            for (int C = 0; C < columns; ++C)
                for (std::int64_t lag = 1; lag < std::min(steps, smallest); ++lag)
                    near(R, C, lag) = kernel(R, C, lag);
        sum_rows.assign(rows * stride, 0.0);
        pushed_rows.assign(columns * stride, 0.0);
        for (std::int64_t size = smallest; size < largest;) {
            const std::int64_t blocks = std::min<std::int64_t>(8, largest / size);
            levels.emplace_back(size, blocks);
            size *= blocks;
        }
        levels.emplace_back(largest, (steps + largest - 1) / largest);
        values.resize(2 * largest);
        product.resize(spectrum_size(largest));
        for (level& each : levels)
            prepare(each, kernel);
    }

    const double* sums(int R) const { return sum_rows.data() + R * stride; }

    void start() {
        std::fill(sum_rows.begin(), sum_rows.end(), 0.0);
        done = 0;
    }

    void push(const double* x) {
        const std::int64_t k = done++, in_tile = k % tile;
        for (int C = 0; C < columns; ++C)
            pushed_rows[C * stride + k] = x[C];
        for (int R = 0; R < rows; ++R) {
            double* const sum = &sum_rows[R * stride + k - in_tile];
            for (int C = 0; C < columns; ++C) {
                const double* const lags = &near(R, C, -in_tile);
                for (int target = 0; target < tile; ++target)
                    sum[target] += lags[target] * x[C];
            }
        }
        if (done == steps || done % tile != 0)
            return;
        if (done % (2 * tile) != 0)
            add_direct<tile>(tile);
        else if (done % smallest != 0)
            add_direct<2 * tile>(done % smallest);
        else
            add_transformed();
    }

private:
    static constexpr std::int64_t smallest = 128, tile = 16, near_stride = smallest + 2 * tile;

    static std::int64_t spectrum_size(std::int64_t size) { return (2 * (size + 1) + 7) / 8 * 8; }
    static fftw_complex* as_complex(double* spectrum) { return reinterpret_cast<fftw_complex*>(spectrum); }

    struct level {
        level(std::int64_t block_size, std::int64_t number_of_blocks)
            : size(block_size), blocks(number_of_blocks), kernel((blocks - 1) * rows * columns * spectrum_size(size)),
              sources((blocks - 1) * columns * spectrum_size(size)) {}
        double* kernel_spectrum(std::int64_t distance, int R, int C) {
            return kernel.data() + (((distance - 1) * rows + R) * columns + C) * spectrum_size(size);
        }
        double* source_spectrum(std::int64_t block, int C) {
            return sources.data() + (block * columns + C) * spectrum_size(size);
        }
        std::int64_t size, blocks;
        quenta::aligned_vector kernel, sources;
        owned_fftw_plan forward, inverse;
    };

    double& near(int R, int C, std::int64_t lag) { return near_kernel[(R * columns + C) * near_stride + tile + lag]; }

    template <class function>
    void prepare(level& at, const function& kernel) {
        const int points = static_cast<int>(2 * at.size);
        at.forward = plan_real_to_complex(values.data(), as_complex(product.data()), points);
        at.inverse = plan_complex_to_real(as_complex(product.data()), values.data(), points);
        for (std::int64_t distance = 1; distance < at.blocks; ++distance)
            for (int R = 0; R < rows; ++R)
                for (int C = 0; C < columns; ++C) {
                    for (std::int64_t d = 0; d < 2 * at.size; ++d) {
                        const std::int64_t lag = (distance - 1) * at.size + d;
                        values[d] = lag > 0 && lag < steps ? kernel(R, C, lag) / double(2 * at.size) : 0.0;
                    }
                    transform(at, at.kernel_spectrum(distance, R, C));
                }
    }

    void transform(const level& at, double* spectrum) {
        fftw_execute_dft_r2c(at.forward.get(), values.data(), as_complex(spectrum));
    }

    template <int targets>
    void add_direct(std::int64_t sources) {
        for (int R = 0; R < rows; ++R) {
            std::array<double, targets> added{};
            for (int C = 0; C < columns; ++C) {
                const double* const x = &pushed_rows[C * stride + done - sources];
                const double* const first_lag = &near(R, C, sources);
                for (std::int64_t source = 0; source < sources; ++source)
                    for (int target = 0; target < targets; ++target)
                        added[target] += first_lag[target - source] * x[source];
            }
            double* const sum = &sum_rows[R * stride + done];
            for (int target = 0; target < targets; ++target)
                sum[target] += added[target];
        }
    }

    void add_transformed() {
        std::size_t index = 0;
        while (index + 1 < levels.size() && done % (levels[index].size * levels[index].blocks) == 0)
            ++index;
        level& at = levels[index];
        const std::int64_t s = at.size, all = done / s;
        const std::int64_t ended = index + 1 < levels.size() ? all % at.blocks : all;
        for (int C = 0; C < columns; ++C) {
            std::copy_n(&pushed_rows[C * stride + done - s], s, values.data());
            std::fill_n(values.data() + s, s, 0.0);
            transform(at, at.source_spectrum(ended - 1, C));
        }
        for (int R = 0; R < rows; ++R) {
            std::fill(product.begin(), product.begin() + spectrum_size(s), 0.0);
            for (std::int64_t block = 0; block < ended; ++block)
                for (int C = 0; C < columns; ++C)
                    multiply_add(at.kernel_spectrum(ended - block, R, C), at.source_spectrum(block, C), s);
            fftw_execute_dft_c2r(at.inverse.get(), as_complex(product.data()), values.data());
            double* const sum = &sum_rows[R * stride + done];
            for (std::int64_t target = 0; target < s; ++target)
                sum[target] += values[s + target];
        }
    }

    void multiply_add(const double* kernel, const double* x, std::int64_t size) {
        double* const sum = product.data();
        for (std::int64_t f = 0; f <= size; ++f) {
            sum[2 * f] += kernel[2 * f] * x[2 * f] - kernel[2 * f + 1] * x[2 * f + 1];
            sum[2 * f + 1] += kernel[2 * f + 1] * x[2 * f] + kernel[2 * f] * x[2 * f + 1];
        }
    }

    std::int64_t steps, stride = 0, done = 0;
    quenta::aligned_vector near_kernel, sum_rows, pushed_rows;
    std::vector<level> levels;
    quenta::aligned_vector values, product;
};
