// What a solve allocates, when, and what happens when it cannot. All allocations of this program are counted, recorded
// and made to fail on demand; and every push into a history is noticed, so that one knows where a march is (the linker
// sends the calls of ToeplitzHistory::push here).
#include "quenta_solvers/calling_threads_state.hpp"
#include "quenta_solvers/quenta_native.h"
#include "reference/settings.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"
#include "toeplitz_history/toeplitz_history.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int before_the_march = 0;

struct allocation {
    std::size_t bytes;
    int pushes;     // begun so far
    bool in_a_push; // or between two of them
};

// What the calling thread does with its allocations while a record is under way.
struct allocation_record {
    long fails_at = -1; // the number of the allocation that fails
    long count = 0;
    int pushes = before_the_march;
    bool in_a_push = false;
    std::array<allocation, 256> allocations{};
};

std::atomic<long> live_blocks{0};
thread_local allocation_record* record = nullptr;

// Records the allocations of the calling thread for the length of a scope.
struct recording {
    explicit recording(allocation_record& into) { record = &into; }
    ~recording() { record = nullptr; }
    recording(const recording&) = delete;
    recording& operator=(const recording&) = delete;
};

void* allocate(std::size_t bytes, std::size_t alignment) {
    if (record != nullptr) {
        const long number = record->count++;
        if (number == record->fails_at)
            throw std::bad_alloc{};
        if (number < long(record->allocations.size()))
            record->allocations[std::size_t(number)] = {bytes, record->pushes, record->in_a_push};
    }
    void* const block = std::aligned_alloc(alignment, (bytes + alignment) / alignment * alignment);
    if (block == nullptr)
        throw std::bad_alloc{};
    ++live_blocks;
    return block;
}

void release(void* block) noexcept {
    if (block != nullptr)
        --live_blocks;
    std::free(block);
}

} // namespace

void* operator new(std::size_t bytes) {
    return allocate(bytes, alignof(std::max_align_t));
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return allocate(bytes, std::size_t(alignment));
}
void* operator new[](std::size_t bytes) {
    return allocate(bytes, alignof(std::max_align_t));
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}

extern "C" {
// The push itself, and what is called in its place.
void __real__ZN6quenta15ToeplitzHistory4pushENS_4viewIKdEE(quenta::ToeplitzHistory*, quenta::view<const double>);

void __wrap__ZN6quenta15ToeplitzHistory4pushENS_4viewIKdEE(quenta::ToeplitzHistory* history,
                                                           quenta::view<const double> values) {
    if (record != nullptr) {
        ++record->pushes;
        record->in_a_push = true;
    }
    __real__ZN6quenta15ToeplitzHistory4pushENS_4viewIKdEE(history, values);
    if (record != nullptr)
        record->in_a_push = false;
}
}

namespace quenta {

namespace {

enum class kind { first, second, second_system };

// A problem with its outputs, which are all there before the call: nothing here allocates during it. The first kind is
// solved in the continuous form, which needs more.
class solve {
public:
    solve(const reference::setting& setting, int steps, kind solved_kind = kind::second, int dimension = 1)
        : equation{solved_kind}, D{dimension}, row{setting}, count{int(row.indices.size())} {
        quenta_tests::random_data random{std::uint64_t(steps)};
        N = steps * row.m * row.m + 1;
        const std::size_t length = std::size_t(N * D);
        g = random.uniform(length);
        K = random.uniform(length * std::size_t(D));
        out.assign(length, untouched_value);
        coeffs.assign(std::size_t(steps * (count + 1) * D), untouched_value);
    }

    int call() {
        const int* const list = row.indices.data();
        switch (equation) {
        case kind::first:
            return quenta_solve_vie1_vec(g.data(), K.data(), N, D, g.data(), 0.01, row.m, list, count, 1, 1, out.data(),
                                         coeffs.data(), &n_steps);
        case kind::second:
            return quenta_solve_vie2(g.data(), K.data(), N, 0.01, row.m, list, count, 1, out.data(), coeffs.data(),
                                     &n_steps);
        case kind::second_system:
            return quenta_solve_vie2_vec(g.data(), K.data(), N, D, 0.01, row.m, list, count, 1, out.data(),
                                         coeffs.data(), &n_steps);
        }
        return -1;
    }
    int call_recorded(allocation_record& into) {
        const recording scope{into};
        return call();
    }

    bool untouched() const {
        const auto is_untouched = [](double value) {
            return value == untouched_value;
        };
        return n_steps == -1 && std::all_of(out.begin(), out.end(), is_untouched) &&
               std::all_of(coeffs.begin(), coeffs.end(), is_untouched);
    }

    // Of a block of the history.
    std::size_t rows() const { return std::size_t(count * D); }
    std::size_t columns() const { return rows(); }

