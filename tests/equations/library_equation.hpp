// An equation of the reference implementation, for the library.
#pragma once

#include "quenta_equations.hpp"
#include "reference/equations.hpp"

#include <span>

namespace quenta_test {

inline quenta::equation library_equation(const reference::equation& problem) {
    const auto forcing = problem.forcing;
    const auto g = [forcing](double t, std::span<double> values) {
        forcing(t, nullptr, values.data());
    };
    const auto f = [forcing](double t, std::span<const double> y, std::span<double> values) {
        forcing(t, y.data(), values.data());
    };
    quenta::equation equation = problem.kind == '2'   ? quenta::second_kind(g, problem.D)
                                : problem.kind == '1' ? quenta::first_kind(g, problem.D)
                                : forcing             ? quenta::integro_differential(f, problem.start)
                                                      : quenta::integro_differential(nullptr, problem.start);
    if (problem.kind == '1')
        equation.first_guess(problem.start);
    for (const reference::equation_term& term : problem.terms) {
        const auto kernel = term.kernel;
        const quenta::weakly_singular K(
            term.alpha, [kernel](double t, double s, std::span<double> values) { kernel(t, s, values.data()); });
        const auto phi = term.phi;
        if (phi)
            equation.memory(
                K,
                [phi](double s, std::span<const double> y, std::span<double> values) {
                    phi(s, y.data(), values.data());
                },
                term.E);
        else
            equation.memory(K);
    }
    for (const reference::equation_delay& term : problem.delays)
        equation.delay(
            term.delay, [w = term.weight](double t, std::span<double> values) { w(t, values.data()); },
            [phi = term.phi](double s, std::span<const double> y, std::span<double> values) {
                phi(s, y.data(), values.data());
            },
            term.E);
    if (problem.past)
        equation.past([past = problem.past](double t, std::span<double> y) { past(t, y.data()); });
    return equation;
}

} // namespace quenta_test
