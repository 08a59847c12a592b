// A call of quenta_solve_vie2.
#pragma once

#include "conformance/sampled_call.hpp"

namespace quenta_tests {

inline sampled_answer call_vie2(const std::vector<double>& g, const std::vector<double>& K, double dt,
                                const reference::setting& row, bool want_coeffs = true) {
    const int count = int(row.indices.size());
    const int steps = steps_of(K.size(), row);
    sampled_answer answer{.status = -1,
                          .out = fenced_array{K.size()},
                          .coeffs = fenced_array{std::size_t(std::max(steps, 0)) * std::size_t(count + 1)}};
    answer.status = quenta_solve_vie2(g.data(), K.data(), int(K.size()), dt, row.m, row.indices.data(), count,
                                      want_coeffs ? 1 : 0, answer.out.data(), answer.coeffs.data(), &answer.n_steps);
    return answer;
}

} // namespace quenta_tests
