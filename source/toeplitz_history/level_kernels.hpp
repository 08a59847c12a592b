// The time-critical loops of known_kernel_history, compiled for each instruction set. Its transforms are those of
// vector_kernels.hpp.
//
// Blocks of the kernel have p rows and q columns. Every array has a row for each component; "stride" is the distance of
// two rows.
#pragma once

#include "toeplitz_history/vector_kernels.hpp"

#include <cstdint>

namespace quenta {

// The direct sums are computed for so many targets at a time: the nearest lags after each step, all others in squares.
inline constexpr std::int64_t near_targets = 16, square_targets = 32;

// The numbers of a tile of a spectrum: the real parts, and then the imaginary parts, of spectrum_tile frequencies.
inline constexpr std::int64_t tile_numbers = 2 * spectrum_tile;

// Row (r, c) of a kernel is number r*q + c, and `first` is in row (0, 0).
struct direct_kernel {
    const double* first;
    std::int64_t stride, p, q;
};

// exp(i pi k / (2 length)) for k = 0 .. length - 1.
struct twist_factors {
    const double *re, *im;
    std::int64_t length;
};

// The spectra that are multiplied for one sum. A tile has `terms` tiles of the kernel in a row for each of the p rows,
// which are `row_stride` apart, and `terms` tiles of the sources.
struct spectrum_terms {
    const double *kernel, *sources;
    std::int64_t row_stride, sources_stride; // from one row to the next, from one frequency tile to the next
    std::int64_t p, terms, length;
};

struct level_kernels {
    template <class instruction_set>
    static const level_kernels& of();

    const char* name;

    // sums[r][t] += sum over c of kernel[r][c][t] * x[c] for near_targets targets t, columns ascending.
    void (*add_source)(double* sums, std::int64_t sum_stride, const direct_kernel& kernel, const double* x);

    // sums[r][t] += sum over c and j < sources of kernel[r][c][t - j] * x[c][j] for square_targets, or if `half` is
    // set for near_targets, columns ascending, and sources ascending in each column.
    void (*add_sources)(double* sums, std::int64_t sum_stride, const direct_kernel& kernel, const double* x,
                        std::int64_t x_stride, std::int64_t sources, bool half);

    // re + i im = x times the twist.
    void (*twist)(double* re, double* im, const double* x, const twist_factors& factors);

    // sums += scale times the imaginary part of re + i im divided by the twist.
    void (*add_untwisted)(double* sums, const double* re, const double* im, const twist_factors& factors, double scale);

    // re[r][f] + i im[r][f] = the sum over all terms of kernel times source, terms ascending, for all frequencies f.
    void (*sum_products)(double* re, double* im, const spectrum_terms& spectra);
};

} // namespace quenta
