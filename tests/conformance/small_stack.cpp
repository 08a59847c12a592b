// Every solver runs on a thread whose stack has the size that the header states for it.
#include "conformance/every_solver.hpp"
#include "support/painted_stack.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace quenta_tests {

namespace {

constexpr std::size_t KiB = 1024;

struct solve_on_thread {
    const sampled_solver& solver;
    const system_samples& data;
    const reference::setting& row;
    int status = -1;
};

void* solve(void* argument) {
    auto& solve = *static_cast<solve_on_thread*>(argument);
    solve.status = solve.solver.solve(solve.data, 0.01, solve.row, 1).status;
    return nullptr;
}

class small_stack : public ::testing::TestWithParam<sampled_solver> {};

TEST_P(small_stack, of_the_size_in_the_header_is_enough_for_every_setting) {
    const sampled_solver& solver = GetParam();
    int solved = 0;
    std::size_t most = 0;
    for (const reference::setting& row : reference::settings()) {
        if (!solver.suits(row))
            continue;
        for (const int D : solver.solves_systems ? std::vector{1, 7, 8, 9} : std::vector{1}) {
            // Enough steps for the transform in the history.
            const system_samples data{D, 70 * row.m * row.m + 1};
            painted_stack stack{std::size_t(solver.stack_KiB) * KiB};
            solve_on_thread task{solver, data, row};
            stack.run(solve, &task);
            EXPECT_EQ(task.status, QUENTA_SOLVED)
                << "m = " << row.m << ", nodes " << ::testing::PrintToString(row.indices) << ", D = " << D;
            most = std::max(most, stack.used());
            ++solved;
        }
    }
    EXPECT_GT(solved, 0);
    RecordProperty("stack_bytes_used", std::to_string(most));
}

INSTANTIATE_TEST_SUITE_P(solver, small_stack, ::testing::ValuesIn(every_solver),
                         [](const auto& instance) { return std::string{instance.param.name}; });

} // namespace

} // namespace quenta_tests