    // What a solver keeps of every step, in doubles: the unknowns, and the value that is carried to the next.
    std::size_t solution_doubles() const {
        const std::size_t steps = std::size_t((N - 1) / (row.m * row.m));
        return steps * rows() + (equation == kind::first ? (steps + 1) * D : 0);
    }
    // What it has for the step under way. Small dimensions have that on the stack.
    std::size_t step_doubles() const {
        const std::size_t n_sys = rows();
        switch (equation) {
        case kind::first:
            return n_sys * D + 2 * n_sys * n_sys + 2 * n_sys;
        case kind::second:
            return 0;
        case kind::second_system:
            return D > 8 ? 2 * n_sys * n_sys + 2 * n_sys : 0;
        }
        return 0;
    }

    kind equation;
    int D;
    reference::setting row;
    int count;
    int N;
    std::vector<double> g, K, out, coeffs;
    int n_steps = -1;

private:
    static constexpr double untouched_value = -0x1.23456789p77;
};

const reference::setting& row_at(std::size_t row) {
    return reference::settings()[row];
}

struct allocating_solve {
    std::size_t row;
    kind equation = kind::second;
    int D = 1;
};

TEST(failing_allocation, leaves_the_export_as_bad_alloc_without_a_leak_and_the_next_call_works) {
    ASSERT_EQ(quenta_rt_init(), 1);
    for (const auto [row, equation, D] : {allocating_solve{0},
                                          {8},
                                          {9},
                                          {55},
                                          {8, kind::first, 2},
                                          {8, kind::first, 9},
                                          {8, kind::second_system, 2},
                                          {8, kind::second_system, 9}}) {
        solve expected{row_at(row), 300, equation, D};
        allocation_record complete;
        // On a thread of its own, so that the attachment is among the allocations.
        std::thread{[&] {
            EXPECT_EQ(expected.call_recorded(complete), QUENTA_SOLVED);
        }}.join();
        ASSERT_GT(complete.count, 5) << "a solve of this length needs the arrays of its history";

        for (long k = 0; k < complete.count; ++k) {
            SCOPED_TRACE("row " + std::to_string(row) + ", D = " + std::to_string(D) + ", allocation " +
                         std::to_string(k));
            const long live_before = live_blocks;
            const int attached_before = attached_threads.size();
            std::thread{[&, row = row, equation = equation, D = D] {
                solve attempt{row_at(row), 300, equation, D};
                allocation_record failing{.fails_at = k};
                bool failed = false;
                try {
                    attempt.call_recorded(failing);
                } catch (const std::bad_alloc&) {
                    failed = true;
                }
                EXPECT_TRUE(failed);
                EXPECT_EQ(failing.count, k + 1);
                EXPECT_TRUE(attempt.untouched());

                EXPECT_EQ(attempt.call(), QUENTA_SOLVED);
                EXPECT_EQ(attempt.n_steps, 300);
                EXPECT_TRUE(quenta_tests::equal_bits(expected.out, attempt.out));
                quenta_gc_collect();
            }}.join();
            EXPECT_EQ(live_blocks, live_before);
            EXPECT_EQ(attached_threads.size(), attached_before);
        }
    }
}

TEST(nothing_is_left_behind, by_a_singular_or_refused_call) {
    ASSERT_EQ(quenta_rt_init(), 1);
    solve singular{row_at(1), 100};
    std::fill(singular.K.begin(), singular.K.end(), 100.0); // dt * K[0] = 1
    solve unsupported{row_at(1), 100};
    unsupported.row.m = 5;
    EXPECT_EQ(unsupported.call(), QUENTA_UNSUPPORTED_SETTING); // attaches this thread
    const long live_before = live_blocks;
    EXPECT_EQ(singular.call(), QUENTA_SINGULAR_BLOCK);
    EXPECT_EQ(unsupported.call(), QUENTA_UNSUPPORTED_SETTING);
    EXPECT_EQ(live_blocks, live_before);
}

TEST(nothing_is_left_behind, by_a_contradictory_call) {
    ASSERT_EQ(quenta_rt_init(), 1);
    solve ordinary{row_at(9), 100};
    EXPECT_EQ(ordinary.call(), QUENTA_SOLVED);
    const long live_before = live_blocks;
    int caught = 0;
    for (const int N : {0, -1, 4}) {
        try {
            quenta_solve_vie2(ordinary.g.data(), ordinary.K.data(), N, 0.01, 2, ordinary.row.indices.data(), 3, 0,
                              ordinary.out.data(), nullptr, &ordinary.n_steps);
        } catch (const std::exception&) {
            ++caught;
        }
        EXPECT_EQ(live_blocks, live_before) << "N = " << N;
    }
    EXPECT_EQ(caught, 3);
}

TEST(failing_allocation, leaves_a_library_that_has_not_started) {
    ASSERT_EQ(quenta_rt_init(), 1);
    std::mutex* const lock = library_lock;
    library_lock = nullptr;
    allocation_record failing{.fails_at = 0};
    bool failed = false;
    try {
        const recording scope{failing};
        quenta_rt_init();
    } catch (const std::bad_alloc&) {
        failed = true;
    }
    EXPECT_TRUE(failed);
    EXPECT_EQ(library_lock, nullptr);
    EXPECT_EQ(quenta_rt_init(), 1);
    EXPECT_NE(library_lock, nullptr);
    delete library_lock;
    library_lock = lock;
}

// ---- When a solve allocates ----

// The arrays of doubles that one push of a history may ask for, by their length.
class expected_arrays {
public:
    expected_arrays(std::size_t steps, std::size_t rows, std::size_t columns)
        : n{steps}, p{rows}, q{columns}, budget{2 * steps * rows * columns} {}

