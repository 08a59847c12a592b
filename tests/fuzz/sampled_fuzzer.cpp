// Compares the sample-based solvers of one kind of equation, QUENTA_FUZZED_KIND, with the reference implementation.
#include "conformance/sampled_bits.hpp"
#include "fuzz/fuzz_input.hpp"

#include <exception>
#include <stdexcept>

using namespace quenta_tests;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::vector<sampled_solver> solvers = [] {
        std::vector<sampled_solver> of_the_kind;
        for (const sampled_solver& solver : every_solver)
            if (solver.kind == equation::QUENTA_FUZZED_KIND)
                of_the_kind.push_back(solver);
        return of_the_kind;
    }();

    fuzz_input input{data, size};
    const sampled_solver& solver = solvers[std::size_t(input.below(int(solvers.size())))];
    const std::size_t row = std::size_t(input.below(56));
    const reference::setting& setting = reference::settings()[row];
    const int D = solver.solves_systems ? 1 + input.below(10) : 1;
    const int want_coeffs = input.below(2);
    const int most_steps = D <= 2 ? 140 : 40; // the reference implementation is slow for systems
    const int N = input.below(most_steps * setting.m * setting.m + 2);
    sampled_problem problem{row, input.real(), system_samples{D}};
    problem.data.g = input.reals(std::size_t(N * D));
    problem.data.K = input.reals(std::size_t(N * D * D));
    problem.data.a = input.reals(std::size_t(N * D * D));
    problem.data.y0 = input.reals(std::size_t(D));

    SCOPED_TRACE(std::string{solver.name} + ", " + problem.text());
    const auto solve = [&] {
        return solver.solve(problem.data, problem.dt, setting, want_coeffs);
    };
    if (!solver.accepts(setting)) {
        const sampled_answer refused = solve();
        EXPECT_EQ(refused.status, QUENTA_UNSUPPORTED_SETTING);
        EXPECT_TRUE(refused.untouched());
    } else if (N < present_samples(setting)) {
        EXPECT_THROW(solve(), std::exception);
        EXPECT_THROW(reference_of(solver, problem), std::logic_error);
    } else
        expect_equal(reference_of(solver, problem), solve(), want_coeffs != 0);
    return 0;
}
