// From kernel samples to the blocks of a collocation scheme for systems, whatever the dimension.
//
// The unknowns of a step are numbered component first: component a at node i is a * P + i, for rows and columns alike.
// The entry (a, b) of a kernel sample keeps its orientation: it belongs to row component a and column component b.
#pragma once

#include "quenta_solvers/row_tables.hpp"
#include "toeplitz_history/toeplitz_history.hpp"
#include "utility/view.hpp"

#include <cstdint>

namespace quenta {

// The kernel samples that the present step reads, as a bare array.
template <int row>
const double* present_samples(view<const double> K, std::int64_t D) {
    return K.slice(0, std::uint64_t(row_tables<row>::present_samples * D * D)).pointer;
}

// Calls put(row of a and i, b, l, sum) with the sum over q of (K[k_i (m - k_q)](a, b) * (c_i * b_q)) * value(i, q, l),
// terms ascending from 0.0, for all a, b and i, and for l below `basis_size`; value(i, q, l) is basis polynomial l at
// c_i * c_q. Factors of zero are factors like any other.
template <int row, int basis_size, class basis_value_at, class visitor>
void visit_present_step(view<const double> K, int D, const basis_value_at& value, const visitor& put) {
    using tables = row_tables<row>;
    const double* const samples = present_samples<row>(K, D);
    for (int a = 0; a < D; ++a)
        for (int b = 0; b < D; ++b)
            for (int i = 0; i < tables::P; ++i)
                for (int l = 0; l < basis_size; ++l) {
                    double sum = 0.0;
                    for (int q = 0; q < tables::P; ++q) {
                        const double sample = samples[(std::int64_t{tables::present[i].lag[q]} * D + a) * D + b];
                        sum += (sample * tables::present[i].weight[q]) * value(i, q, l);
                    }
                    put(a * tables::P + i, b, l, sum);
                }
}

// What the provider of the lag blocks needs for the length of a solve.
template <class dimension>
struct lag_block_context {
    view<const double> K;
    double h;
    dimension dim;
};

// h * (K[j S + (k_i - k_l) m](a, b) * b_l): the block of lag j in the history, row-major.
template <int row, class dimension>
void lag_block_provider(void* context, std::int32_t j, ToeplitzHistory& history) {
    using tables = row_tables<row>;
    constexpr int P = tables::P;
    constexpr std::int64_t reach = (tables::k[P - 1] - tables::k[0]) * tables::m;
    const auto& [K, h, dim] = *static_cast<const lag_block_context<dimension>*>(context);
    const std::int64_t D = dim.D;
    const std::int64_t first = std::int64_t{j} * tables::S - reach;
    const double* const samples = K.slice(std::uint64_t(first * D * D), std::uint64_t((2 * reach + 1) * D * D)).pointer;
    double* entry = history.kernel_block(j).pointer;
    for (std::int64_t a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i)
            for (std::int64_t b = 0; b < D; ++b)
                for (int l = 0; l < P; ++l) {
                    const std::int64_t sample = reach + (tables::k[i] - tables::k[l]) * tables::m;
                    *entry++ = h * (samples[(sample * D + a) * D + b] * tables::b[l]);
                }
}

} // namespace quenta