    std::vector<std::size_t> of_push(std::size_t i) {
        std::vector<std::size_t> arrays;
        const std::size_t s = i & ~(i - 1), m = 2 * s;
        if (i + 32 > n || s < 32)
            return arrays;
        const auto pair_of = [&](std::size_t length) {
            arrays.insert(arrays.end(), 2, length);
        };
        if (m > largest_transform) { // the scratch: sources, one kernel entry, products
            largest_transform = m;
            pair_of(m * q);
            pair_of(m);
            pair_of(m * p);
            if (budget >= 2 * p * q * m) { // the transformed kernel of this size
                budget -= 2 * p * q * m;
                pair_of(p * q * m);
            }
        }
        return arrays;
    }

private:
    std::size_t n, p, q, budget;
    std::size_t largest_transform = 0;
};

// Smaller than any array of a transform of 64 points: the lists of the caches.
constexpr std::size_t largest_list = 64 * sizeof(double) - 1;

TEST(allocations, happen_before_the_march_and_in_it_only_for_scratch_and_caches_of_the_history) {
    ASSERT_EQ(quenta_rt_init(), 1);
    solve{row_at(0), 1}.call(); // attaches this thread
    int in_pushes = 0;
    for (const auto [row, equation, D] : {allocating_solve{0},
                                          {4},
                                          {8},
                                          {9},
                                          {24},
                                          {55},
                                          {4, kind::first},
                                          {8, kind::first, 2},
                                          {8, kind::first, 9},
                                          {4, kind::second_system},
                                          {55, kind::second_system, 8},
                                          {8, kind::second_system, 9}})
        for (const int steps : {1, 2, 31, 32, 33, 63, 64, 65, 96, 100, 127, 128, 300, 1000}) {
            SCOPED_TRACE("row " + std::to_string(row) + ", D = " + std::to_string(D) + ", " + std::to_string(steps) +
                         " steps");
            solve problem{row_at(row), steps, equation, D};
            allocation_record seen;
            ASSERT_EQ(problem.call_recorded(seen), QUENTA_SOLVED);
            ASSERT_EQ(seen.pushes, steps) << "the test does not see the march";
            ASSERT_LE(seen.count, long(seen.allocations.size()));
            const std::span<const allocation> all = std::span{seen.allocations}.first(std::size_t(seen.count));

            // The solution, and the history's kernel, sums and pushed values; the history's context is a few words. A
            // system has the arrays of a step, where they are not on the stack.
            const std::size_t n = std::size_t(steps), p = problem.rows(), q = problem.columns();
            const std::size_t allowed_before =
                problem.solution_doubles() + n * (p + q + p * q) + problem.step_doubles();
            std::size_t bytes_before = 0;
            for (const allocation& each : all) {
                if (each.pushes == before_the_march)
                    bytes_before += each.bytes;
                else
                    EXPECT_TRUE(each.in_a_push) << each.bytes << " bytes after push " << each.pushes;
            }
            EXPECT_LE(bytes_before, allowed_before * sizeof(double) + 128);

            expected_arrays expected{n, p, q};
            for (std::size_t i = 1; i <= n; ++i) {
                std::vector<std::size_t> allowed = expected.of_push(i);
                int lists_allowed = allowed.empty() ? 0 : 3;
                for (const allocation& each : all) {
                    if (!each.in_a_push || std::size_t(each.pushes) != i)
                        continue;
                    ++in_pushes;
                    if (each.bytes <= largest_list) {
                        EXPECT_GT(lists_allowed--, 0) << each.bytes << " bytes in push " << i;
                        continue;
                    }
                    const auto found = std::find(allowed.begin(), allowed.end(), each.bytes / sizeof(double));
                    ASSERT_NE(found, allowed.end()) << each.bytes << " bytes in push " << i;
                    allowed.erase(found);
                }
            }
        }
    EXPECT_GT(in_pushes, 100);
}

} // namespace

} // namespace quenta
