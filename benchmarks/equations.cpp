// Compares the direct history of the equation solvers with a bare loop over the same kernel values, a nonlinear step
// with a linear one, and measures how time and memory grow with the number of steps.

#include "bare_history.hpp"
#include "comparison.hpp"
#include "peak_memory.hpp"

#include "quenta_equations.hpp"

#include <cmath>
#include <string>
#include <vector>

namespace {

using quenta::equal_steps;
using quenta::second_kind;

// Both sides call these functions from loops that are compiled in this file, with the same options: -O3
// -ffp-contract=off, without -ffast-math and for x86-64 in general.
constexpr auto decay = [](double u) {
    return std::exp(-u);
};
constexpr auto wave = [](double u) {
    return std::cos(u);
};
constexpr auto one = [](double) {
    return 1.0;
};

enum class form { of_lag, of_times };

// y = exp(-t) + integral of K(t - s) y(s) ds, on 0 .. 2.
template <form written_as, class function>
void against_bare_loop(benchmark::State& state, const function& K, int steps) {
    const auto of_times = [K](double t, double s) {
        return K(t - s);
    };
    const auto equation =
        written_as == form::of_lag ? second_kind(decay).lag_memory(K) : second_kind(decay).memory(of_times);
    const auto options = equal_steps(steps).nodes(QUENTA_RADAU, history_points::P);
    const history_points at(equation.solve(2.0, options));
    std::vector<double> memory(at.node_time.size()), from_solution(memory.size());
    bare_history(of_times, at, memory);
    for (std::size_t i = 0; i < memory.size(); ++i)
        from_solution[i] = at.value[i] - decay(at.node_time[i]);
    if (!agree(state, from_solution.data(), memory.data(), std::int64_t(memory.size()), 1e-11))
        return;
    compare(
        state, 1.3, 1, [] {}, [&] { benchmark::DoNotOptimize(equation.solve(2.0, options)); },
        [&] { bare_history(of_times, at, memory); });
}

// y = exp(-t) + integral of K(t - s) phi(y(s)) ds, on 0 .. 2, with phi = y + exp(-y) and with phi = y.
template <bool with_derivative, class function>
void nonlinear_against_linear(benchmark::State& state, const function& K, int steps, double limit) {
    const auto phi = [](double, double y) {
        return y + std::exp(-y);
    };
    auto nonlinear = second_kind(decay);
    if constexpr (with_derivative)
        nonlinear.lag_memory(K, phi, [](double, double y) { return 1.0 - std::exp(-y); });
    else
        nonlinear.lag_memory(K, phi);
    const auto linear = second_kind(decay).lag_memory(K);
    compare(
        state, limit, 2000 / steps, [] {},
        [&] { benchmark::DoNotOptimize(nonlinear.solve(2.0, equal_steps(steps).nodes(QUENTA_RADAU, 3))); },
        [&] { benchmark::DoNotOptimize(linear.solve(2.0, equal_steps(steps).nodes(QUENTA_RADAU, 3))); });
}

void growth(benchmark::State& state, int steps) {
    const auto equation = second_kind(decay).lag_memory(decay);
    const auto options = equal_steps(steps).nodes(QUENTA_RADAU, 3);
    start_peak_memory();
    time_alone(state, [&] { benchmark::DoNotOptimize(equation.solve(2.0, options)); });
    state.counters["bytes"] = double(peak_memory());
}

template <form written_as, class function>
void register_bare_loop(const std::string& name, const function& K) {
    for (const int steps : {1000, 2000, 4000})
        register_line("equation, K = " + name + " / bare loop", steps, steps > 2000 ? 7 : 21,
                      [=](benchmark::State& state) { against_bare_loop<written_as>(state, K, steps); });
}

template <bool with_derivative, class function>
void register_nonlinear(const std::string& name, const function& K, double limit) {
    for (const int steps : {100, 1000})
        register_line(
            "equation, " + name + (with_derivative ? ", phi' given" : "") + " / linear", steps, 41,
            [=](benchmark::State& state) { nonlinear_against_linear<with_derivative>(state, K, steps, limit); });
}

const bool registered = [] {
    register_bare_loop<form::of_lag>("exp(-lag)", decay);
    register_bare_loop<form::of_lag>("cos(lag)", wave);
    register_bare_loop<form::of_times>("exp(-(t-s))", decay);
    register_bare_loop<form::of_times>("cos(t-s)", wave);
    register_nonlinear<false>("exp(-lag)", decay, 3.0);
    register_nonlinear<true>("exp(-lag)", decay, 3.0);
    register_nonlinear<false>("K = 1", one, no_limit);
    register_nonlinear<true>("K = 1", one, no_limit);
    for (const int steps : {1250, 2500, 5000, 10000, 20000})
        register_line("equation, exp(-lag), growth", steps, steps < 10000 ? 3 : 1,
                      [=](benchmark::State& state) { growth(state, steps); });
    return true;
}();

} // namespace
