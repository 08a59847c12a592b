// The history term of a march: the online block convolution
//
//     H[t] = sum over j = 0 .. t-1 of K[t-j] * x[j],
//
// in which x[j], a vector of q doubles, becomes known only after step j, and K[d] is a matrix of p rows and q columns
// that depends on the lag alone. Each push adds one dyadic block of sources to one dyadic block of targets, by direct
// sums or, from block size 32 up, through the transform (relaxed multiplication: J. van der Hoeven, Relax, but don't
// be too lazy, Journal of Symbolic Computation 34, 2002).
#pragma once

#include "toeplitz_history/vector_kernels.hpp"
#include "utility/aligned_vector.hpp"
#include "utility/instruction_sets.hpp"
#include "utility/view.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {

class ToeplitzHistory;

// Writes block `lag` of the kernel, in full, through kernel_block or kernel_row.
using kernel_provider = void (*)(void* context, std::int32_t lag, ToeplitzHistory& history);

// A plain value that belongs to one solve on one thread. The calling order is init, set_kernel_provider, and then for
// each step t: history_at(t), solve, push. An access out of range is an index failure.
//
// If the provider throws, or memory runs out, push has stored and counted the value, but has not changed any sum. The
// next lag to be asked for is the one at which the provider threw. After `count` is reduced by one, the value can be
// pushed again, with the same sums.
//
// Memory, in doubles: n * (p*q + p + q) in kernel, sums and pushed; max(1, n/4) * q * padded_rows(p) at most in
// near_columns; 2 * n * p * q at most in the caches; and scratch.
class ToeplitzHistory {
public:
    // n steps, blocks of p rows and q columns. Everything is zero, and there is no provider. Sizes may be 0. Throws
    // std::length_error if the arrays would be too large. After a failed init the object is empty, like a new one.
    void init(std::int32_t n, std::int32_t p, std::int32_t q);

    // The provider is called once for each lag from 1 on, in ascending order, when a block of targets first needs it.
    // Without a provider, as in some tests, each push reads the current contents of `kernel`.
    void set_kernel_provider(void* context, kernel_provider function);

    // The p doubles of H[t], complete as soon as t values have been pushed.
    view<double> history_at(std::int32_t t);

    // The p * q doubles of lag d, row-major, and the q doubles of its row r, which only tests call.
    view<double> kernel_block(std::int32_t d);
    view<double> kernel_row(std::int32_t d, std::int32_t r);

    // Takes the first q doubles of `values` as the next x, and adds all that this makes known to the sums.
    void push(view<const double> values);

    std::int32_t n = 0; // steps
    std::int32_t p = 0; // rows of a block, width of a sum
    std::int32_t q = 0; // columns of a block, width of a pushed value

    aligned_vector kernel; // (d, r, c) at (d*p + r)*q + c
    aligned_vector sums;   // (t, r) at t*p + r
    aligned_vector pushed; // (j, c) at j*q + c
    std::int32_t count = 0;

    // Scratch of the transform path. It only ever grows.
    aligned_vector x_re, x_im;     // transformed sources, q rows
    aligned_vector k_re, k_im;     // a few transformed kernel entries
    aligned_vector acc_re, acc_im; // accumulated products, p rows

    // Transformed kernels, by level: level l serves blocks of 32 * 2^l sources, with twice as many points. The order of
    // an array is that of vector_kernels::multiply_spectra. An empty array is an absent one; a level whose first
    // attempt did not fit the budget is not tried again.
    std::vector<aligned_vector> cache_re, cache_im;
    std::vector<bool> cache_tried;
    std::uint64_t cache_budget = 0; // doubles that caches may still take

    // Blocks by columns, for the direct sums. Place d keeps lag d, for the small lags that are read often. Place 0 is
    // scratch for the other lags. Blocks of one element need no copies.
    aligned_vector near_columns;
    std::int64_t near_lags = 0; // its places
    std::int64_t kept_lags = 0; // those below are in place

    void* provider_context = nullptr;
    kernel_provider provider = nullptr;
    std::int32_t next_block = 0; // the next lag to ask of the provider

    const vector_kernels* kernels = &widest_table<vector_kernels>();

private:
    // The sources i-s .. i-1 and the targets i .. end-1 of one push.
    struct dyadic_block {
        std::int64_t i, s, end;
        std::int64_t targets() const { return end - i; }
    };

    void convolve_direct(const dyadic_block& block);
    void convolve_fft(const dyadic_block& block);
    bool ensure_kernel_transform(std::size_t level, std::int64_t m);
    void transform_kernel_entries(std::int64_t first, std::int64_t entries, std::int64_t m);
    const double* columns_of_lag(std::int64_t lag);
    void copy_columns(std::int64_t lag, std::int64_t place);
};

} // namespace quenta
