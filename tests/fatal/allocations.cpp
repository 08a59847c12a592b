// What a solve allocates, when, and what happens if an allocation fails. This program counts and records all
// allocations, and makes them fail on demand. It also counts the pushes into a history, to know the current step: the
// linker redirects the calls of ToeplitzHistory::push here.
#include "quenta_solvers/calling_threads_state.hpp"
#include "quenta_solvers/quenta_native.h"
#include "reference/settings.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"
#include "support/replaced_new.hpp"
#include "toeplitz_history/toeplitz_history.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int before_the_first_step = 0;

struct allocation {
    std::size_t bytes;
    int pushes;     // started so far
    bool in_a_push; // false between two of them
};

// The allocations of one thread while they are recorded, and the one that fails.
struct allocation_record {
    long fails_at = -1; // the number of the allocation that fails
    long count = 0;
    int pushes = before_the_first_step;
    bool in_a_push = false;
    std::array<allocation, 256> allocations{};
    long bytes = 0, most_bytes = 0; // allocated by this thread and not released

    std::span<const allocation> made() const { return std::span{allocations}.first(std::size_t(count)); }
};

std::atomic<long> live_blocks{0};
thread_local allocation_record* record = nullptr;

// Records the allocations of the calling thread within a scope.
struct recording {
    explicit recording(allocation_record& into) { record = &into; }
    ~recording() { record = nullptr; }
    recording(const recording&) = delete;
    recording& operator=(const recording&) = delete;
};

void note_bytes(long more) {
    if (record == nullptr)
        return;
    record->bytes += more;
    record->most_bytes = std::max(record->most_bytes, record->bytes);
}

} // namespace

void* quenta_tests::allocate_block(std::size_t bytes, std::size_t alignment) {
    if (record != nullptr) {
        const long number = record->count++;
        if (number == record->fails_at)
            throw std::bad_alloc{};
        if (number < long(record->allocations.size()))
            record->allocations[std::size_t(number)] = {bytes, record->pushes, record->in_a_push};
    }
    void* const block = heap_block(bytes, alignment);
    ++live_blocks;
    note_bytes(long(size_of_heap_block(block)));
    return block;
}

void quenta_tests::release_block(void* block) noexcept {
    if (block == nullptr)
        return;
    --live_blocks;
    note_bytes(-long(size_of_heap_block(block)));
    release_heap_block(block);
}

