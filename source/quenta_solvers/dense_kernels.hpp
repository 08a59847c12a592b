// The loops of the dense solve, compiled for each instruction set. Matrices are column-major, (i, j) at i + j*n.
#pragma once

#include <cstdint>

namespace quenta {

struct dense_kernels {
    template <class instruction_set>
    static const dense_kernels& of();

    const char* name;

    // Replaces the matrix by its multipliers and U; pivots[k] receives the row that was swapped with row k. Returns n,
    // or for a singular matrix the number of the first column without a pivot. The rows of this column are then already
    // swapped.
    std::int64_t (*eliminate)(double* a, std::int64_t n, int* pivots);

    // Replaces b by the solution, given the result of `eliminate`.
    void (*substitute)(const double* a, std::int64_t n, const int* pivots, double* b);
};

} // namespace quenta
