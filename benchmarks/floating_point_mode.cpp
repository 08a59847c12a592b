// The cost of the standard floating-point mode, which each call sets and restores, for the smallest possible solve:
// - an export compared with the C++ variant, which does not change the mode and checks no sizes,
// - a host that rounds down compared with a host in the standard mode.

#include "comparison.hpp"

#include "quenta_function_solvers/function_solvers.hpp"

#include <cfenv>
#include <vector>

namespace {

constexpr int batch = 20000;

struct one_step {
    const double A = 2.0, b = 1.0;
    double x = 0.0;

    int solve() { return function_solve_vie1(&A, &b, 1, 1, &x); }
    bool solve_in_current_mode() { return quenta::function_solve_vie1_impl<1>({1, &A}, {1, &b}, 1, {1, &x}); }
};

void against_current_mode(benchmark::State& state) {
    one_step step;
    compare(
        state, no_limit, batch, [] {}, [&] { benchmark::DoNotOptimize(step.solve()); },
        [&] { benchmark::DoNotOptimize(step.solve_in_current_mode()); });
}

void under_a_host_that_rounds_down(benchmark::State& state) {
    one_step step;
    std::vector<double> foreign, standard;
    for (auto _ : state) {
        const auto seconds = [&] {
            return seconds_per_call(
                batch, [] {}, [&] { benchmark::DoNotOptimize(step.solve()); });
        };
        std::fesetround(FE_DOWNWARD);
        foreign.push_back(seconds());
        std::fesetround(FE_TONEAREST);
        standard.push_back(seconds());
        state.SetIterationTime(batch * (foreign.back() + standard.back()));
    }
    report_comparison(state, foreign, standard, no_limit);
}

const bool registered = [] {
    register_line("one step / mode unchanged", 1, 101, against_current_mode);
    register_line("one step, host rounds down / to nearest", 1, 101, under_a_host_that_rounds_down);
    return true;
}();

} // namespace
