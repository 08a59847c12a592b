// Compares the direct sums of the equation solvers with a bare loop over the same kernel values, a nonlinear step with
// a linear one, and measures how time and memory grow with the number of steps, with direct sums and with fast ones.
// Kernels of (t, s) are summed directly, and kernels of the lag, on many steps, by transforms if the steps are equal
// and by the cells of a tree otherwise.

#include "bare_history.hpp"
#include "comparison.hpp"
#include "peak_memory.hpp"

#include "quenta_equations.hpp"

#include <algorithm>
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

// Adds a term with the kernel K(t - s), and with phi and its derivative if they are given.
template <form written_as, class function, class... nonlinearity>
quenta::equation with_memory(quenta::equation equation, const function& K, const nonlinearity&... phi) {
    if constexpr (written_as == form::of_lag)
        return equation.lag_memory(K, phi...);
    else
        return equation.memory([K](double t, double s) { return K(t - s); }, phi...);
}

// y = exp(-t) + integral of K(t - s) y(s) ds, on 0 .. 2.
template <class function>
void against_bare_loop(benchmark::State& state, const function& K, int steps) {
    const auto of_times = [K](double t, double s) {
        return K(t - s);
    };
    const auto equation = with_memory<form::of_times>(second_kind(decay), K);
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
template <form written_as, bool with_derivative, class function>
void nonlinear_against_linear(benchmark::State& state, const function& K, int steps, double limit) {
    const auto phi = [](double, double y) {
        return y + std::exp(-y);
    };
    const auto derivative = [](double, double y) {
        return 1.0 - std::exp(-y);
    };
    const auto nonlinear = [&] {
        if constexpr (with_derivative)
            return with_memory<written_as>(second_kind(decay), K, phi, derivative);
        else
            return with_memory<written_as>(second_kind(decay), K, phi);
    }();
    const auto linear = with_memory<written_as>(second_kind(decay), K);
    compare(
        state, limit, std::max(1, 2000 / steps), [] {},
        [&] { benchmark::DoNotOptimize(nonlinear.solve(2.0, equal_steps(steps).nodes(QUENTA_RADAU, 3))); },
        [&] { benchmark::DoNotOptimize(linear.solve(2.0, equal_steps(steps).nodes(QUENTA_RADAU, 3))); });
}

void growth_of(benchmark::State& state, const quenta::equation& equation, const quenta::solve_options& options) {
    start_peak_memory();
    time_alone(state, [&] { benchmark::DoNotOptimize(equation.solve(2.0, options)); });
    state.counters["bytes"] = double(peak_memory());
}

template <form written_as>
void growth(benchmark::State& state, int steps) {
    growth_of(state, with_memory<written_as>(second_kind(decay), decay), equal_steps(steps).nodes(QUENTA_RADAU, 3));
}

// On the default mesh, with 5 nodes.
void growth_if_singular(benchmark::State& state, int steps) {
    const auto K = quenta::weakly_singular(0.5, [](double) { return -0.5; });
    growth_of(state, second_kind(decay).lag_memory(K), quenta::steps(steps));
}

template <class function>
void register_bare_loop(const std::string& name, const function& K) {
    for (const int steps : {1000, 2000, 4000})
        register_line("equation, K = " + name + " / bare loop", steps, steps > 2000 ? 7 : 21,
                      [=](benchmark::State& state) { against_bare_loop(state, K, steps); });
}

template <form written_as, bool with_derivative, class function>
void register_nonlinear(const std::string& name, const function& K, double limit, std::vector<int> numbers_of_steps) {
    for (const int steps : numbers_of_steps)
        register_line("equation, " + name + (with_derivative ? ", phi' given" : "") + " / linear", steps,
                      steps > 1000 ? 7 : 41, [=](benchmark::State& state) {
                          nonlinear_against_linear<written_as, with_derivative>(state, K, steps, limit);
                      });
}

const bool registered = [] {
    register_bare_loop("exp(-(t-s))", decay);
    register_bare_loop("cos(t-s)", wave);
    register_nonlinear<form::of_times, false>("exp(-(t-s))", decay, 3.0, {100, 1000});
    register_nonlinear<form::of_times, true>("exp(-(t-s))", decay, 3.0, {100, 1000});
    register_nonlinear<form::of_times, false>("K = 1", one, no_limit, {100, 1000});
    register_nonlinear<form::of_times, true>("K = 1", one, no_limit, {100, 1000});
    register_nonlinear<form::of_lag, true>("exp(-lag)", decay, no_limit, {1000, 100000});
    for (const int steps : {1250, 2500, 5000, 10000, 20000})
        register_line("equation, exp(-(t-s)), growth", steps, steps < 10000 ? 3 : 1,
                      [=](benchmark::State& state) { growth<form::of_times>(state, steps); });
    for (const int steps : {1000, 10000, 100000, 1000000})
        register_line("equation, exp(-lag), growth", steps, 3,
                      [=](benchmark::State& state) { growth<form::of_lag>(state, steps); });
    for (const int steps : {1000, 10000, 100000, 1000000})
        register_line("equation, lag^-1/2, growth", steps, 3,
                      [=](benchmark::State& state) { growth_if_singular(state, steps); });
    return true;
}();

} // namespace
