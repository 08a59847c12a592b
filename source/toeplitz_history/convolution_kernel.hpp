// The two other loops of a history by lanes: the direct sums of small blocks, and the products of spectra.
#pragma once

#include "utility/lanes.hpp"

#include <cstdint>

namespace quenta {

template <class isa>
struct convolution_kernel {
    static constexpr int width = isa::width;

    // ---- Direct sums ---------------------------------------------------------------------------------------------
    //
    // A dot product starts from 0.0 and is then added to its sum. The 0.0 is left out: it could only turn a product of
    // -0.0 into 0.0, and a sum, which starts at 0.0, never is -0.0 and so stays the same with either.

    // Scalar blocks: the targets of one source are contiguous in both arrays, so that lanes are targets.
    // `count` registers of them advance together.
    template <int lane_count, int count>
    [[gnu::always_inline]] static void add_to_targets(double* sums, const double* kernel, const double* x,
                                                      std::int64_t sources) {
        lanes<lane_count> sum[count];
        for (int i = 0; i < count; ++i)
            sum[i] = load<lane_count>(sums + i * lane_count);
        for (std::int64_t j = 0; j < sources; ++j) {
            const lanes<lane_count> value = broadcast<lane_count>(x[j]);
            for (int i = 0; i < count; ++i)
                sum[i] += load<lane_count>(kernel - j + i * lane_count) * value;
        }
        for (int i = 0; i < count; ++i)
            store<lane_count>(sums + i * lane_count, sum[i]);
    }

    // The last targets, fewer than twice `lane_count`, by ever narrower registers.
    template <int lane_count>
    static void add_to_last_targets(double* sums, const double* kernel, const double* x, std::int64_t targets,
                                    std::int64_t sources) {
        if (targets >= lane_count) {
            add_to_targets<lane_count, 1>(sums, kernel, x, sources);
            sums += lane_count;
            kernel += lane_count;
            targets -= lane_count;
        }
        if constexpr (lane_count > 2) {
            add_to_last_targets<lane_count / 2>(sums, kernel, x, targets, sources);
        } else if (targets > 0) {
            double sum = *sums;
            for (std::int64_t j = 0; j < sources; ++j)
                sum += kernel[-j] * x[j];
            *sums = sum;
        }
    }

    static void add_scalar_sums(double* sums, const double* kernel, const double* x, std::int64_t targets,
                                std::int64_t sources) {
        constexpr int together = 4;
        for (; targets >= together * width; targets -= together * width) {
            add_to_targets<width, together>(sums, kernel, x, sources);
            sums += together * width;
            kernel += together * width;
        }
        for (; targets >= 2 * width; targets -= width) {
            add_to_targets<width, 1>(sums, kernel, x, sources);
            sums += width;
            kernel += width;
        }
        add_to_last_targets<width>(sums, kernel, x, targets, sources);
    }

    // Larger blocks: `rows` rows of a block are in flight at a time, each with its own running dot product.
    template <int rows>
    [[gnu::always_inline]] static void add_rows(double* sums, const double* kernel, const double* x,
                                                std::int64_t sources, std::int64_t block, std::int64_t q) {
        double sum[rows];
        for (int r = 0; r < rows; ++r)
            sum[r] = sums[r];
        for (std::int64_t j = 0; j < sources; ++j, kernel -= block, x += q) {
            double dot[rows];
            for (int r = 0; r < rows; ++r)
                dot[r] = kernel[r * q] * x[0];
            for (std::int64_t c = 1; c < q; ++c)
                for (int r = 0; r < rows; ++r)
                    dot[r] += kernel[r * q + c] * x[c];
            for (int r = 0; r < rows; ++r)
                sum[r] += dot[r];
        }
        for (int r = 0; r < rows; ++r)
            sums[r] = sum[r];
    }

    static void add_direct_sums(double* sums, const double* kernel, const double* x, std::int64_t targets,
                                std::int64_t sources, std::int64_t p, std::int64_t q) {
        if (p == 1 && q == 1) {
            add_scalar_sums(sums, kernel, x, targets, sources);
            return;
        }
        const std::int64_t block = p * q;
        for (std::int64_t t = 0; t < targets; ++t, sums += p, kernel += block) {
            std::int64_t r = 0;
            for (; r + 4 <= p; r += 4)
                add_rows<4>(sums + r, kernel + r * q, x, sources, block, q);
            if (p - r == 3)
                add_rows<3>(sums + r, kernel + r * q, x, sources, block, q);
            else if (p - r == 2)
                add_rows<2>(sums + r, kernel + r * q, x, sources, block, q);
            else if (p - r == 1)
                add_rows<1>(sums + r, kernel + r * q, x, sources, block, q);
        }
    }

    // ---- Products of spectra -------------------------------------------------------------------------------------

    static void multiply_spectra(double* acc_re, double* acc_im, const double* kernel_re, const double* kernel_im,
                                 const double* x_re, const double* x_im, std::int64_t length, std::int64_t columns,
                                 bool from_zero) {
        static_assert(8 % width == 0);
        for (std::int64_t u = 0; u < length; u += width) {
            lanes<width> sum_re{}, sum_im{};
            if (!from_zero) {
                sum_re = load<width>(acc_re + u);
                sum_im = load<width>(acc_im + u);
            }
            for (std::int64_t c = 0; c < columns; ++c) {
                const std::int64_t at = c * length + u;
                const lanes<width> k_re = load<width>(kernel_re + at), k_im = load<width>(kernel_im + at);
                const lanes<width> v_re = load<width>(x_re + at), v_im = load<width>(x_im + at);
                // The difference, or sum, of the products is formed first, and then added.
                sum_re += k_re * v_re - k_im * v_im;
                sum_im += k_im * v_re + k_re * v_im;
            }
            store<width>(acc_re + u, sum_re);
            store<width>(acc_im + u, sum_im);
        }
    }
};

} // namespace quenta
