// The sample-based solvers as one list, for promises that all of them make.
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

// The samples of a system, for every kind of equation. If N is given, they are made by formulas: nothing is symmetric,
// and every block is regular except where the setting makes it singular.
struct system_samples {
    explicit system_samples(int dimension) : D{dimension} {}

    // The first N samples of a sequence, which is computed once for each dimension.
    system_samples(int dimension, int N) : D{dimension} {
        static thread_local std::map<int, system_samples> sequences;
        system_samples& all = sequences.try_emplace(D, D).first->second;
        for (int sample = all.N(); sample < N; ++sample)
            all.add_sample(sample);
        g.assign(all.g.begin(), all.g.begin() + N * D);
        K.assign(all.K.begin(), all.K.begin() + N * D * D);
        a.assign(all.a.begin(), all.a.begin() + N * D * D);
        for (int component = 0; component < D; ++component)
            y0.push_back(1.5 - component);
    }

    int N() const { return int(g.size()) / D; }

    int D;
    std::vector<double> g, K, a, y0;

private:
    void add_sample(int sample) {
        for (int row = 0; row < D; ++row) {
            g.push_back(1.0 + std::sin(1.7 * (D * sample + row) + 0.3));
            for (int b = 0; b < D; ++b) {
                const bool diagonal = row == b;
                K.push_back(diagonal ? 2.0 + 0.3 * std::cos(0.4 * sample + row)
                                     : 0.2 * std::sin(0.7 * sample + 3 * row + b) / D);
                a.push_back(diagonal ? -1.0 + 0.4 * std::sin(0.3 * sample + row)
                                     : 0.3 * std::cos(0.2 * sample + row + 2 * b) / D);
            }
        }
    }
};

enum class equation { first_kind, second_kind, integro_differential };

struct sampled_solver {
    const char* name;
    equation kind;
    bool solves_systems; // otherwise scalar equations
    bool carries_value;  // from step to step: a polynomial has one more coefficient than there are nodes
    int stack_KiB;       // the bound that the header states
    sampled_answer (*solve)(const system_samples& data, double dt, const reference::setting& row, int want_coeffs);

    bool accepts(const reference::setting& row) const { return kind != equation::first_kind || !refused_by_vie1(row); }
    // The setting is accepted, and the blocks can be regular.
    bool suits(const reference::setting& row) const {
        return accepts(row) && !(kind == equation::first_kind && has_node_0(row));
    }
    // The number of coefficients of a polynomial. Each step has one slot more than there are nodes.
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
    {"vide", equation::integro_differential, false, true, 64, solve_vide},
    {"vide_vec", equation::integro_differential, true, true, 128, solve_vide_vec},
};

inline const sampled_solver& solver_named(std::string_view name) {
    for (const sampled_solver& solver : every_solver)
        if (name == solver.name)
            return solver;
    throw std::invalid_argument{std::string{name}};
}

} // namespace quenta_tests
