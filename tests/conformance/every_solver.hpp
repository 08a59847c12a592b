// The solvers from samples as one list, for what is promised of each of them.
#pragma once

#include "conformance/vide_call.hpp"
#include "conformance/vie1_call.hpp"
#include "conformance/vie2_call.hpp"

#include <cmath>
#include <cstddef>
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

    system_samples(int dimension, int N) : D{dimension} {
        for (int i = 0; i < N; ++i)
            for (int r = 0; r < D; ++r) {
                g.push_back(1.0 + std::sin(1.7 * (D * i + r) + 0.3));
                for (int s = 0; s < D; ++s) {
                    K.push_back(r == s ? 2.0 + 0.3 * std::cos(0.4 * i + r) : 0.2 * std::sin(0.7 * i + 3 * r + s) / D);
                    a.push_back(r == s ? -1.0 + 0.4 * std::sin(0.3 * i + r) : 0.3 * std::cos(0.2 * i + r + 2 * s) / D);
                }
            }
        for (int r = 0; r < D; ++r)
            y0.push_back(1.5 - r);
    }

    int N() const { return int(g.size()) / D; }

    int D;
    std::vector<double> g, K, a, y0;
};

struct sampled_solver {
    const char* name;
    bool solves_systems; // or one equation only
    sampled_answer (*solve)(const system_samples& data, double dt, const reference::setting& row, int want_coeffs);
    bool (*accepts)(const reference::setting& row);
    bool (*suits)(const reference::setting& row); // there is a regular block in this kind of equation
    int extra_powers;                             // coefficients of a step that are written beyond the number of nodes
    int stack_KiB;                                // what the header says that a call takes
};

inline void PrintTo(const sampled_solver& solver, std::ostream* stream) {
    *stream << solver.name;
}

inline bool always(const reference::setting&) {
    return true;
}
inline bool accepted_by_vie1(const reference::setting& row) {
    return !refused_by_vie1(row);
}
inline bool suits_vie1(const reference::setting& row) {
    return !has_node_0(row) && !refused_by_vie1(row);
}

inline const sampled_solver every_solver[] = {
    {"vie1_discontinuous", false,
     [](const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
         return call_vie1(data.g, data.K, data.y0[0], dt, row, 0, want_coeffs);
     },
     accepted_by_vie1, suits_vie1, 0, 128},
    {"vie1_continuous", false,
     [](const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
         return call_vie1(data.g, data.K, data.y0[0], dt, row, 1, want_coeffs);
     },
     accepted_by_vie1, suits_vie1, 1, 128},
    {"vie1_vec_discontinuous", true,
     [](const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
         return call_vie1_vec(data.g, data.K, data.D, data.y0, dt, row, 0, want_coeffs);
     },
     accepted_by_vie1, suits_vie1, 0, 128},
    {"vie1_vec_continuous", true,
     [](const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
         return call_vie1_vec(data.g, data.K, data.D, data.y0, dt, row, 1, want_coeffs);
     },
     accepted_by_vie1, suits_vie1, 1, 128},
    {"vie2", false,
     [](const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
         return call_vie2(data.g, data.K, dt, row, want_coeffs);
     },
     always, always, 0, 64},
    {"vie2_vec", true,
     [](const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
         return call_vie2_vec(data.g, data.K, data.D, dt, row, want_coeffs);
     },
     always, always, 0, 128},
    {"vide", false,
     [](const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
         return call_vide(data.g, data.K, data.a, data.y0[0], dt, row, want_coeffs);
     },
     always, always, 1, 64},
    {"vide_vec", true,
     [](const system_samples& data, double dt, const reference::setting& row, int want_coeffs) {
         return call_vide_vec(data.g, data.K, data.a, data.D, data.y0, dt, row, want_coeffs);
     },
     always, always, 1, 64},
};

inline const sampled_solver& solver_named(std::string_view name) {
    for (const sampled_solver& solver : every_solver)
        if (name == solver.name)
            return solver;
    throw std::invalid_argument{std::string{name}};
}

} // namespace quenta_tests
