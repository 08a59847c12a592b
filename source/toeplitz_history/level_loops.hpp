// The loops of known_kernel_history for one instruction set. A lane is a target, or a frequency, so the order of the
// additions does not depend on the width of the registers.
#pragma once

#include "toeplitz_history/level_kernels.hpp"
#include "utility/instruction_sets.hpp"
#include "utility/lanes.hpp"

#include <cstdint>

namespace quenta {

template <class instruction_set>
struct level_loops {
    static constexpr int width = instruction_set::width;
    using vector = lanes<width>;

    // The targets of one row, in registers.
    template <std::int64_t targets>
    struct row_sums {
        static constexpr int registers = targets / width;
        vector sum[registers];

        [[gnu::always_inline]] explicit row_sums(const double* from) {
            for (int i = 0; i < registers; ++i)
                sum[i] = load<width>(from + i * width);
        }
        [[gnu::always_inline]] void add(const double* kernel, double x) {
            const vector value = broadcast<width>(x);
            for (int i = 0; i < registers; ++i)
                sum[i] += load<width>(kernel + i * width) * value;
        }
        [[gnu::always_inline]] void write(double* to) const {
            for (int i = 0; i < registers; ++i)
                store<width>(to + i * width, sum[i]);
        }
    };

    static void add_source(double* sums, std::int64_t sum_stride, const direct_kernel& kernel, const double* x) {
        const double* entry = kernel.first;
        for (std::int64_t r = 0; r < kernel.p; ++r, sums += sum_stride) {
            row_sums<near_targets> row{sums};
            for (std::int64_t c = 0; c < kernel.q; ++c, entry += kernel.stride)
                row.add(entry, x[c]);
            row.write(sums);
        }
    }

    template <std::int64_t targets>
    static void add_to_targets(double* sums, std::int64_t sum_stride, const direct_kernel& kernel, const double* x,
                               std::int64_t x_stride, std::int64_t sources) {
        const double* entry = kernel.first;
        for (std::int64_t r = 0; r < kernel.p; ++r, sums += sum_stride) {
            row_sums<targets> row{sums};
            for (std::int64_t c = 0; c < kernel.q; ++c, entry += kernel.stride)
                for (std::int64_t j = 0; j < sources; ++j)
                    row.add(entry - j, x[c * x_stride + j]);
            row.write(sums);
        }
    }

    static void add_sources(double* sums, std::int64_t sum_stride, const direct_kernel& kernel, const double* x,
                            std::int64_t x_stride, std::int64_t sources, bool half) {
        if (half)
            add_to_targets<near_targets>(sums, sum_stride, kernel, x, x_stride, sources);
        else
            add_to_targets<square_targets>(sums, sum_stride, kernel, x, x_stride, sources);
    }

    static void twist(double* re, double* im, const double* x, const twist_factors& factors) {
        for (std::int64_t k = 0; k < factors.length; k += width) {
            const vector value = load<width>(x + k);
            store<width>(re + k, value * load<width>(factors.re + k));
            store<width>(im + k, value * load<width>(factors.im + k));
        }
    }

    static void add_untwisted(double* sums, const double* re, const double* im, const twist_factors& factors,
                              double scale) {
        const vector all_scale = broadcast<width>(scale);
        for (std::int64_t k = 0; k < factors.length; k += width) {
            const vector value =
                load<width>(im + k) * load<width>(factors.re + k) - load<width>(re + k) * load<width>(factors.im + k);
            store<width>(sums + k, load<width>(sums + k) + value * all_scale);
        }
    }

    // Frequencies f .. f + together * width - 1 of one row of one tile.
    template <int together>
    [[gnu::always_inline]] static void sum_part(double* re, double* im, const double* kernel, const double* source,
                                                std::int64_t terms) {
        vector sum_re[together] = {}, sum_im[together] = {};
        for (std::int64_t term = 0; term < terms; ++term, kernel += tile_numbers, source += tile_numbers)
            for (int i = 0; i < together; ++i) {
                const vector k_re = load<width>(kernel + i * width);
                const vector k_im = load<width>(kernel + spectrum_tile + i * width);
                const vector x_re = load<width>(source + i * width);
                const vector x_im = load<width>(source + spectrum_tile + i * width);
                sum_re[i] += k_re * x_re - k_im * x_im;
                sum_im[i] += k_im * x_re + k_re * x_im;
            }
        for (int i = 0; i < together; ++i) {
            store<width>(re + i * width, sum_re[i]);
            store<width>(im + i * width, sum_im[i]);
        }
    }

    static void sum_products(double* re, double* im, const spectrum_terms& of) {
        constexpr int together = width == 8 ? 8 : 4;
        const double *kernel = of.kernel, *sources = of.sources;
        for (std::int64_t tile = 0; tile < of.length; tile += spectrum_tile, sources += of.sources_stride)
            for (std::int64_t r = 0; r < of.p; ++r, kernel += of.row_stride)
                for (std::int64_t f = 0; f < spectrum_tile; f += together * width)
                    sum_part<together>(re + r * of.length + tile + f, im + r * of.length + tile + f, kernel + f,
                                       sources + f, of.terms);
    }
};

template <class instruction_set>
const level_kernels& level_kernels::of() {
    using loops = level_loops<instruction_set>;
    static constexpr level_kernels table{instruction_set::name, loops::add_source,    loops::add_sources,
                                         loops::twist,          loops::add_untwisted, loops::sum_products};
    return table;
}

} // namespace quenta
