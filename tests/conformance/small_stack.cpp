// The largest variants of every solver run on a thread that has no more stack than the header says they take.
#include "conformance/every_solver.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace quenta_tests {

namespace {

constexpr std::size_t KiB = 1024;

// A stack with a page below it that nobody may touch: who needs more than there is dies at once.
class stack {
public:
    explicit stack(std::size_t size)
        : bytes{size}, page{std::size_t(sysconf(_SC_PAGESIZE))}, lowest{static_cast<unsigned char*>(mmap(
                                                                     nullptr, page + bytes, PROT_READ | PROT_WRITE,
                                                                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0))} {
        EXPECT_NE(static_cast<void*>(lowest), MAP_FAILED);
        std::fill_n(lowest, page + bytes, paint);
        EXPECT_EQ(mprotect(lowest, page, PROT_NONE), 0);
    }
    stack(const stack&) = delete;
    stack& operator=(const stack&) = delete;
    ~stack() { munmap(lowest, page + bytes); }

    // Runs task(argument) on a thread that has this stack, to its end.
    void run(void* (*task)(void*), void* argument) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        ASSERT_EQ(pthread_attr_setstack(&attributes, lowest + page, bytes), 0);
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, &attributes, task, argument), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
    }

    // From the top down to the last byte that has lost its paint.
    std::size_t used() const {
        const unsigned char* const first = lowest + page;
        return bytes -
               std::size_t(std::find_if(first, first + bytes, [](unsigned char b) { return b != paint; }) - first);
    }

private:
    static constexpr unsigned char paint = 0xA5;
    std::size_t bytes, page;
    unsigned char* lowest;
};

// The solve, with its outputs ready before.
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

TEST_P(small_stack, is_enough_for_the_largest_variants) {
    const sampled_solver& solver = GetParam();
    int solved = 0;
    std::size_t most = 0;
    for (const reference::setting& row : reference::settings()) {
        if (!solver.suits(row))
            continue;
        for (const int D : solver.solves_systems ? std::vector{1, 7, 8, 9} : std::vector{1}) {
            // With steps in which the history takes the path of the transform.
            const system_samples data{D, 70 * row.m * row.m + 1};
            stack stack{std::size_t(solver.stack_KiB) * KiB};
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
