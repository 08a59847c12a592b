// What a solve allocates, when, and what happens when it cannot. All allocations of this program are counted, recorded
// and made to fail on demand; and every push into a history is noticed, so that one knows where a march is (the linker
// sends the calls of ToeplitzHistory::push here).
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
    long bytes = 0, most_bytes = 0; // not yet released, by this thread

    std::span<const allocation> made() const { return std::span{allocations}.first(std::size_t(count)); }
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

enum class kind { first, first_discontinuous, second, second_system, derivative, derivative_system };

// A problem with its outputs, which are all there before the call: nothing here allocates during it. The first kind is
// the continuous form, and of one component quenta_solve_vie1.
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
        case kind::derivative:
            return quenta_solve_vide(g.data(), K.data(), a.data(), N, 1.0, 0.01, row.m, list, count, 1, out.data(),
                                     coeffs.data(), &n_steps);
        case kind::derivative_system:
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

    bool has_derivative() const { return equation == kind::derivative || equation == kind::derivative_system; }

    // Of a block of the history.
    std::size_t rows() const { return std::size_t(count * D); }
    std::size_t columns() const { return has_derivative() ? rows() + std::size_t(D) : rows(); }

    // What a solver keeps of every step, in doubles: the unknowns, and the value that is carried to the next. The
    // history keeps a block of the kernel, a sum, and what was pushed.
    std::size_t doubles_of_a_step() const {
        const std::size_t p = rows(), q = columns(), carried = equation == kind::first ? std::size_t(D) : 0;
        return q + carried + p * q + p + q;
    }

    // A quarter of the kernel's blocks, up to 32 and one at least, are kept once more, in columns of 4 rows or a
    // multiple of 8. A single step reads no lag.
    std::size_t doubles_of_near_blocks() const {
        const std::size_t p = rows(), q = columns(), near = std::size_t(std::clamp(steps / 4, 1, 32));
        return steps < 2 || (p == 1 && q == 1) ? 0 : near * q * (p <= 4 ? 4 : (p + 7) / 8 * 8);
    }

    // What the header says that a call takes at most, in doubles: of every step, and beside.
    std::size_t promised_of_a_step() const {
        const std::size_t n = rows(), d = std::size_t(D);
        if (has_derivative())
            return 3 * n * (n + d) + 11 * n + 6 * d + 8;
        return 3 * n * n + 11 * n + 8 + (equation == kind::first ? d : 0);
    }
    std::size_t promised_beside() const {
        const std::size_t n = rows(), d = std::size_t(D);
        return equation == kind::derivative ? 1700 : has_derivative() ? 34 * (n + d) * (n + 7) : 32 * n * (n + 7);
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
    {0, kind::derivative},
    {8, kind::derivative},
    {55, kind::derivative},
    {4, kind::derivative_system},
    {8, kind::derivative_system, 2},
    {55, kind::derivative_system, 8},
    {8, kind::derivative_system, 9},
};

TEST(failing_allocation, leaves_the_export_as_bad_alloc_without_a_leak_and_the_next_call_works) {
    ASSERT_EQ(quenta_rt_init(), 1);
    for (const auto [row, equation, D] : allocating_solves) {
        solve expected{row_at(row), 300, equation, D};
        EXPECT_EQ(expected.call(), QUENTA_SOLVED); // the first of a process chooses the instruction sets
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
    ASSERT_GT(complete.count, 0) << "a thread is attached by a record";
    for (long k = 0; k < complete.count; ++k) {
        const long live_before = live_blocks;
        const int attached_before = attached_threads.size();
        std::thread{[&] {
            allocation_record failing{.fails_at = k};
            EXPECT_THROW(collect(failing), std::bad_alloc);
            EXPECT_EQ(attached_threads.size(), attached_before);
            quenta_gc_collect();
            EXPECT_EQ(attached_threads.size(), attached_before + 1);
        }}.join();
        EXPECT_EQ(live_blocks, live_before);
        EXPECT_EQ(attached_threads.size(), attached_before);
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
        expect_failure(); // after the march
        coeffs.swap(ordinary.coeffs);
        for (const int N : {0, -1}) { // before it
            ordinary.N = N;
            expect_failure();
        }
    }
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
        if (m > largest_transform) { // the scratch: sources, products, and entries of the kernel
            largest_transform = m;
            pair_of(m * q);
            pair_of(m * p);
            std::size_t entries = 1;
            if (budget >= 2 * p * q * m) { // the transformed kernel of this size, made of a few entries at a time
                budget -= 2 * p * q * m;
                pair_of(p * q * m);
                entries = std::min<std::size_t>(p * q, 8);
            }
            if (entries * m > entry_scratch) {
                entry_scratch = entries * m;
                pair_of(entry_scratch);
            }
        }
        return arrays;
    }

private:
    std::size_t n, p, q, budget;
    std::size_t largest_transform = 0, entry_scratch = 0;
};

