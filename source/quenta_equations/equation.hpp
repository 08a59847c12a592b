// An equation as the caller described it.
#pragma once

#include "quenta_equations/quenta_equations.h"
#include "quenta_equations/status.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

namespace quenta {

enum class equation_kind { first, second, integro_differential };

// A function of the caller.
struct callback {
    quenta_function function = nullptr;
    void* context = nullptr;

    explicit operator bool() const { return function != nullptr; }

    // The values at `count` points, which are not checked. `count` must fit an int.
    void operator()(std::int64_t count, const double* t, const double* x, double* values) const {
        if (function(context, static_cast<int>(count), t, x, values) != 0)
            throw solve_ended{equation_status::stopped};
    }
};

// One term of M(t): the kernel has D rows and E columns.
struct memory_term {
    int E;
    double singularity; // alpha
    bool of_lag;        // the kernel is a function of t - s
    callback kernel;
    callback phi, derivative; // phi(s, y) = y if there is none

    bool is_linear() const { return !phi; }
};

// The delay term w(t) phi(t - delay, y(t - delay)) of M(t): w has D rows and E columns.
struct delay_term {
    int E;
    double delay;
    callback weight; // w(t) is the unit matrix if there is none
    callback phi;    // phi(s, y) = y if there is none
};

} // namespace quenta

struct quenta_equation {
    quenta::equation_kind kind;
    int D;
    quenta::callback forcing; // g(t), or f(t, y), which may be absent
    quenta::callback jacobian;
    std::vector<double> start; // integro-differential: y0; first kind: where the first iteration starts
    std::vector<quenta::memory_term> memory;
    std::vector<quenta::delay_term> delays{};
    bool last_is_delay = false; // the term that was added last
    quenta::callback past{};    // y(t) before 0, where the delay terms are 0 without it
    quenta_progress progress = nullptr;
    void* progress_context = nullptr;

    // Whether the unknowns of a step are the values of y' at the nodes, and not those of y.
    bool solves_for_derivative() const { return kind == quenta::equation_kind::integro_differential; }

    // The columns of all kernels of the lag together.
    std::int64_t columns_of_lag() const {
        std::int64_t columns = 0;
        for (const quenta::memory_term& term : memory)
            columns += term.of_lag ? term.E : 0;
        return columns;
    }

    bool is_singular() const {
        return std::any_of(memory.begin(), memory.end(), [](const auto& term) { return term.singularity > 0.0; });
    }

    // Infinite without delay terms.
    double shortest_delay() const {
        double shortest = std::numeric_limits<double>::infinity();
        for (const quenta::delay_term& term : delays)
            shortest = std::min(shortest, term.delay);
        return shortest;
    }
};
