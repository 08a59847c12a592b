// The floating-point mode of the host does not change the results, and every call leaves the mode unchanged.
#include "conformance/every_solver.hpp"
#include "conformance/function_call.hpp"
#include "support/bits.hpp"
#include "support/host_modes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif
#if defined(__x86_64__) && !defined(_WIN32)
#include <csetjmp>
#include <csignal>

#include <ucontext.h>
#endif

namespace quenta_tests {

namespace {

class every_host_mode : public ::testing::TestWithParam<host_mode> {};

// With these factors, products are subnormal, and some solutions overflow.
constexpr double small = 0x1.3p-1030, large = 0x1.7p1000;

TEST_P(every_host_mode, does_not_change_a_bit_of_sample_based_solvers) {
    int compared = 0;
    for (const sampled_solver& solver : every_solver)
        for (const int D : solver.solves_systems ? std::vector{1, 3, 9} : std::vector{1})
            for (const double scale : {1.0, small, large}) {
                system_samples data{D, 4 * 130 + 1};
                for (double& value : data.g)
                    value *= scale;
                for (double& value : data.y0)
                    value *= scale;
                const auto solve = [&] {
                    return solver.solve(data, 0.01, {2, {1, 2}}, 1);
                };
                const sampled_answer expected = solve(), actual = in_mode(GetParam(), solve);
                SCOPED_TRACE(solver.name + (", D = " + std::to_string(D)));
                ASSERT_EQ(actual.status, expected.status);
                EXPECT_EQ(actual.n_steps, expected.n_steps);
                EXPECT_TRUE(equal_bits(expected.out.values(), actual.out.values()));
                EXPECT_TRUE(equal_bits(expected.coeffs.values(), actual.coeffs.values()));
                ++compared;
            }
    EXPECT_EQ(compared, 3 * (4 * 3 + 4));
}

TEST_P(every_host_mode, does_not_change_a_bit_of_block_solvers) {
    random_data random{20260361};
    int compared = 0;
    for_each_variant([&](block_kind kind, int P, int D) {
        for (const double scale : {1.0, small, large}) {
            block_problem problem = random_blocks(random, kind, 20, P, D);
            for (double& value : problem.b)
                value *= scale;
            const auto solve = [&] {
                return call_block_solver(problem);
            };
            const block_answer expected = solve(), actual = in_mode(GetParam(), solve);
            SCOPED_TRACE(problem.text());
            ASSERT_EQ(actual.status, expected.status);
            EXPECT_TRUE(equal_bits(expected.x.values(), actual.x.values()));
            EXPECT_TRUE(equal_bits(expected.y.values(), actual.y.values()));
            ++compared;
        }
    });
    EXPECT_EQ(compared, 4 * 5 * 9 * 3);
}

// in_mode() checks that the mode is restored.
TEST_P(every_host_mode, is_restored_by_calls_that_fail) {
    constexpr int failed = -1;
    int compared = 0;
    const auto expect_in_mode = [&](int status, const auto& solve) {
        EXPECT_EQ(in_mode(GetParam(), solve), status);
        ++compared;
    };
    for (const sampled_solver& solver : every_solver) {
        SCOPED_TRACE(solver.name);
        system_samples singular{1, 5};
        std::fill(singular.K.begin(), singular.K.end(), solver.kind == equation::first_kind ? 0.0 : 1.0);
        std::fill(singular.a.begin(), singular.a.end(), 0.0);
        expect_in_mode(QUENTA_SINGULAR_BLOCK, [&] { return solver.solve(singular, 1.0, {1, {1}}, 1).status; });
        expect_in_mode(QUENTA_UNSUPPORTED_SETTING, [&] { return solver.solve(singular, 1.0, {1, {2}}, 1).status; });
        expect_in_mode(failed, [&] {
            try {
                return solver.solve(system_samples{1, 0}, 1.0, {1, {1}}, 1).status;
            } catch (const std::exception&) {
                return failed;
            }
        });
    }
    random_data random{20260362};
    for (const block_kind kind : block_kinds)
        for (const int D : {0, 3}) {
            block_problem problem = random_blocks(random, kind, 2, 2, D);
            problem.A[problem.entry(1, 0, 0, 1, 0, 0)] = std::numeric_limits<double>::infinity();
            SCOPED_TRACE(problem.text());
            expect_in_mode(QUENTA_SINGULAR_BLOCK, [&] { return call_block_solver(problem).status; });
            problem.P = 6;
            expect_in_mode(QUENTA_UNSUPPORTED_SETTING,
                           [&] { return call_block_solver(problem, nullptr, nullptr, nullptr); });
        }
    EXPECT_EQ(compared, 8 * 3 + 4 * 2 * 2);
}

#if defined(__x86_64__) && !defined(_WIN32)
// A signal handler runs in the default mode of the system, and a jump out of it keeps that mode. A host that jumps
// restores the mode from the context of the fault. That is its own mode, since the library checks the setting before it
// changes the mode.
sigjmp_buf before_the_fault;
_libc_fpstate state_at_the_fault;

void jump_out(int, siginfo_t*, void* context) {
    state_at_the_fault = *static_cast<const ucontext_t*>(context)->uc_mcontext.fpregs;
    siglongjmp(before_the_fault, 1);
}

TEST_P(every_host_mode, is_in_the_context_of_a_fault_that_the_host_jumps_out_of) {
    struct sigaction jump = {}, former;
    jump.sa_sigaction = jump_out;
    jump.sa_flags = SA_SIGINFO;
    ASSERT_EQ(sigaction(SIGFPE, &jump, &former), 0);
    int steps;
    const std::function<int()> divisions[] = {
        [&] { return quenta_solve_vie1(0, 0, 9, 0, 1, 0, 0, 0, 0, 0, 0, 0, &steps); },
        [&] { return quenta_solve_vie1_vec(0, 0, 9, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, &steps); },
        [&] { return quenta_solve_vie2(0, 0, 9, 1, 0, 0, 0, 0, 0, 0, &steps); },
        [&] { return quenta_solve_vie2_vec(0, 0, 9, 1, 1, 0, 0, 0, 0, 0, 0, &steps); },
        [&] { return quenta_solve_vide(0, 0, 0, 9, 0, 1, 0, 0, 0, 0, 0, 0, &steps); },
        [&] { return quenta_solve_vide_vec(0, 0, 0, 9, 1, 0, 1, 0, 0, 0, 0, 0, 0, &steps); },
    };
    for (const auto& divide : divisions) {
        constexpr int jumped = -1;
        state_at_the_fault = {};
        const auto solve = [&] {
            if (sigsetjmp(before_the_fault, 1) == 0)
                return divide();
            _mm_setcsr(state_at_the_fault.mxcsr);
            __asm__ volatile("fldcw %0" : : "m"(state_at_the_fault.cwd));
            return jumped;
        };
        EXPECT_EQ(in_mode(GetParam(), solve), jumped);
    }
    sigaction(SIGFPE, &former, nullptr);
}
#endif

INSTANTIATE_TEST_SUITE_P(modes, every_host_mode, ::testing::ValuesIn(host_modes()), [](const auto& instance) {
    std::string name = instance.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

} // namespace

} // namespace quenta_tests
