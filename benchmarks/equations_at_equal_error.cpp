// Compares the equation solvers with the textbook trapezoidal rule at the same error.

#include "comparison.hpp"
#include "textbook_trapezoid.hpp"

#include "quenta_equations.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace {

constexpr double wanted_error = 1e-8;

// y(t) = exp(-t) - t^2 + integral of t exp(s) y(s) ds, with the solution exp(-t).
struct two_times {
    static constexpr double t_end = 2.0;
    static double exact(double t) { return std::exp(-t); }
    static double g(double t) { return std::exp(-t) - t * t; }
    static double K(double t, double s) { return t * std::exp(s); }
    static double phi(double y) { return y; }
    static double phi_derivative(double) { return 1.0; }
    static quenta::equation equation() { return quenta::second_kind(g).memory(K); }
};

// y(t) = exp(-t) + integral of exp(-(t - s)) (y(s) + exp(-y(s))) ds, with the solution log(t + e).
struct nonlinear {
    static constexpr double t_end = 20.0;
    static double exact(double t) { return std::log(t + std::exp(1.0)); }
    static double g(double t) { return std::exp(-t); }
    static double K(double t, double s) { return std::exp(-(t - s)); }
    static double phi(double y) { return y + std::exp(-y); }
    static double phi_derivative(double y) { return 1.0 - std::exp(-y); }
    static quenta::equation equation() {
        return quenta::second_kind(g).lag_memory([](double u) { return std::exp(-u); },
                                                 [](double, double y) { return phi(y); });
    }
};

// At the points of the textbook rule.
template <class problem>
double error_of(const std::vector<double>& y) {
    const double h = problem::t_end / double(y.size() - 1);
    double largest = 0.0;
    for (std::size_t n = 0; n < y.size(); ++n)
        largest = std::max(largest, std::fabs(y[n] - problem::exact(double(n) * h)));
    return largest;
}

// Also between the mesh points.
template <class problem>
double error_of(const quenta::solution& y) {
    std::vector<double> values(1001);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = y(problem::t_end * double(i) / double(values.size() - 1));
    return error_of<problem>(values);
}

template <class problem>
std::vector<double> trapezoid(int steps) {
    return textbook_trapezoid(
        problem::g, [](double t, double s) { return problem::K(t, s); }, problem::phi, problem::phi_derivative,
        problem::t_end, steps);
}

// The error of the rule falls as 1/steps^2.
template <class problem>
int trapezoid_steps() {
    constexpr int sample = 1000;
    return int(std::ceil(sample * std::sqrt(error_of<problem>(trapezoid<problem>(sample)) / wanted_error)));
}

template <class problem>
quenta::solve_options five_nodes() {
    for (int steps = 2;; ++steps) {
        const auto options = quenta::equal_steps(steps).nodes(QUENTA_RADAU, 5);
        if (error_of<problem>(problem::equation().solve(problem::t_end, options)) <= wanted_error)
            return options;
    }
}

template <class problem>
void against_trapezoid(benchmark::State& state, const quenta::solve_options& options) {
    const quenta::equation equation = problem::equation();
    const int peer_steps = trapezoid_steps<problem>();
    const auto y = equation.solve(problem::t_end, options);
    const double ours = error_of<problem>(y), peers = error_of<problem>(trapezoid<problem>(peer_steps));
    if (!(ours <= wanted_error && peers <= 1.01 * wanted_error && peers >= 0.9 * wanted_error)) {
        state.SkipWithError("expected errors of 1e-8 at most, got another");
        return;
    }
    state.SetLabel(std::to_string(y.steps()) + " steps / " + std::to_string(peer_steps));
    compare(
        state, 1.0 / 100.0, 1, [] {}, [&] { benchmark::DoNotOptimize(equation.solve(problem::t_end, options)); },
        [&] { benchmark::DoNotOptimize(trapezoid<problem>(peer_steps)); });
}

template <class problem>
void register_problem(const std::string& name) {
    register_line(name + ", error 1e-N, P=5 / textbook", 8, 5,
                  [](benchmark::State& state) { against_trapezoid<problem>(state, five_nodes<problem>()); });
    register_line(name + ", tolerance 1e-N, P=5 / textbook", 8, 5, [](benchmark::State& state) {
        against_trapezoid<problem>(state, quenta::to_tolerance(0.0, wanted_error).nodes(QUENTA_RADAU, 5));
    });
}

const bool registered = [] {
    register_problem<two_times>("K = t exp(s)");
    register_problem<nonlinear>("exp(-lag) (y + exp(-y))");
    return true;
}();

} // namespace
