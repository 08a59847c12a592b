// The solvers from samples as one list, for what is promised of each of them.
#pragma once

#include "conformance/vide_call.hpp"
#include "conformance/vie1_call.hpp"
#include "conformance/vie2_call.hpp"

#include <cmath>
#include <cstddef>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace quenta_tests {

// The samples of a system, for every kind of equation. N of them that nobody gave: nothing is symmetric, and every
// block is regular that can be.
struct system_samples {
    explicit system_samples(int dimension) : D{dimension} {}

    // The beginning of the sequence of its dimension, which is calculated once.
    system_samples(int dimension, int N) : D{dimension} {
        static thread_local std::map<int, system_samples> sequences;
        system_samples& all = sequences.try_emplace(D, D).first->second;
        for (int i = all.N(); i < N; ++i)
            all.add_sample(i);
        g.assign(all.g.begin(), all.g.begin() + N * D);
        K.assign(all.K.begin(), all.K.begin() + N * D * D);
        a.assign(all.a.begin(), all.a.begin() + N * D * D);
        for (int r = 0; r < D; ++r)
            y0.push_back(1.5 - r);
    }

    int N() const { return int(g.size()) / D; }

    int D;
    std::vector<double> g, K, a, y0;

private:
    void add_sample(int i) {
        for (int r = 0; r < D; ++r) {
            g.push_back(1.0 + std::sin(1.7 * (D * i + r) + 0.3));
            for (int s = 0; s < D; ++s) {
                K.push_back(r == s ? 2.0 + 0.3 * std::cos(0.4 * i + r) : 0.2 * std::sin(0.7 * i + 3 * r + s) / D);
                a.push_back(r == s ? -1.0 + 0.4 * std::sin(0.3 * i + r) : 0.3 * std::cos(0.2 * i + r + 2 * s) / D);
            }
        }
    }
};

enum class equation { first_kind, second_kind, derivative };

struct sampled_solver {
    const char* name;
    equation kind;
    bool solves_systems; // or one equation only
    bool carries_value;  // from step to step, so that a polynomial has one power more than there are nodes
    int stack_KiB;       // what the header says that a call takes
    sampled_answer (*solve)(const system_samples& data, double dt, const reference::setting& row, int want_coeffs);

    bool accepts(const reference::setting& row) const { return kind != equation::first_kind || !refused_by_vie1(row); }
    // There is a regular block.
    bool suits(const reference::setting& row) const {
        return accepts(row) && !(kind == equation::first_kind && has_node_0(row));
    }
    // The coefficients of a step that mean something. There is a slot for one more than there are nodes.
    int powers(const reference::setting& row) const { return int(row.indices.size()) + (carries_value ? 1 : 0); }
};

inline void PrintTo(const sampled_solver& solver, std::ostream* stream) {
    *stream << solver.name;
}

template <int continuous>
sampled_answer solve_vie1(const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
    return call_vie1(data.g, data.K, data.y0[0], dt, row, continuous, want_coeffs);
}
template <int continuous>
sampled_answer solve_vie1_vec(const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
    return call_vie1_vec(data.g, data.K, data.D, data.y0, dt, row, continuous, want_coeffs);
}
inline sampled_answer solve_vie2(const system_samples& data, double dt, const reference::setting& row,
                                 int want_coeffs) {
    return call_vie2(data.g, data.K, dt, row, want_coeffs);
}
inline sampled_answer solve_vie2_vec(const system_samples& data, double dt, const reference::setting& row,
                                     int want_coeffs) {
    return call_vie2_vec(data.g, data.K, data.D, dt, row, want_coeffs);
}
inline sampled_answer solve_vide(const system_samples& data, double dt, const reference::setting& row,
                                 int want_coeffs) {
    return call_vide(data.g, data.K, data.a, data.y0[0], dt, row, want_coeffs);
}
inline sampled_answer solve_vide_vec(const system_samples& data, double dt, const reference::setting& row,
                                     int want_coeffs) {
    return call_vide_vec(data.g, data.K, data.a, data.D, data.y0, dt, row, want_coeffs);
}

inline constexpr sampled_solver every_solver[] = {
    {"vie1_discontinuous", equation::first_kind, false, false, 128, solve_vie1<0>},
    {"vie1_continuous", equation::first_kind, false, true, 128, solve_vie1<1>},
    {"vie1_vec_discontinuous", equation::first_kind, true, false, 128, solve_vie1_vec<0>},
    {"vie1_vec_continuous", equation::first_kind, true, true, 128, solve_vie1_vec<1>},
    {"vie2", equation::second_kind, false, false, 64, solve_vie2},
    {"vie2_vec", equation::second_kind, true, false, 128, solve_vie2_vec},
    {"vide", equation::derivative, false, true, 64, solve_vide},
    {"vide_vec", equation::derivative, true, true, 128, solve_vide_vec},
};

inline const sampled_solver& solver_named(std::string_view name) {
    for (const sampled_solver& solver : every_solver)
        if (name == solver.name)
            return solver;
    throw std::invalid_argument{std::string{name}};
}

} // namespace quenta_tests
