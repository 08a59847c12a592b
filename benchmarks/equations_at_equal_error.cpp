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

template <class problem>
double error_of(const quenta::solution& y) {
    constexpr int points = 1000;
    double largest = 0.0;
    for (int i = 0; i <= points; ++i) {
        const double t = problem::t_end * i / points;
        largest = std::max(largest, std::fabs(y(t) - problem::exact(t)));
    }
    return largest;
}

// The values of the textbook rule are joined by straight lines.
template <class problem>
double error_of(const std::vector<double>& y, double h) {
    double largest = std::fabs(y[0] - problem::exact(0.0));
    for (std::size_t n = 1; n < y.size(); ++n) {
        const double t = double(n) * h;
        largest = std::max({largest, std::fabs(y[n] - problem::exact(t)),
                            std::fabs((y[n - 1] + y[n]) / 2.0 - problem::exact(t - h / 2.0))});
    }
    return largest;
}

template <class problem>
std::vector<double> trapezoid(double h, int steps) {
    return textbook_trapezoid(problem::g, problem::K, problem::phi, problem::phi_derivative, h, steps);
}

// The error of the rule falls as h^2.
template <class problem>
double trapezoid_step() {
    constexpr int steps = 2000;
    const double h = problem::t_end / steps;
    return h * std::sqrt(wanted_error / error_of<problem>(trapezoid<problem>(h, steps), h));
}

template <class problem>
quenta::solve_options five_nodes() {
    for (int steps = 2;; ++steps) {
        const auto options = quenta::equal_steps(steps).nodes(QUENTA_RADAU, 5);
        if (error_of<problem>(problem::equation().solve(problem::t_end, options)) <= wanted_error)
            return options;
    }
}

// The peer takes at most its first 20,000 steps. All of them take as many times longer as the square of their number,
// so the ratio is then an upper bound.
constexpr int most_peer_steps = 20000;

template <class problem>
void against_trapezoid(benchmark::State& state, const quenta::solve_options& options) {
    const quenta::equation equation = problem::equation();
    const double h = trapezoid_step<problem>();
    const int all_steps = int(std::ceil(problem::t_end / h)), peer_steps = std::min(all_steps, most_peer_steps);
    const auto y = equation.solve(problem::t_end, options);
    if (error_of<problem>(y) > wanted_error) {
        state.SkipWithError("expected an error of at most 1e-8, got a larger one");
        return;
    }
    state.SetLabel(std::to_string(y.steps()) + " steps / " + std::to_string(peer_steps) + " of " +
                   std::to_string(all_steps));
    compare(
        state, 1.0 / 100.0, 1, [] {}, [&] { benchmark::DoNotOptimize(equation.solve(problem::t_end, options)); },
        [&] { benchmark::DoNotOptimize(trapezoid<problem>(h, peer_steps)); });
}

template <class problem>
void register_problem(const std::string& name) {
    register_line(name + ", error 1e-N, P=5 / textbook", 8, 3,
                  [](benchmark::State& state) { against_trapezoid<problem>(state, five_nodes<problem>()); });
    register_line(name + ", tolerance 1e-N, P=5 / textbook", 8, 3, [](benchmark::State& state) {
        against_trapezoid<problem>(state, quenta::to_tolerance(0.0, wanted_error).nodes(QUENTA_RADAU, 5));
    });
}

const bool registered = [] {
    register_problem<two_times>("K = t exp(s)");
    register_problem<nonlinear>("exp(-lag) (y + exp(-y))");
    return true;
}();

} // namespace
