// The loops in which a history spends its time, once for each instruction set.
#pragma once

#include <cstdint>

namespace quenta {

// The shortest transform that the kernels run.
inline constexpr std::int64_t shortest_vector_transform = 64;

struct vector_kernels {
    template <class set>
    static const vector_kernels& of();

    const char* name;

    // Transforms `rows` rows of n complex numbers each, which stand one behind the other; n is a power of two and at
    // least `shortest_vector_transform`. The rows share their twiddles.
    void (*transform_rows)(double* re, double* im, std::int64_t n, std::int64_t rows, bool inverse);

    // sums[t] += sum over c of block(t-j)[r][c] * x[j][c] for targets t and sources j, one addition per pair (t, j),
    // sources ascending for every target. The layouts are those of ToeplitzHistory. `sums` points at the first target,
    // `x` at the first source, and `kernel` at the block of the lag between these two.
    void (*add_direct_sums)(double* sums, const double* kernel, const double* x, std::int64_t targets,
                            std::int64_t sources, std::int64_t p, std::int64_t q);

    // acc[u] += kernel[c][u] * x[c][u] in complex numbers, for columns c ascending and `length` values of u. With
    // `from_zero` the old content of acc counts as 0.0. The columns of `kernel` and of `x` stand `length` apart;
    // length is a multiple of 8.
    void (*multiply_spectra)(double* acc_re, double* acc_im, const double* kernel_re, const double* kernel_im,
                             const double* x_re, const double* x_im, std::int64_t length, std::int64_t columns,
                             bool from_zero);
};

} // namespace quenta
