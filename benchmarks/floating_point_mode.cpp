// What it costs that a call calculates in the standard mode, whatever mode its host has set: the smallest solve that
// there is, beside the variant for C++, which leaves the mode alone (and has no sizes to test), and under a host that
// rounds down.

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
    bool solve_in_the_mode_at_hand() { return quenta::function_solve_vie1_impl<1>({1, &A}, {1, &b}, 1, {1, &x}); }
};

void against_the_mode_at_hand(benchmark::State& state) {
    one_step step;
    compare(
        state, no_limit, batch, [] {}, [&] { benchmark::DoNotOptimize(step.solve()); },
        [&] { benchmark::DoNotOptimize(step.solve_in_the_mode_at_hand()); });
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
    register_line("one step / in the mode at hand", 1, 101, against_the_mode_at_hand);
    register_line("one step, host rounds down / to nearest", 1, 101, under_a_host_that_rounds_down);
    return true;
}();

} // namespace
