// Calls of quenta_solve_vie2 and quenta_solve_vie2_vec.
#pragma once

#include "conformance/sampled_call.hpp"

namespace quenta_tests {

inline sampled_answer call_vie2(const std::vector<double>& g, const std::vector<double>& K, double dt,
                                const reference::setting& row, int want_coeffs = 1) {
    sampled_answer answer = blank_answer(K.size(), 1, row);
    answer.status =
        quenta_solve_vie2(g.data(), K.data(), int(K.size()), dt, row.m, row.indices.data(), int(row.indices.size()),
                          want_coeffs, answer.out.data(), answer.coeffs.data(), &answer.n_steps);
    return answer;
}

inline sampled_answer call_vie2_vec(const std::vector<double>& g, const std::vector<double>& K, int D, double dt,
                                    const reference::setting& row, int want_coeffs = 1) {
    const std::size_t N = g.size() / std::size_t(D);
    sampled_answer answer = blank_answer(N, D, row);
    answer.status =
        quenta_solve_vie2_vec(g.data(), K.data(), int(N), D, dt, row.m, row.indices.data(), int(row.indices.size()),
                              want_coeffs, answer.out.data(), answer.coeffs.data(), &answer.n_steps);
    return answer;
}

} // namespace quenta_tests
