// Calls of quenta_solve_vide and quenta_solve_vide_vec.
#pragma once

#include "conformance/sampled_call.hpp"

namespace quenta_tests {

inline sampled_answer call_vide(const std::vector<double>& g, const std::vector<double>& K,
                                const std::vector<double>& a, double y0, double dt, const reference::setting& row,
                                int want_coeffs = 1) {
    sampled_answer answer = blank_answer(K.size(), 1, row);
    answer.status = quenta_solve_vide(g.data(), K.data(), a.data(), int(K.size()), y0, dt, row.m, row.indices.data(),
                                      int(row.indices.size()), want_coeffs, answer.out.data(), answer.coeffs.data(),
                                      &answer.n_steps);
    return answer;
}

inline sampled_answer call_vide_vec(const std::vector<double>& g, const std::vector<double>& K,
                                    const std::vector<double>& a, int D, const std::vector<double>& y0, double dt,
                                    const reference::setting& row, int want_coeffs = 1) {
    const std::size_t N = g.size() / std::size_t(D);
    sampled_answer answer = blank_answer(N, D, row);
    answer.status = quenta_solve_vide_vec(g.data(), K.data(), a.data(), int(N), D, y0.data(), dt, row.m,
                                          row.indices.data(), int(row.indices.size()), want_coeffs, answer.out.data(),
                                          answer.coeffs.data(), &answer.n_steps);
    return answer;
}

} // namespace quenta_tests
