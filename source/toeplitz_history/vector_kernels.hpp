// The loops in which a history spends its time, once for each instruction set.
//
// One algorithm, compiled several times; every table gives the same bits. The table is chosen once, by what the
// processor can do, far away from the loops.
#pragma once

#include <cstdint>
#include <span>

namespace quenta {

// The shortest transform that the kernels run.
inline constexpr std::int64_t shortest_vector_transform = 64;

struct vector_kernels {
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

// The tables. Those of wider registers exist on x86-64 only.
extern const vector_kernels kernels_baseline;
extern const vector_kernels kernels_avx2;
extern const vector_kernels kernels_avx512;

// What the processor, and the system that saves its registers, can do.
struct processor_features {
    bool avx2;
    bool avx512;
};

processor_features detected_processor_features();

// The widest table that these features can run.
const vector_kernels& kernels_for(processor_features features);

// Every table, from the baseline up, that the processor at hand can run.
std::span<const vector_kernels* const> runnable_kernels();

// The table that solvers use: the widest one the processor at hand can run.
const vector_kernels& best_kernels();

} // namespace quenta
