// From samples to the blocks and right-hand sides of a collocation scheme for systems of any dimension.
//
// The unknowns of a step are ordered by component: component a at node i is a * P + i, for rows and columns alike. The
// entry (a, b) of a kernel sample belongs to row component a and column component b.
#pragma once

#include "quenta_solvers/row_tables.hpp"
#include "toeplitz_history/toeplitz_history.hpp"
#include "utility/integers.hpp"
#include "utility/view.hpp"

#include <array>
#include <cstdint>

namespace quenta {

// The number of kernel samples of a system of D components. D = 0 is an arithmetic fault. A negative number is an index
// failure: it must not pass for a grid that is shorter than a step, since the output would then have no end.
inline std::int32_t sample_count(view<const double> K, std::int32_t D, code_position where = code_position::here()) {
    const std::int32_t samples = faulting_quotient(static_cast<std::int32_t>(K.length), wrapping_product(D, D));
    if (samples < 0)
        fail_index(0, 0, where);
    return samples;
}

// The number of whole steps on so many samples.
template <int P>
std::int32_t whole_steps(const collocation_scheme<P>& scheme, std::int32_t samples) {
    return wrapping_sum(samples, -1) / scheme.S;
}

// The samples of all steps, `cells` doubles each, as a pointer.
template <int P>
const double* samples_of_steps(const collocation_scheme<P>& scheme, view<const double> samples, std::int64_t steps,
                               std::int64_t cells) {
    return samples.slice(0, std::uint64_t((steps * scheme.S + 1) * cells)).pointer;
}

// The kernel samples that the current step reads, as a pointer. If some are missing, the failure reports the first
// missing element in the order in which the sums over the points c_i * c_q access them.
template <int P>
const double* present_samples(const collocation_scheme<P>& scheme, view<const double> K, std::int64_t D) {
    const auto needed = std::uint64_t(scheme.present_samples * D * D);
    if (K.length < needed)
        for (std::int64_t a = 0; a < D; ++a) // GCOVR_EXCL_BR_LINE: an access fails before the end
            for (const auto& rule : scheme.present)
                for (std::int64_t b = 0; b < D; ++b)
                    for (const int lag : rule.lag)
                        static_cast<void>(K.at(std::uint64_t((lag * D + a) * D + b)));
    return K.slice(0, needed).pointer;
}

// The sum over q of (K[k_i (m - k_q)](a, b) * (c_i * b_q)) * (basis polynomial j at c_i * c_q), terms ascending from
// 0.0, for every basis polynomial: row-major, in row a * P + i and column b * basis size + j. Factors of zero are not
// skipped. It is called once per solve, and not inlined, so that all dimensions share one copy.
template <int P, class basis_type>
[[gnu::noinline]] void diagonal_block(const collocation_scheme<P>& scheme, const basis_type& basis,
                                      view<const double> K, std::int64_t D, view<double> block) {
    const double* const samples = present_samples(scheme, K, D);
    double* cell = block.slice(0, std::uint64_t(P * D * D * basis.size)).pointer;
    for (std::int64_t a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i)
            for (std::int64_t b = 0; b < D; ++b)
                for (int j = 0; j < basis.size; ++j) {
                    double sum = 0.0;
                    for (int q = 0; q < P; ++q) {
                        const double sample = samples[(scheme.present[i].lag[q] * D + a) * D + b];
                        sum += (sample * scheme.present[i].weight[q]) * basis.at_point[i][q][j];
                    }
                    *cell++ = sum;
                }
}

// Copies the forcing at the nodes of a step to `rhs`, in the order of the unknowns. `forcing` points to the first
// sample of the step.
template <int P>
void gather_node_forcing(const collocation_scheme<P>& scheme, const double* forcing, std::int64_t D, double* rhs) {
    for (std::int64_t a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i)
            rhs[a * P + i] = forcing[scheme.node_sample[i] * D + a];
}

// What the kernel provider of a solve needs.
template <int P, class dimension>
struct lag_block_context {
    const collocation_scheme<P>& scheme;
    view<const double> K;
    double h;
    dimension dim;
};

// The kernel sample at lag d * h, with those around it that a lag block reads: (k_i - k_j) m before and after it.
template <int P>
const double* lag_samples(const collocation_scheme<P>& scheme, view<const double> K, std::int64_t D, std::int32_t d) {
    const std::int64_t reach = scheme.sample_distance[P - 1][0];
    const std::int64_t first = std::int64_t{d} * scheme.S - reach;
    return K.slice(std::uint64_t(first * D * D), std::uint64_t((2 * reach + 1) * D * D)).pointer + reach * D * D;
}

// Kernel provider: the block of lag d is h * (K[d S + (k_i - k_j) m](a, b) * b_j), row-major.
template <int P, class dimension>
void lag_block(void* context, std::int32_t d, ToeplitzHistory& history) {
    const auto& [scheme, K, h, dim] = *static_cast<const lag_block_context<P, dimension>*>(context);
    const std::int64_t D = dim.D;
    const std::array<double, P> weight = scheme.b;
    const double* const samples = lag_samples(scheme, K, D, d);
    double* entry = history.kernel_block(d).pointer;
    for (std::int64_t a = 0; a < D; ++a)
        for (int i = 0; i < P; ++i)
            for (std::int64_t b = 0; b < D; ++b)
                for (int j = 0; j < P; ++j)
                    *entry++ = h * (samples[(scheme.sample_distance[i][j] * D + a) * D + b] * weight[j]);
}

} // namespace quenta
