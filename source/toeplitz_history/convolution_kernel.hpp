// The other vectorized loops of the history: direct sums, copies of blocks by columns, and products of spectra.
#pragma once

#include "toeplitz_history/vector_kernels.hpp"
#include "utility/lanes.hpp"

#include <cstdint>
#include <utility>

namespace quenta {

template <class instruction_set>
struct convolution_kernel {
    static constexpr int width = instruction_set::width;

    // ---- Direct sums ---------------------------------------------------------------------------------------------
    //
    // By definition a dot product starts from 0.0 and is then added to its sum. Here it starts from its first product,
    // which makes no difference: the 0.0 could only turn a dot product of -0.0 into 0.0, and a sum, which itself starts
    // from 0.0, is never -0.0 and stays the same with either.

    // Scalar blocks: the targets of one source are contiguous in both arrays, so the lanes are targets. `count`
    // registers of targets are computed together.
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

    // The last targets, fewer than 2 * lane_count, with narrower and narrower registers.
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

    // Larger blocks: the lanes are rows. `pairs` pairs are computed together, each with its own dot product, and share
    // the loads of the block.
    template <int lane_count, int pairs>
    [[gnu::always_inline]] static void add_block_rows(double* sums, const double* block, const double* x,
                                                      std::int64_t rows, std::int64_t p, std::int64_t q,
                                                      std::int64_t stride) {
        lanes<lane_count> dot[pairs];
        const lanes<lane_count> first_column = load<lane_count>(block);
        for (int u = 0; u < pairs; ++u)
            dot[u] = first_column * broadcast<lane_count>(x[u * q]);
        for (std::int64_t c = 1; c < q; ++c) {
            const lanes<lane_count> column = load<lane_count>(block + c * stride);
            for (int u = 0; u < pairs; ++u)
                dot[u] += column * broadcast<lane_count>(x[u * q + c]);
        }
        if (rows >= lane_count) {
            for (int u = 0; u < pairs; ++u)
                store<lane_count>(sums + u * p, load<lane_count>(sums + u * p) + dot[u]);
        } else {
            for (int u = 0; u < pairs; ++u) {
                double added[lane_count];
                store<lane_count>(added, dot[u]);
                for (std::int64_t r = 0; r < rows; ++r)
                    sums[u * p + r] += added[r];
            }
        }
    }

    template <int lane_count, int pairs>
    static void add_some_products(double* sums, const double* block, const double* x, std::int64_t p, std::int64_t q) {
        const std::int64_t stride = padded_rows(p);
        for (std::int64_t r = 0; r < p; r += lane_count)
            add_block_rows<lane_count, pairs>(sums + r, block + r, x, p - r, p, q, stride);
    }

    // `together` pairs at a time; the rest in groups of half as many, and so on.
    template <int lane_count, int together>
    [[gnu::always_inline]] static void add_products(double* sums, const double* block, const double* x,
                                                    std::int64_t pairs, std::int64_t p, std::int64_t q) {
        for (; pairs >= together; pairs -= together) {
            add_some_products<lane_count, together>(sums, block, x, p, q);
            sums += together * p;
            x += together * q;
        }
        if constexpr (together > 1)
            add_products<lane_count, together / 2>(sums, block, x, pairs, p, q);
    }

    static void add_block_products(double* sums, const double* block, const double* x, std::int64_t pairs,
                                   std::int64_t p, std::int64_t q) {
        constexpr int together = 4;
        if (p <= 4)
            add_products<(width < 4 ? width : 4), together>(sums, block, x, pairs, p, q);
        else
            add_products<width, together>(sums, block, x, pairs, p, q);
    }

    template <int lane_count, int... lane>
    [[gnu::always_inline]] static lanes<lane_count> gathered(const double* const (&row)[lane_count], std::int64_t c,
                                                             std::integer_sequence<int, lane...>) {
        return lanes<lane_count>{row[lane][c]...};
    }

    // Square tiles are transposed in registers, and the remaining columns are gathered. Whole registers are stored,
    // because the products load whole registers soon after, and loads that overlap narrower stores would stall. The
    // padding repeats the last row.
    template <int lane_count>
    static void copy_by_registers(double* columns, const double* rows, std::int64_t p, std::int64_t q) {
        const std::int64_t stride = padded_rows(p);
        for (std::int64_t r = 0; r < p; r += lane_count) {
            const double* row[lane_count] = {rows + r * q};
            for (int i = 1; i < lane_count; ++i)
                row[i] = row[i - 1] + (r + i < p ? q : 0);
            std::int64_t c = 0;
            for (; c + lane_count <= q; c += lane_count) {
                lanes<lane_count> square[lane_count];
                for (int i = 0; i < lane_count; ++i)
                    square[i] = load<lane_count>(row[i] + c);
                transpose<lane_count>(square);
                for (int i = 0; i < lane_count; ++i)
                    store<lane_count>(columns + (c + i) * stride + r, square[i]);
            }
            for (; c < q; ++c)
                store<lane_count>(columns + c * stride + r,
                                  gathered<lane_count>(row, c, std::make_integer_sequence<int, lane_count>{}));
        }
    }

    static void copy_columns(double* columns, const double* rows, std::int64_t p, std::int64_t q) {
        if (p <= 4)
            copy_by_registers<(width < 4 ? width : 4)>(columns, rows, p, q);
        else
            copy_by_registers<width>(columns, rows, p, q);
    }

    // ---- Products of spectra -------------------------------------------------------------------------------------

    static void multiply_spectra(double* acc_re, double* acc_im, const double* kernel_re, const double* kernel_im,
                                 const double* x_re, const double* x_im, std::int64_t length, std::int64_t p,
                                 std::int64_t q, bool from_zero) {
        constexpr int together = 4; // registers of real parts, and of imaginary parts, of the sums
        constexpr std::int64_t part = together * width;
        static_assert(spectrum_tile % part == 0);
        for (std::int64_t tile = 0; tile < length; tile += spectrum_tile)
            for (std::int64_t r = 0; r < p; ++r, kernel_re += q * spectrum_tile, kernel_im += q * spectrum_tile)
                for (std::int64_t f = 0; f < spectrum_tile; f += part) {
                    double* const to_re = acc_re + r * length + tile + f;
                    double* const to_im = acc_im + r * length + tile + f;
                    lanes<width> sum_re[together] = {}, sum_im[together] = {};
                    if (!from_zero)
                        for (int i = 0; i < together; ++i) {
                            sum_re[i] = load<width>(to_re + i * width);
                            sum_im[i] = load<width>(to_im + i * width);
                        }
                    for (std::int64_t c = 0; c < q; ++c)
                        for (int i = 0; i < together; ++i) {
                            const std::int64_t in_kernel = c * spectrum_tile + f + i * width;
                            const std::int64_t in_x = c * length + tile + f + i * width;
                            const lanes<width> k_re = load<width>(kernel_re + in_kernel);
                            const lanes<width> k_im = load<width>(kernel_im + in_kernel);
                            const lanes<width> v_re = load<width>(x_re + in_x), v_im = load<width>(x_im + in_x);
                            // The products are combined first, and then added to the sum.
                            sum_re[i] += k_re * v_re - k_im * v_im;
                            sum_im[i] += k_im * v_re + k_re * v_im;
                        }
                    for (int i = 0; i < together; ++i) {
                        store<width>(to_re + i * width, sum_re[i]);
                        store<width>(to_im + i * width, sum_im[i]);
                    }
                }
    }
};

} // namespace quenta
