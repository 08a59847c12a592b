// Every array of a call, of the caller and of the library, lies next to pages that cannot be accessed: directly before
// such a page in one run, and directly after one in the other.
#include "conformance/function_call.hpp"
#include "conformance/sampled_bits.hpp"
#include "support/replaced_new.hpp"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <numeric>

namespace {

enum class place { anywhere, before_the_page, after_the_page };
thread_local place placed = place::anywhere;

struct guarded_block {
    void* block = nullptr;
    void* pages = nullptr;
    std::size_t bytes = 0;
};
std::array<guarded_block, 4096> guarded_blocks;
int blocks_made = 0;

[[noreturn]] void give_up(const char* why) {
    std::fprintf(stderr, "guard_pages: %s\n", why);
    std::abort();
}

void* allocate_guarded(std::size_t size, std::size_t alignment) {
    static const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
    const std::size_t usable = (size + page) / page * page; // whole pages, at least one byte
    guarded_block made{nullptr, nullptr, usable + 2 * page};
    made.pages = mmap(nullptr, made.bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (made.pages == MAP_FAILED)
        throw std::bad_alloc{};
    char* const first = static_cast<char*>(made.pages) + page;
    if (mprotect(first, usable, PROT_READ | PROT_WRITE) != 0)
        give_up("mprotect failed for the pages of a block");
    std::fill_n(first, usable, char(0x7F)); // 7F7F7F...: a large number that is visible in a result
    made.block = placed == place::after_the_page ? first : first + (usable - size) / alignment * alignment;
    const auto free_entry = std::find_if(guarded_blocks.begin(), guarded_blocks.end(),
                                         [](const guarded_block& each) { return each.block == nullptr; });
    if (free_entry == guarded_blocks.end())
        give_up("expected at most 4096 blocks at a time, got more");
    ++blocks_made;
    return (*free_entry = made).block;
}

} // namespace

void* quenta_tests::allocate_block(std::size_t size, std::size_t alignment) {
    // An array of doubles or ints ends directly before the page, so it may start at an address that 16 does not divide.
    if (placed != place::anywhere)
        return allocate_guarded(size, alignment == alignof(std::max_align_t) ? std::gcd(size, alignment) : alignment);
    void* const block = alignment <= alignof(std::max_align_t)
                            ? std::malloc(std::max<std::size_t>(size, 1))
                            : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    if (block == nullptr)
        throw std::bad_alloc{};
    return block;
}

void quenta_tests::release_block(void* block) noexcept {
    if (block == nullptr)
        return;
    const auto entry = std::find_if(guarded_blocks.begin(), guarded_blocks.end(),
                                    [=](const guarded_block& each) { return each.block == block; });
    if (entry == guarded_blocks.end())
        return std::free(block);
    munmap(entry->pages, entry->bytes);
    *entry = {};
}

namespace quenta_tests {

namespace {

class guard_pages : public ::testing::TestWithParam<place> {
protected:
    // The result of solve for a copy of the problem. All blocks that are allocated meanwhile are guarded.
    template <class problem_type, class solver_type>
    auto guarded(const problem_type& problem, const solver_type& solve) {
        struct in_place {
            in_place() {
                placed = GetParam();
                fenced_array::width = 0;
            }
            ~in_place() {
                placed = place::anywhere;
                fenced_array::width = 32;
            }
        } placed_in_this_scope;
        const problem_type copy = problem;
        return solve(copy);
    }
    void SetUp() override { blocks_made = 0; }
};

TEST_P(guard_pages, stop_a_read_outside_an_array) {
    const auto read_outside = [](const auto& array) {
        const volatile auto* const data = array.data();
        return GetParam() == place::before_the_page ? data[array.size()] : *(data - 1);
    };
    for (const std::size_t length : {1, 2, 3, 512, 1000}) {
        EXPECT_EXIT(guarded(std::vector<double>(length), read_outside), ::testing::KilledBySignal(SIGSEGV), "");
        EXPECT_EXIT(guarded(std::vector<int>(length), read_outside), ::testing::KilledBySignal(SIGSEGV), "");
    }
}

TEST_P(guard_pages, are_not_accessed_by_the_sample_based_solvers) {
    random_data random{20260371};
    int solved = 0;
    for (const sampled_solver& solver : every_solver)
        for (const int D : solver.solves_systems ? std::vector{1, 3, 8, 9} : std::vector{1})
            for (const int steps : {1, 66})
                for_each_row(steps, [&](std::size_t row, std::size_t N) {
                    const sampled_problem problem = random_problem(random, row, D, N);
                    if (!solver.accepts(problem.row()))
                        return;
                    SCOPED_TRACE(std::string{solver.name} + ", " + problem.text());
                    const sampled_answer answer = guarded(problem, [&](const sampled_problem& copy) {
                        const reference::setting with_its_list = copy.row();
                        return solver.solve(copy.data, copy.dt, with_its_list, 1);
                    });
                    expect_equal(reference_of(solver, problem), answer, true);
                    ++solved;
                });
    EXPECT_EQ(solved, 2 * ((4 * 4) * 56 + 4 * 56 - (2 * 4 + 2) * 3));
    EXPECT_GT(blocks_made, 10 * solved);
}

TEST_P(guard_pages, are_not_accessed_by_the_block_solvers) {
    random_data random{20260372};
    int solved = 0;
    for_each_variant([&](block_kind kind, int P, int D) {
        for (const int N : {1, 2, 7, 18}) {
            const block_problem problem = random_blocks(random, kind, N, P, D);
            const block_answer answer =
                guarded(problem, [](const block_problem& copy) { return call_block_solver(copy); });
            ASSERT_TRUE(matches_reference(problem, answer, block_reference(problem)));
            ++solved;
        }
    });
    EXPECT_EQ(solved, 4 * 5 * 9 * 4);
    EXPECT_GT(blocks_made, 4 * solved);
}

TEST_P(guard_pages, are_not_accessed_by_the_list_of_settings) {
    const std::vector<int> settings = guarded(std::vector<int>(336), [](std::vector<int> room) {
        quenta_get_supported_settings(room.data());
        return room;
    });
    EXPECT_EQ(settings[335], 4);
}

INSTANTIATE_TEST_SUITE_P(arrays, guard_pages, ::testing::Values(place::before_the_page, place::after_the_page),
                         [](const auto& instance) {
                             return instance.param == place::before_the_page ? "before_the_page" : "after_the_page";
                         });

} // namespace

} // namespace quenta_tests
