// The history term of a march whose kernel is known beforehand: the online block convolution
//
//     sum[n] = sum over k = 0 .. n-1 of K[n-k] * x[k],
//
// in which x[k], a vector of q doubles, becomes known only after step k, and K[d] is a matrix of p rows and q columns.
//
// Steps are grouped into blocks, and blocks into larger blocks, on several levels (semi-relaxed multiplication: J. van
// der Hoeven, New algorithms for relaxed multiplication, Journal of Symbolic Computation 42, 2007). When a block ends,
// its numbers are transformed once. Then the next block of the same larger block gets the contributions of all blocks
// before it in the larger one: the products of their transforms with those of the kernel are added, and transformed
// back once. Within the smallest blocks the sums are direct.
//
// A product of two blocks of s steps is computed modulo x^(2s) + 1. In R[x] / (x^(2s) + 1) = C[x] / (x^s - i) real
// numbers f[0 .. 2s-1] are the complex numbers f[k] + i f[k + s], k < s, and multiplied by the "twist" exp(i pi k /
// (2s)) they are transformed with s points. The kernel takes the lags (d-1) s .. (d+1) s - 1 for blocks at distance d,
// the sources fill the lower half, and the sums are read from the upper half, where the product is that of polynomials.
#pragma once

#include "toeplitz_history/level_kernels.hpp"
#include "toeplitz_history/vector_kernels.hpp"
#include "utility/aligned_vector.hpp"
#include "utility/instruction_sets.hpp"

#include <cstdint>
#include <vector>

namespace quenta {

// Memory, in doubles: at most 5/2 q (p + 1) + p + q + 1 per step, and 64 (p + 2) (q + 2) + 2048, which the constructor
// allocates. 2 q (p + 1) per step are the spectra of the last level, whose blocks are at most 1/4 of the steps if there
// are other levels.
class known_kernel_history {
public:
    // n steps, from the blocks of the lags 1 .. n-1: entry (r, c) of lag d at ((d - 1) * p + r) * q + c. They are not
    // read later. All sizes are at least 1.
    known_kernel_history(std::int64_t n, std::int64_t p, std::int64_t q, const double* blocks,
                         const vector_kernels& transforms = widest_table<vector_kernels>(),
                         const level_kernels& loops = widest_table<level_kernels>());

    std::int64_t steps() const { return n; }
    std::int64_t steps_done() const { return done; }
    std::int64_t rows() const { return p; }
    std::int64_t columns() const { return q; }

    // The p doubles of the sum of the present step, number steps_done(), which is below steps().
    const double* sum() const { return present.data(); }

    // Goes back to the first step.
    void restart();

    // Takes the q doubles of x of the present step, and ends the step. Allocates nothing.
    void push(const double* x);

private:
    // Blocks of `size` steps, `blocks` of them in a larger one or, on the last level, in all steps.
    struct level {
        std::int64_t size, blocks;
        aligned_vector twist_re, twist_im;
        // By tiles of frequencies, as in spectrum_terms. The kernel has the distances blocks - 1, .., 1 in a row.
        aligned_vector kernel, sources;

        twist_factors twist() const { return {twist_re.data(), twist_im.data(), size}; }
    };

    void make_levels(const double* blocks);
    void add_level(std::int64_t size, std::int64_t blocks, const double* kernel_blocks);
    void transform_kernel(level& at, const double* kernel_blocks);
    void transform(std::int64_t points, std::int64_t rows_of_scratch, bool inverse);
    void fill_near_kernel(const double* kernel_blocks);
    void start_block();
    void add_direct(std::int64_t sources);
    void add_transformed(level& at, std::int64_t ended);
    void read_sum();

    const vector_kernels& transforms;
    const level_kernels& loops;
    std::int64_t n, p, q, done = 0, place = 0; // of the present step in its block of the last level
    std::int64_t smallest, largest;            // blocks: of direct sums, and of the last level; powers of two
    std::int64_t stride;                       // of the rows of `sums` and `pushed`
    std::int64_t near_stride;
    aligned_vector near;         // the kernel of the direct sums: lag d of (r, c) at (r*q + c) * near_stride + 15 + d
    aligned_vector sums, pushed; // of the present block of the last level
    aligned_vector re, im;       // scratch
    aligned_vector twiddle_re, twiddle_im; // of all transforms
    std::vector<level> levels;
    std::vector<double> present;
};

} // namespace quenta
