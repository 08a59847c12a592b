// The block solvers take no memory but their frame, whose size is bounded.
#include "conformance/function_call.hpp"
#include "support/replaced_new.hpp"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cstdlib>
#include <new>
#include <thread>

namespace {

thread_local bool counting = false;
thread_local long allocations = 0;

} // namespace

void* quenta_tests::allocate_block(std::size_t bytes, std::size_t alignment) {
    allocations += counting;
    void* const block = std::aligned_alloc(alignment, (bytes + alignment) / alignment * alignment);
    if (block == nullptr)
        throw std::bad_alloc{};
    return block;
}

void quenta_tests::release_block(void* block) noexcept {
    std::free(block);
}

namespace quenta_tests {

namespace {

TEST(block_solvers, allocate_nothing) {
    { // the count is one of something
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

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
// Fills a thread's own stack with marks, and looks how far they have gone.
struct stack_use {
    static constexpr std::size_t size = 1 << 20, promised = 32 * 1024, of_the_thread = 16 * 1024;

    const block_problem& problem;
    block_answer& answer;

    static void* run(void* given) {
        stack_use& use = *static_cast<stack_use*>(given);
        use.answer.status =
            call_block_solver(use.problem, use.problem.A.data(), use.answer.x.data(), use.answer.y.data());
        return nullptr;
    }
};

TEST(block_solvers, keep_to_the_stack_that_they_are_said_to_take) {
    random_data random{20260352};
    int calls = 0;
    for (const block_kind kind : block_kinds)
        for (const auto& [P, D] : {std::pair{1, 0}, {1, 8}, {5, 0}, {5, 8}, {4, 7}}) {
            const block_problem problem = random_blocks(random, kind, 3, P, D);
            block_answer answer = call_block_solver(problem); // binds the symbol
            stack_use use{problem, answer};
            void* const stack = std::aligned_alloc(4096, stack_use::size);
            const auto first = static_cast<unsigned char*>(stack);
            std::fill(first, first + stack_use::size, 0xA5);
            pthread_attr_t attributes;
            pthread_attr_init(&attributes);
            ASSERT_EQ(pthread_attr_setstack(&attributes, stack, stack_use::size), 0);
            pthread_t thread;
            ASSERT_EQ(pthread_create(&thread, &attributes, stack_use::run, &use), 0);
            pthread_join(thread, nullptr);
            pthread_attr_destroy(&attributes);
            EXPECT_EQ(answer.status, QUENTA_SOLVED);
            const auto deepest =
                std::find_if(first, first + stack_use::size, [](unsigned char c) { return c != 0xA5; });
            const std::size_t used = std::size_t(first + stack_use::size - deepest);
            EXPECT_GT(used, std::size_t{256});
            EXPECT_LT(used, stack_use::promised + stack_use::of_the_thread) << problem.text();
            std::free(stack);
            ++calls;
        }
    EXPECT_EQ(calls, 20);
}
#endif

} // namespace

} // namespace quenta_tests
