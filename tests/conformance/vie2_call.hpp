// A call of quenta_solve_vie2.
#pragma once

#include "conformance/sampled_call.hpp"

namespace quenta_tests {

inline sampled_answer call_vie2(const std::vector<double>& g, const std::vector<double>& K, double dt,
                                const reference::setting& row, bool want_coeffs = true) {
    sampled_answer answer = awaited_answer(K.size(), 1, row);
    answer.status =
        quenta_solve_vie2(g.data(), K.data(), int(K.size()), dt, row.m, row.indices.data(), int(row.indices.size()),
                          want_coeffs ? 1 : 0, answer.out.data(), answer.coeffs.data(), &answer.n_steps);
    return answer;
}

} // namespace quenta_tests
