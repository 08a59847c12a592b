// The memory of a linear scalar equation at all nodes, with the solution known: two loops that evaluate the kernel at
// the points that the direct history evaluates it at, multiply and add.
#pragma once

#include "quenta_equations.hpp"

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

// The points and weights of a solution on equal steps by the nodes of Radau IIA with P = 3.
struct history_points {
    static constexpr int P = 3;

    explicit history_points(const quenta::solution& y) {
        const double root = std::sqrt(6.0);
        const std::array<double, P> c{(4.0 - root) / 10.0, (4.0 + root) / 10.0, 1.0},
            b{(16.0 - root) / 36.0, (16.0 + root) / 36.0, 1.0 / 9.0};
        for (int n = 0; n < y.steps(); ++n) {
            const double start = y.mesh()[n], h = y.mesh()[n + 1] - start;
            for (int i = 0; i < P; ++i) {
                node_time.push_back(start + c[i] * h);
                value.push_back(y(node_time.back()));
                weighted.push_back(h * b[i] * value.back());
                for (int q = 0; q < P; ++q) {
                    present_time.push_back(start + c[i] * c[q] * h);
                    present_weighted.push_back(h * c[i] * b[q] * y(present_time.back()));
                }
            }
        }
    }

    std::vector<double> node_time, value; // y at the nodes t_ni
    std::vector<double> weighted;         // h b_j y(t_kj)
    std::vector<double> present_time;     // t_n + c_i c_q h
    std::vector<double> present_weighted; // h c_i b_q y(t_n + c_i c_q h)
};

template <class kernel>
void bare_history(const kernel& K, const history_points& at, std::vector<double>& memory) {
    constexpr std::int64_t P = history_points::P;
    const std::int64_t nodes = std::int64_t(at.node_time.size());
    for (std::int64_t target = 0; target < nodes; ++target) {
        const double t = at.node_time[target];
        double sum = 0.0;
        for (std::int64_t source = 0; source < target / P * P; ++source)
            sum += K(t, at.node_time[source]) * at.weighted[source];
        for (std::int64_t q = target * P; q < (target + 1) * P; ++q)
            sum += K(t, at.present_time[q]) * at.present_weighted[q];
        memory[target] = sum;
    }
}
