// A call of a sample-based solver whose outputs are checked for stray writes.
#pragma once

#include "quenta_native.h"
#include "reference/settings.hpp"
#include "support/fenced_array.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace quenta_tests {

inline constexpr int marked_steps = -123456789;

struct sampled_answer {
    int status;
    int n_steps = marked_steps;
    fenced_array out;
    fenced_array coeffs;

    bool untouched() const { return n_steps == marked_steps && out.untouched() && coeffs.untouched(); }
};

inline int steps_of(std::size_t N, const reference::setting& row) {
    return (int(N) - 1) / (row.m * row.m);
}

// The outputs of a call with N samples of D components, before the call.
inline sampled_answer blank_answer(std::size_t N, int D, const reference::setting& row) {
    const std::size_t steps = std::size_t(std::max(steps_of(N, row), 0)), slots = row.indices.size() + 1;
    return {.status = -1, .out = fenced_array{N * D}, .coeffs = fenced_array{steps * slots * D}};
}

// The number of kernel samples that the first step needs. The solver reads them even if there is no whole step.
inline int present_samples(const reference::setting& row) {
    int largest = 0;
    for (const int k_i : row.indices)
        for (const int k_q : row.indices)
            largest = std::max(largest, k_i * (row.m - k_q));
    return largest + 1;
}

inline const int library_started = quenta_rt_init();

} // namespace quenta_tests