extern "C" {
// The original push, and the function that is called instead.
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

enum class kind {
    first,
    first_discontinuous,
    second,
    second_system,
    integro_differential,
    integro_differential_system
};

// A problem and its outputs. They are allocated before the call, so that only the library allocates during it.
// kind::first is the continuous form; with D = 1 it calls quenta_solve_vie1.
class solve {
public:
    solve(const reference::setting& setting, int step_count, kind solved_kind = kind::second, int dimension = 1)
        : equation{solved_kind}, D{dimension}, row{setting}, count{int(row.indices.size())}, steps{step_count} {
        quenta_tests::random_data random{std::uint64_t(steps)};
        N = steps * row.m * row.m + 1;
        const std::size_t length = std::size_t(N * D);
        g = random.uniform(length);
        K = random.uniform(length * std::size_t(D));
        a = random.uniform(K.size());
        out.assign(length, untouched_value);
        coeffs.assign(std::size_t(steps * (count + 1) * D), untouched_value);
    }

    int call() {
        const int* const list = row.indices.data();
        switch (equation) {
        case kind::first:
            if (D == 1)
                return quenta_solve_vie1(g.data(), K.data(), N, 1.0, 0.01, row.m, list, count, 1, 1, out.data(),
                                         coeffs.data(), &n_steps);
            return quenta_solve_vie1_vec(g.data(), K.data(), N, D, g.data(), 0.01, row.m, list, count, 1, 1, out.data(),
                                         coeffs.data(), &n_steps);
        case kind::first_discontinuous:
            return quenta_solve_vie1_vec(g.data(), K.data(), N, D, g.data(), 0.01, row.m, list, count, 1, 0, out.data(),
                                         coeffs.data(), &n_steps);
        case kind::second:
            return quenta_solve_vie2(g.data(), K.data(), N, 0.01, row.m, list, count, 1, out.data(), coeffs.data(),
                                     &n_steps);
        case kind::second_system:
            return quenta_solve_vie2_vec(g.data(), K.data(), N, D, 0.01, row.m, list, count, 1, out.data(),
                                         coeffs.data(), &n_steps);
        case kind::integro_differential:
            return quenta_solve_vide(g.data(), K.data(), a.data(), N, 1.0, 0.01, row.m, list, count, 1, out.data(),
                                     coeffs.data(), &n_steps);
        case kind::integro_differential_system:
            return quenta_solve_vide_vec(g.data(), K.data(), a.data(), N, D, g.data(), 0.01, row.m, list, count, 1,
                                         out.data(), coeffs.data(), &n_steps);
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

    bool is_integro_differential() const {
        return equation == kind::integro_differential || equation == kind::integro_differential_system;
    }

    // The size of a block of the history.
    std::size_t rows() const { return std::size_t(count * D); }
    std::size_t columns() const { return is_integro_differential() ? rows() + std::size_t(D) : rows(); }

    // What a solver stores for each step, in doubles: the unknowns and the carried value. The history stores a block of
    // the kernel, a sum, and the pushed values.
    std::size_t doubles_of_a_step() const {
        const std::size_t p = rows(), q = columns(), carried = equation == kind::first ? std::size_t(D) : 0;
        return q + carried + p * q + p + q;
    }

    // A second copy of the first blocks of the kernel: of a quarter of them, at least 1 and at most 32, in columns
    // padded to 4 rows or to a multiple of 8. A single step needs none.
    std::size_t doubles_of_near_blocks() const {
        const std::size_t p = rows(), q = columns(), near = std::size_t(std::clamp(steps / 4, 1, 32));
        return steps < 2 || (p == 1 && q == 1) ? 0 : near * q * (p <= 4 ? 4 : (p + 7) / 8 * 8);
    }

    // The bound in the header on the memory of a call, in doubles: the part for each step, and the rest.
    std::size_t promised_for_a_step() const {
        const std::size_t n = rows(), d = std::size_t(D);
        if (is_integro_differential())
            return 3 * n * (n + d) + 11 * n + 6 * d + 8;
        return 3 * n * n + 11 * n + 8 + (equation == kind::first ? d : 0);
    }
    std::size_t promised_for_the_call() const {
        const std::size_t n = rows(), d = std::size_t(D);
        return equation == kind::integro_differential ? 1700
               : is_integro_differential()            ? 34 * (n + d) * (n + 7)
                                                      : 32 * n * (n + 7);
    }

    kind equation;
    int D;
    reference::setting row;
    int count;
    int steps;
    int N;
    std::vector<double> g, K, a, out, coeffs;
    int n_steps = -1;

private:
    static constexpr double untouched_value = -0x1.23456789p77;
};

const reference::setting& row_at(std::size_t row) {
    return reference::settings()[row];
}

struct allocating_solve {
    std::size_t row;
    kind equation;
    int D = 1;
};

constexpr allocating_solve allocating_solves[] = {
    {0, kind::second},
    {4, kind::second},
    {8, kind::second},
    {9, kind::second},
    {24, kind::second},
    {55, kind::second},
    {4, kind::second_system},
    {8, kind::second_system, 2},
    {55, kind::second_system, 8},
    {8, kind::second_system, 9},
    {4, kind::first},
    {8, kind::first, 2},
    {8, kind::first, 9},
    {8, kind::first_discontinuous, 1},
    {8, kind::first_discontinuous, 9},
    {0, kind::integro_differential},
    {8, kind::integro_differential},
    {55, kind::integro_differential},
    {4, kind::integro_differential_system},
    {8, kind::integro_differential_system, 2},
    {55, kind::integro_differential_system, 8},
    {8, kind::integro_differential_system, 9},
};

TEST(failing_allocation, makes_the_export_throw_bad_alloc_without_a_leak_and_the_next_call_works) {
    ASSERT_EQ(quenta_rt_init(), 1);
    for (const auto [row, equation, D] : allocating_solves) {
        solve expected{row_at(row), 300, equation, D};
        EXPECT_EQ(expected.call(), QUENTA_SOLVED); // the first solve of a process selects the instruction sets
        allocation_record complete;
        // On a new thread, so that the allocations of the attachment are included.
        std::thread{[&] {
            EXPECT_EQ(expected.call_recorded(complete), QUENTA_SOLVED);
        }}.join();
        ASSERT_GT(complete.count, 5) << "expected allocations for the arrays of the history";

        for (long number = 0; number < complete.count; ++number) {
            SCOPED_TRACE("row " + std::to_string(row) + ", D = " + std::to_string(D) + ", allocation " +
                         std::to_string(number));
            const long live_before = live_blocks;
            const int attached_before = attached_threads.size();
            std::thread{[&, row = row, equation = equation, D = D] {
                solve attempt{row_at(row), 300, equation, D};
                allocation_record failing{.fails_at = number};
                bool failed = false;
                try {
                    attempt.call_recorded(failing);
                } catch (const std::bad_alloc&) {
                    failed = true;
                }
                EXPECT_TRUE(failed);
                EXPECT_EQ(failing.count, number + 1);
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

TEST(failing_allocation, leaves_a_thread_that_only_collects_unattached) {
    ASSERT_EQ(quenta_rt_init(), 1);
    const auto collect = [](allocation_record& into) {
        const recording scope{into};
        quenta_gc_collect();
    };
    allocation_record complete;
    std::thread{[&] {
        collect(complete);
    }}.join();
    ASSERT_GT(complete.count, 0) << "expected an allocation for the record of the thread";
    for (long number = 0; number < complete.count; ++number) {
        const long live_before = live_blocks;
        const int attached_before = attached_threads.size();
        std::thread{[&] {
            allocation_record failing{.fails_at = number};
            EXPECT_THROW(collect(failing), std::bad_alloc);
            EXPECT_EQ(attached_threads.size(), attached_before);
            quenta_gc_collect();
            EXPECT_EQ(attached_threads.size(), attached_before + 1);
        }}.join();
        EXPECT_EQ(live_blocks, live_before);
        EXPECT_EQ(attached_threads.size(), attached_before);
    }
}

TEST(memory, does_not_leak_in_a_singular_or_refused_call) {
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

TEST(memory, does_not_leak_in_a_call_with_inconsistent_arguments) {
    ASSERT_EQ(quenta_rt_init(), 1);
    for (const auto [row, equation, D] : allocating_solves) {
        SCOPED_TRACE("row " + std::to_string(row) + ", D = " + std::to_string(D));
        solve ordinary{row_at(row), 100, equation, D};
        EXPECT_EQ(ordinary.call(), QUENTA_SOLVED);
        ordinary.n_steps = -1;
        std::fill(ordinary.out.begin(), ordinary.out.end(), 0.0);
        const auto expect_failure = [&] {
            const long live_before = live_blocks;
            EXPECT_THROW(ordinary.call(), std::exception);
            EXPECT_EQ(live_blocks, live_before);
            EXPECT_EQ(ordinary.n_steps, -1);
        };
        std::vector<double> coeffs;
        coeffs.swap(ordinary.coeffs);
        expect_failure(); // after the last step
        coeffs.swap(ordinary.coeffs);
        for (const int N : {0, -1}) { // before the first step
            ordinary.N = N;
            expect_failure();
        }
    }
}

TEST(failing_allocation, during_the_start_leaves_the_library_not_started) {
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

// The arrays of doubles that one push may allocate, given by their lengths.
class expected_arrays {
public:
    expected_arrays(std::size_t steps, std::size_t rows, std::size_t columns)
        : n_steps{steps}, block_rows{rows}, block_columns{columns}, budget{2 * steps * rows * columns} {}

    std::vector<std::size_t> of_push(std::size_t number) {
        std::vector<std::size_t> arrays;
        const std::size_t block = number & ~(number - 1), transform = 2 * block;
        const std::size_t entries_of_a_block = block_rows * block_columns;
        if (number + 32 > n_steps || block < 32)
            return arrays;
        const auto pair_of = [&](std::size_t length) {
            arrays.insert(arrays.end(), 2, length);
        };
        if (transform > largest_transform) { // scratch for sources, products and entries of the kernel
            largest_transform = transform;
            pair_of(transform * block_columns);
            pair_of(transform * block_rows);
            std::size_t entries = 1;
            // The cached transform of the kernel, if it fits. It is computed for a few entries at a time.
            if (budget >= 2 * entries_of_a_block * transform) {
                budget -= 2 * entries_of_a_block * transform;
                pair_of(entries_of_a_block * transform);
                entries = std::min<std::size_t>(entries_of_a_block, 8);
            }
            if (entries * transform > entry_scratch) {
                entry_scratch = entries * transform;
                pair_of(entry_scratch);
            }
        }
        return arrays;
    }

private:
    std::size_t n_steps, block_rows, block_columns, budget;
    std::size_t largest_transform = 0, entry_scratch = 0;
};

// The lists of the caches are smaller than any array of a transform of 64 points.
constexpr std::size_t largest_list = 64 * sizeof(double) - 1;

constexpr int recorded_steps[] = {1, 2, 31, 32, 33, 63, 64, 65, 96, 100, 127, 128, 300, 1000};

// Calls visit(problem, record of its solve) for all problems and all numbers of steps.
template <class visitor>
void for_each_record(const visitor& visit) {
    ASSERT_EQ(quenta_rt_init(), 1);
    solve{row_at(9), 100, kind::second_system, 9}.call(); // attaches this thread and selects the instruction sets
    for (const auto [row, equation, D] : allocating_solves)
        for (const int steps : recorded_steps) {
            SCOPED_TRACE("row " + std::to_string(row) + ", D = " + std::to_string(D) + ", " + std::to_string(steps) +
                         " steps");
            solve problem{row_at(row), steps, equation, D};
            allocation_record recorded;
            ASSERT_EQ(problem.call_recorded(recorded), QUENTA_SOLVED);
            ASSERT_EQ(recorded.pushes, steps) << "expected one recorded push per step";
            ASSERT_LE(recorded.count, long(recorded.allocations.size()));
            visit(problem, recorded);
        }
}

TEST(allocations, during_the_steps_are_only_scratch_and_caches_of_the_history) {
    int in_pushes = 0;
    for_each_record([&](const solve& problem, const allocation_record& recorded) {
        for (const allocation& each : recorded.made())
            EXPECT_TRUE(each.in_a_push || each.pushes == before_the_first_step)
                << each.bytes << " bytes after push " << each.pushes;
        const std::size_t steps = std::size_t(problem.steps);
        expected_arrays expected{steps, problem.rows(), problem.columns()};
        for (std::size_t push = 1; push <= steps; ++push) {
            std::vector<std::size_t> allowed = expected.of_push(push);
            int lists_allowed = allowed.empty() ? 0 : 3;
            for (const allocation& each : recorded.made()) {
                if (!each.in_a_push || std::size_t(each.pushes) != push)
                    continue;
                ++in_pushes;
                if (each.bytes <= largest_list) {
                    EXPECT_GT(lists_allowed--, 0) << each.bytes << " bytes in push " << push;
                    continue;
                }
                const auto found = std::find(allowed.begin(), allowed.end(), each.bytes / sizeof(double));
                ASSERT_NE(found, allowed.end()) << each.bytes << " bytes in push " << push;
                allowed.erase(found);
            }
        }
    });
    EXPECT_GT(in_pushes, 100);
}

TEST(allocations, before_the_first_step_grow_only_by_what_is_stored_for_each_step) {
    long fixed_part = 0; // does not depend on the number of steps
    int compared = 0;
    for_each_record([&](const solve& problem, const allocation_record& recorded) {
        const std::size_t stored =
            std::size_t(problem.steps) * problem.doubles_of_a_step() + problem.doubles_of_near_blocks();
        long bytes = -long(stored * sizeof(double));
        for (const allocation& each : recorded.made())
            if (each.pushes == before_the_first_step)
                bytes += long(each.bytes);
        if (problem.steps == recorded_steps[0])
            fixed_part = bytes;
        EXPECT_EQ(bytes, fixed_part);
        // The variants of fixed dimensions have the blocks of a step on the stack.
        const auto most = long((problem.rows() + std::size_t(problem.D)) * sizeof(double));
        if (problem.D <= 8) {
            EXPECT_LE(bytes, most);
        } else {
            EXPECT_GT(bytes, most);
        }
        ++compared;
    });
    EXPECT_EQ(compared, int(std::size(allocating_solves) * std::size(recorded_steps)));
}

TEST(allocations, stay_below_what_the_header_promises) {
    int compared = 0;
    for_each_record([&](const solve& problem, const allocation_record& recorded) {
        const std::size_t promised =
            std::size_t(problem.steps) * problem.promised_for_a_step() + problem.promised_for_the_call();
        EXPECT_LE(recorded.most_bytes, long(promised * sizeof(double)));
        EXPECT_GT(recorded.most_bytes, 0);
        ++compared;
    });
    EXPECT_EQ(compared, int(std::size(allocating_solves) * std::size(recorded_steps)));
}

} // namespace

} // namespace quenta
