// What every solver from samples does before and after its body: the checks in their order, the search of the
// setting, the dispatch to the variant, and the status.
#pragma once

#include "quenta_solvers/calling_threads.hpp"
#include "quenta_solvers/collocation_settings.hpp"
#include "quenta_solvers/status.hpp"
#include "utility/floating_point_mode.hpp"
#include "utility/integers.hpp"
#include "utility/view.hpp"

#include <cstdint>

namespace quenta {

// What an entry of any kind is asked. D is 1 in the scalar kinds.
struct sampled_request {
    int N;
    int D;
    int m;
    const int* list;
    int count;
};

// The lengths of the arrays that a solver body sees, and the row of its setting.
struct sampled_sizes {
    int row;
    std::uint64_t vectors;      // N * D
    std::uint64_t matrices;     // N * D * D
    std::uint64_t coefficients; // (count + 1) * D * steps
};

// Lengths are formed in 32 bits and extended with their sign: a negative N makes an array of impossible length, and
// the body fails on it.
constexpr std::uint64_t extended_length(std::int32_t length) {
    return static_cast<std::uint64_t>(std::int64_t{length});
}

// Counts are signed, and the products exact: no size is so large that it looks small.
constexpr bool sizes_overflow(const sampled_request& request, int steps) {
    constexpr int128 limit = 0x7FFFFFFF;
    const int128 N = request.N, D = request.D;
    const int128 width = (int128{request.count} + 1) * D;
    return N * D * D > limit || width * steps > limit || width * width > limit;
}

// A kind may refuse rows of the table; it is asked with the request, before the search.
using refusal = bool (*)(const sampled_request&);
inline bool accept_all_rows(const sampled_request&) {
    return false;
}

// Runs the checks that come before any numerical work, in their order: sizes, the kind's own refusals, the search of
// the row. Returns `status_solved` with `sizes` filled in, or the status to return.
inline int check_sampled_request(const sampled_request& request, refusal refuses, sampled_sizes& sizes) {
    const std::int32_t steps = faulting_quotient(wrapping_sum(request.N, -1), wrapping_product(request.m, request.m));
    if (sizes_overflow(request, steps))
        return status_size_overflow;
    if (refuses(request))
        return status_unsupported_setting;
    const int row = find_setting_row(request.m, request.list, request.count);
    if (row == no_setting_row)
        return status_unsupported_setting;
    const std::int32_t vectors = wrapping_product(request.N, request.D);
    const std::int32_t width = wrapping_product(wrapping_sum(request.count, 1), request.D);
    sizes.row = row;
    sizes.vectors = extended_length(vectors);
    sizes.matrices = extended_length(wrapping_product(vectors, request.D));
    sizes.coefficients = extended_length(wrapping_product(width, steps));
    return status_solved;
}

// A null `coeffs` is an empty array.
inline view<double> coefficient_view(double* coeffs, const sampled_sizes& sizes) {
    return {coeffs == nullptr ? 0 : sizes.coefficients, coeffs};
}

// Attaches the thread, makes the checks, and calls solve(sizes, &steps); `n_steps` is written only when that has
// solved the equation.
template <class solver>
int run_sampled_solver(const sampled_request& request, refusal refuses, int* n_steps, const solver& solve) {
    attach_calling_thread();
    sampled_sizes sizes{};
    const int refused = check_sampled_request(request, refuses, sizes);
    if (refused != status_solved)
        return refused;
    // After the checks, whose faults a host may leave by a jump, and which calculate with integers alone.
    const standard_floating_point_mode mode;
    int steps = 0;
    if (!solve(sizes, &steps))
        return status_singular_block;
    *n_steps = steps;
    return status_solved;
}

} // namespace quenta
