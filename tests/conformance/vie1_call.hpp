// Calls of quenta_solve_vie1 and quenta_solve_vie1_vec.
#pragma once

#include "conformance/sampled_call.hpp"

namespace quenta_tests {

inline sampled_answer call_vie1(const std::vector<double>& g, const std::vector<double>& K, double y0, double dt,
                                const reference::setting& row, int continuous, int want_coeffs = 1) {
    sampled_answer answer = blank_answer(K.size(), 1, row);
    answer.status =
        quenta_solve_vie1(g.data(), K.data(), int(K.size()), y0, dt, row.m, row.indices.data(), int(row.indices.size()),
                          want_coeffs, continuous, answer.out.data(), answer.coeffs.data(), &answer.n_steps);
    return answer;
}

// y0 may be empty for the discontinuous form, which does not read it.
inline sampled_answer call_vie1_vec(const std::vector<double>& g, const std::vector<double>& K, int D,
                                    const std::vector<double>& y0, double dt, const reference::setting& row,
                                    int continuous, int want_coeffs = 1) {
    const std::size_t N = g.size() / std::size_t(D);
    sampled_answer answer = blank_answer(N, D, row);
    answer.status = quenta_solve_vie1_vec(g.data(), K.data(), int(N), D, y0.data(), dt, row.m, row.indices.data(),
                                          int(row.indices.size()), want_coeffs, continuous, answer.out.data(),
                                          answer.coeffs.data(), &answer.n_steps);
    return answer;
}

// A first-kind step cannot determine the unknown at a node 0. The continuous form already has a value there.
inline bool has_node_0(const reference::setting& row) {
    return row.indices.front() == 0;
}

// There is no node 0, and the product of (1 - c) / c over the nodes exceeds 1.
inline bool refused_by_vie1(const reference::setting& row) {
    int above = 1, below = 1;
    for (const int k_i : row.indices) {
        above *= row.m - k_i;
        below *= k_i;
    }
    return !has_node_0(row) && above > below;
}

} // namespace quenta_tests
