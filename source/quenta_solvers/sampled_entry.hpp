// What every sample-based solver does before and after its march: the checks in their order, the search of the setting,
// and the status.
#pragma once

#include "quenta_solvers/calling_threads.hpp"
#include "quenta_solvers/collocation_settings.hpp"
#include "quenta_solvers/status.hpp"
#include "quenta_solvers/variants.hpp"
#include "utility/integers.hpp"
#include "utility/view.hpp"

#include <cstdint>

namespace quenta {

// The arguments that are checked. D is 1 for the scalar solvers.
struct sampled_request {
    int N;
    int D;
    int m;
    const int* list;
    int count;
};

// The row of the setting, and the lengths of the arrays.
struct sampled_sizes {
    int row;
    std::uint64_t vectors;      // N * D
    std::uint64_t matrices;     // N * D * D
    std::uint64_t coefficients; // (count + 1) * D * steps
};

// Lengths are formed in 32 bits and extended with their sign: a negative N gives an array of impossible length, on
// which the solver fails.
constexpr std::uint64_t extended_length(std::int32_t length) {
    return static_cast<std::uint64_t>(std::int64_t{length});
}

// Counts are signed. The products are exact and cannot overflow.
constexpr bool sizes_overflow(const sampled_request& request, int steps) {
    constexpr int128 limit = 0x7FFFFFFF;
    const int128 N = request.N, D = request.D;
    const int128 width = (int128{request.count} + 1) * D;
    return N * D * D > limit || width * steps > limit || width * width > limit;
}

// A kind of equation may refuse some settings. It is asked before the search.
using refusal = bool (*)(const sampled_request&);
inline bool accept_all_settings(const sampled_request&) {
    return false;
}

// The checks that come before any numerical work, in their order: sizes, settings that the kind refuses, the search of
// the row. Returns `status_solved` and fills in `sizes`, or returns the status of the refusal.
inline int check_sampled_request(const sampled_request& request, refusal refuses, sampled_sizes& sizes) {
    const std::int32_t steps = faulting_quotient(wrapping_sum(request.N, -1), wrapping_product(request.m, request.m));
    if (sizes_overflow(request, steps))
        return status_size_overflow;
    if (refuses(request))
        return status_unsupported_setting;
    const int row = find_setting_row(request.m, request.list, request.count);
    if (row == no_setting_row || !is_built(row)) // GCOVR_EXCL_BR_LINE: a complete build has every row
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

// Every solver begins with this. The floating-point mode is set after it: the checks calculate with integers alone, and
// the host may longjmp out of its handler of their arithmetic faults.
inline int begin_sampled_call(const sampled_request& request, refusal refuses, sampled_sizes& sizes) {
    attach_calling_thread();
    return check_sampled_request(request, refuses, sizes);
}

// And ends with this. The host learns the number of steps only if all of them were solved.
inline int end_sampled_call(bool solved, int steps, int* n_steps) {
    if (!solved)
        return status_singular_block;
    *n_steps = steps;
    return status_solved;
}

} // namespace quenta
