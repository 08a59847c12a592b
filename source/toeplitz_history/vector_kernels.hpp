// The time-critical loops of the history, compiled for each instruction set.
#pragma once

#include <cstdint>

namespace quenta {

// The shortest transform that the kernels run.
inline constexpr std::int64_t shortest_vector_transform = 64;

// Longer transforms are done in blocks of this length, which fit in the level-1 and level-2 caches with their twiddles.
inline constexpr std::int64_t transform_block = 2048;

// The twiddles of transforms of up to transform_block points, and of the blocks of longer ones.
struct block_twiddles {
    const double *re, *im;
};

// The padded length of a column of a block: a whole number of registers of any instruction set. It is always inlined,
// since the linker would otherwise keep one copy of it for the units of all instruction sets.
[[gnu::always_inline]] constexpr std::int64_t padded_rows(std::int64_t p) {
    return p <= 4 ? 4 : (p + 7) / 8 * 8; // GCOVR_EXCL_BR_LINE: inlined, so that every caller has branches of its own
}

// The number of frequencies in a tile of spectra.
inline constexpr std::int64_t spectrum_tile = 64;

struct vector_kernels {
    template <class instruction_set>
    static const vector_kernels& of();

    const char* name;

    // Transforms `rows` rows of n complex numbers each, stored consecutively; n is a power of two and at least
    // `shortest_vector_transform`. The rows share their twiddles.
    void (*transform_rows)(double* re, double* im, std::int64_t n, std::int64_t rows, bool inverse);

    // Blocks of one row and one column: sums[t] += kernel[t - j] * x[j] for targets t and sources j, sources ascending
    // for every target. `sums` points at the first target, `x` at the first source, and `kernel` at the lag between
    // these two.
    void (*add_scalar_sums)(double* sums, const double* kernel, const double* x, std::int64_t targets,
                            std::int64_t sources);

    // sums[u] += block * x[u] for `pairs` pairs of a target and a source with this lag. The dot product of a row with
    // x[u] is computed first, columns ascending, and then added. Targets and sources are stored consecutively, p and q
    // doubles each. Element (r, c) of the block is at c * padded_rows(p) + r. The padding is read, but does not affect
    // the result. p and q are at least 1.
    void (*add_block_products)(double* sums, const double* block, const double* x, std::int64_t pairs, std::int64_t p,
                               std::int64_t q);

    // Copies a row-major block of p rows and q columns into that order, and fills the padding.
    void (*copy_columns)(double* columns, const double* rows, std::int64_t p, std::int64_t q);

    // acc[r][f] += sum over c of kernel[r][c][f] * x[c][f] in complex arithmetic, columns ascending, for all
    // frequencies f below `length`, which is a multiple of spectrum_tile. With `from_zero` the old content of acc is
    // taken as 0.0. Rows of acc and x have `length` numbers. The kernel is stored by tiles: frequency f of its entry
    // (r, c) is at
    // ((f / tile * p + r) * q + c) * tile + f % tile.
    void (*multiply_spectra)(double* acc_re, double* acc_im, const double* kernel_re, const double* kernel_im,
                             const double* x_re, const double* x_im, std::int64_t length, std::int64_t p,
                             std::int64_t q, bool from_zero);

    // The transforms of transform_rows, bit for bit, with twiddles that are computed once: for transforms of up to
    // `block` points or, if `block` is transform_block, of any number of points. Each array has `block` elements.
    void (*fill_block_twiddles)(double* re, double* im, std::int64_t block);
    void (*transform_rows_by_table)(double* re, double* im, std::int64_t n, std::int64_t rows, bool inverse,
                                    const block_twiddles& twiddles);
};

} // namespace quenta