// Smaller than any array of a transform of 64 points: the lists of the caches.
constexpr std::size_t largest_list = 64 * sizeof(double) - 1;

constexpr int recorded_steps[] = {1, 2, 31, 32, 33, 63, 64, 65, 96, 100, 127, 128, 300, 1000};

// Calls visit(problem, record of its solution) for all of them and all numbers of steps.
template <class visitor>
void for_each_record(const visitor& visit) {
    ASSERT_EQ(quenta_rt_init(), 1);
    solve{row_at(9), 100, kind::second_system, 9}.call(); // attaches this thread and chooses the instruction sets
    for (const auto [row, equation, D] : allocating_solves)
        for (const int steps : recorded_steps) {
            SCOPED_TRACE("row " + std::to_string(row) + ", D = " + std::to_string(D) + ", " + std::to_string(steps) +
                         " steps");
            solve problem{row_at(row), steps, equation, D};
            allocation_record seen;
            ASSERT_EQ(problem.call_recorded(seen), QUENTA_SOLVED);
            ASSERT_EQ(seen.pushes, steps) << "the test does not see the march";
            ASSERT_LE(seen.count, long(seen.allocations.size()));
            visit(problem, seen);
        }
}

TEST(allocations, of_a_march_are_scratch_and_caches_of_the_history) {
    int in_pushes = 0;
    for_each_record([&](const solve& problem, const allocation_record& seen) {
        for (const allocation& each : seen.made())
            EXPECT_TRUE(each.in_a_push || each.pushes == before_the_march)
                << each.bytes << " bytes after push " << each.pushes;
        const std::size_t n = std::size_t(problem.steps);
        expected_arrays expected{n, problem.rows(), problem.columns()};
        for (std::size_t i = 1; i <= n; ++i) {
            std::vector<std::size_t> allowed = expected.of_push(i);
            int lists_allowed = allowed.empty() ? 0 : 3;
            for (const allocation& each : seen.made()) {
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
    });
    EXPECT_GT(in_pushes, 100);
}

TEST(allocations, before_the_march_grow_by_what_is_kept_of_a_step_and_by_nothing_else) {
    long beside = 0; // of the present problem with the fewest steps
    int compared = 0;
    for_each_record([&](const solve& problem, const allocation_record& seen) {
        const std::size_t kept =
            std::size_t(problem.steps) * problem.doubles_of_a_step() + problem.doubles_of_near_blocks();
        long bytes = -long(kept * sizeof(double));
        for (const allocation& each : seen.made())
            if (each.pushes == before_the_march)
                bytes += long(each.bytes);
        if (problem.steps == recorded_steps[0])
            beside = bytes;
        EXPECT_EQ(bytes, beside);
        // The variants of fixed dimensions keep the blocks of a step on the stack.
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
    for_each_record([&](const solve& problem, const allocation_record& seen) {
        const std::size_t promised =
            std::size_t(problem.steps) * problem.promised_of_a_step() + problem.promised_beside();
        EXPECT_LE(seen.most_bytes, long(promised * sizeof(double)));
        EXPECT_GT(seen.most_bytes, 0);
        ++compared;
    });
    EXPECT_EQ(compared, int(std::size(allocating_solves) * std::size(recorded_steps)));
}

} // namespace

} // namespace quenta
