// The block solvers allocate no heap memory, and their use of the stack is bounded. The functions that return limits
// and settings allocate nothing either.
#include "conformance/function_call.hpp"
#include "support/replaced_new.hpp"
#ifdef __linux__
#include "support/painted_stack.hpp"
#endif

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

namespace {

thread_local bool counting = false;
thread_local long allocations = 0;

} // namespace

void* quenta_tests::allocate_block(std::size_t bytes, std::size_t alignment) {
    allocations += counting;
    return heap_block(bytes, alignment);
}

void quenta_tests::release_block(void* block) noexcept {
    release_heap_block(block);
}

namespace quenta_tests {

namespace {

TEST(block_solvers, allocate_nothing) {
    { // the counter works
        counting = true;
        ::operator delete(::operator new(8));
        counting = false;
        ASSERT_EQ(allocations, 1);
    }
    random_data random{20260351};
    int calls = 0;
    for_each_variant([&](block_kind kind, int P, int D) {
        for (const int N : {1, 3, 40}) {
            const block_problem problem = random_blocks(random, kind, N, P, D);
            fenced_array x{problem.b.size()}, y{(std::size_t(N) + 1) * std::size_t(std::max(D, 1))};
            allocations = 0;
            counting = true;
            const int status = call_block_solver(problem, problem.A.data(), x.data(), y.data());
            counting = false;
            EXPECT_EQ(status, QUENTA_SOLVED) << problem.text();
            EXPECT_EQ(allocations, 0) << problem.text();
            ++calls;
        }
    });
    EXPECT_EQ(calls, 4 * 45 * 3);
}

TEST(limits_and_settings, allocate_nothing) {
    int settings[336], sum = 0;
    allocations = 0;
    counting = true;
    quenta_get_supported_settings(settings);
    for (const auto limit : {quenta_have_lapack, quenta_max_coll_params, function_solve_max_p, function_solve_max_d,
                             quenta_num_supported_settings})
        sum += limit();
    counting = false;
    EXPECT_EQ(allocations, 0);
    EXPECT_EQ(sum, 0 + 5 + 5 + 8 + 56);
}

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
struct solve_on_thread {
    const block_problem& problem;
    block_answer& answer;
};

void* solve(void* argument) {
    auto& [problem, answer] = *static_cast<solve_on_thread*>(argument);
    answer.status = call_block_solver(problem, problem.A.data(), answer.x.data(), answer.y.data());
    return nullptr;
}

TEST(block_solvers, use_no_more_stack_than_the_header_states) {
    constexpr std::size_t promised = 32 * 1024, used_by_the_thread = 16 * 1024;
    random_data random{20260352};
    int calls = 0;
    for (const block_kind kind : block_kinds)
        for (const auto& [P, D] : {std::pair{1, 0}, {1, 8}, {5, 0}, {5, 8}, {4, 7}}) {
            const block_problem problem = random_blocks(random, kind, 3, P, D);
            block_answer answer = call_block_solver(problem); // resolves the symbol before the measurement
            answer.status = -1;
            solve_on_thread task{problem, answer};
            painted_stack stack{1 << 20};
            stack.run(solve, &task);
            EXPECT_EQ(answer.status, QUENTA_SOLVED);
            EXPECT_GT(stack.used(), std::size_t{256});
            EXPECT_LT(stack.used(), promised + used_by_the_thread) << problem.text();
            ++calls;
        }
    EXPECT_EQ(calls, 20);
}
#endif

} // namespace

} // namespace quenta_tests
