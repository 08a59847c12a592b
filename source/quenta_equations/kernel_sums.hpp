// The dot product of kernel values and weighted values, compiled for each instruction set.
#pragma once

#include <cstdint>

namespace quenta {

struct kernel_sums {
    template <class instruction_set>
    static const kernel_sums& of();

    const char* name;

    // The sum over `count` points p of values[p] * weighted[p]. Point p adds to the partial sum number p mod 16; these
    // are added pairwise.
    double (*scalar_sum)(const double* values, const double* weighted, std::int64_t count);
};

// The table that the solvers use, between calls of the functions of the caller.
const kernel_sums& kernel_sums_without_avx512();

// sum[a] += the sum over `count` points and the E columns of kernel[p](a, c) * weighted[p][c]; kernel blocks have D
// rows.
inline void add_kernel_sum(const kernel_sums& loops, const double* kernel, const double* weighted, std::int64_t count,
                           int D, int E, double* sum) {
    if (D == 1 && E == 1) {
        sum[0] += loops.scalar_sum(kernel, weighted, count);
        return;
    }
    for (std::int64_t p = 0; p < count; ++p, weighted += E)
        for (int a = 0; a < D; ++a) {
            double product = 0.0;
            for (int c = 0; c < E; ++c)
                product += *kernel++ * weighted[c];
            sum[a] += product;
        }
}

} // namespace quenta
