// Calling threads: concurrent first solves, concurrent solves and collections, one attachment per thread, and
// detachment at its end.
#include "conformance/function_call.hpp"
#include "conformance/sampled_bits.hpp"
#include "quenta_solvers/calling_threads_state.hpp"
#include "support/bits.hpp"
#include "support/latch.hpp"
#include "utility/platform.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#if !defined(_WIN32)
#include "support/forked_child.hpp"

#include <csignal>

#include <pthread.h>
#endif

namespace quenta {

namespace {

int solve_small_problem() {
    return quenta_tests::call_vie2(std::vector<double>(9, 1.0), std::vector<double>(9, 1.0), 0.01, {2, {0, 1, 2}})
        .status;
}

// This test is the first in the file, so that its solves are the first in the process. The first solve detects the
// instruction sets of the processor; here several threads do so at the same time.
TEST(first_solves, are_correct_on_several_threads_at_once) {
    using namespace quenta_tests;
    using quenta_tests::random_data; // the C library also declares this name
    ASSERT_EQ(quenta_rt_init(), 1);
    random_data random{20260315};
    std::vector<std::function<void()>> solves;
    for (const block_kind kind : block_kinds) {
        const block_problem problem = random_blocks(random, kind, 40, 2, 3);
        solves.push_back([=, expected = block_reference(problem)] {
            EXPECT_TRUE(matches_reference(problem, call_block_solver(problem), expected));
        });
    }
    for (const char* name : {"vie1_vec_discontinuous", "vie2_vec", "vide_vec"}) {
        const sampled_solver& solver = solver_named(name);
        const sampled_problem problem = random_problem(random, 1, 9, 401);
        solves.push_back([&solver, problem, expected = reference_of(solver, problem)] {
            expect_equal(expected, solver.solve(problem.data, problem.dt, problem.row(), 1), true);
        });
    }
    latch all_ready{solves.size()};
    std::vector<std::thread> started;
    for (const std::function<void()>& solve : solves)
        started.emplace_back([&] {
            all_ready.arrive_and_wait();
            for (int repetition = 0; repetition < 50; ++repetition)
                solve();
        });
    for (std::thread& thread : started)
        thread.join();
}

class threads : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(quenta_rt_init(), 1);
        ASSERT_NE(thread_exit_slot, platform::no_slot);
        ASSERT_EQ(solve_small_problem(), QUENTA_SOLVED); // attaches the main thread
        attached_before = attached_threads.size();
    }
    int attached_before = 0;
};

TEST_F(threads, concurrent_solves_are_correct_while_another_thread_collects) {
    // Every solver, with fixed and run-time dimensions, and with enough steps for every algorithm of the history.
    struct problem {
        const quenta_tests::sampled_solver& solver;
        quenta_tests::system_samples data;

        quenta_tests::sampled_answer solve() const { return solver.solve(data, 0.01, {2, {1, 2}}, 1); }
    };
    constexpr int steps = 130, solves_per_thread = 8;
    std::vector<problem> problems;
    for (const quenta_tests::sampled_solver& solver : quenta_tests::every_solver)
        for (const int D : solver.solves_systems ? std::vector{2, 3, 9, 12} : std::vector{1, 1, 1, 1}) {
            problems.push_back({solver, {D, 4 * steps + 1}});
            for (double& value : problems.back().data.g)
                value *= double(problems.size());
        }
    const std::size_t thread_count = problems.size();
    std::vector<quenta_tests::sampled_answer> expected;
    for (const problem& each : problems) {
        expected.push_back(each.solve());
        ASSERT_EQ(expected.back().status, QUENTA_SOLVED);
    }

    quenta_tests::latch all_ready{thread_count + 1};
    std::atomic<bool> solving{true};
    std::atomic<int> collections{0};
    std::vector<std::vector<quenta_tests::sampled_answer>> actual(thread_count);
    std::thread collector{[&] {
        all_ready.arrive_and_wait();
        do {
            quenta_gc_collect();
            ++collections;
        } while (solving);
    }};
    std::vector<std::thread> solvers;
    for (std::size_t number = 0; number < thread_count; ++number)
        solvers.emplace_back([&, number] {
            all_ready.arrive_and_wait();
            for (int repetition = 0; repetition < solves_per_thread; ++repetition)
                actual[number].push_back(problems[number].solve());
        });
    for (std::thread& solver : solvers)
        solver.join();
    solving = false;
    collector.join();

    EXPECT_GT(collections, 0);
    EXPECT_EQ(attached_threads.size(), attached_before);
    for (std::size_t number = 0; number < thread_count; ++number) {
        ASSERT_EQ(actual[number].size(), std::size_t(solves_per_thread));
        for (const quenta_tests::sampled_answer& each : actual[number]) {
            SCOPED_TRACE(problems[number].solver.name);
            EXPECT_EQ(each.status, QUENTA_SOLVED);
            EXPECT_EQ(each.n_steps, steps);
            EXPECT_TRUE(quenta_tests::equal_bits(expected[number].out.values(), each.out.values()));
            EXPECT_TRUE(quenta_tests::equal_bits(expected[number].coeffs.values(), each.coeffs.values()));
        }
    }
}

TEST_F(threads, a_second_start_creates_no_second_lock_or_slot) {
    const std::mutex* const lock = library_lock;
    const std::uint32_t slot = thread_exit_slot;
    EXPECT_EQ(quenta_rt_init(), 1);
    EXPECT_EQ(library_lock, lock);
    EXPECT_EQ(thread_exit_slot, slot);
}

TEST_F(threads, a_thread_attaches_once_and_is_detached_at_its_end) {
    for (int generation = 0; generation < 3; ++generation) {
        std::thread{[&] {
            EXPECT_EQ(attached_threads.size(), attached_before);
            EXPECT_EQ(solve_small_problem(), QUENTA_SOLVED);
            EXPECT_EQ(attached_threads.size(), attached_before + 1);
            EXPECT_EQ(solve_small_problem(), QUENTA_SOLVED);
            quenta_gc_collect();
            EXPECT_EQ(attached_threads.size(), attached_before + 1);
        }}.join();
        EXPECT_EQ(attached_threads.size(), attached_before);
    }
}

TEST_F(threads, a_collection_attaches_a_thread_that_has_never_solved) {
    std::thread{[&] {
        quenta_gc_collect();
        EXPECT_EQ(attached_threads.size(), attached_before + 1);
    }}.join();
    EXPECT_EQ(attached_threads.size(), attached_before);
}

// A request with `count` nodes and m = 5, which is not in the table.
using request = int (*)(int count, int* n_steps);
constexpr request requests[] = {
    [](int count, int* n_steps) {
        return quenta_solve_vie1(nullptr, nullptr, 2, 1.0, 1.0, 5, nullptr, count, 0, 0, nullptr, nullptr, n_steps);
    },
    [](int count, int* n_steps) {
        return quenta_solve_vie1_vec(nullptr, nullptr, 2, 2, nullptr, 1.0, 5, nullptr, count, 0, 0, nullptr, nullptr,
                                     n_steps);
    },
    [](int count, int* n_steps) {
        return quenta_solve_vie2(nullptr, nullptr, 2, 1.0, 5, nullptr, count, 0, nullptr, nullptr, n_steps);
    },
    [](int count, int* n_steps) {
        return quenta_solve_vie2_vec(nullptr, nullptr, 2, 2, 1.0, 5, nullptr, count, 0, nullptr, nullptr, n_steps);
    },
    [](int count, int* n_steps) {
        return quenta_solve_vide(nullptr, nullptr, nullptr, 2, 1.0, 1.0, 5, nullptr, count, 0, nullptr, nullptr,
                                 n_steps);
    },
    [](int count, int* n_steps) {
        return quenta_solve_vide_vec(nullptr, nullptr, nullptr, 2, 2, nullptr, 1.0, 5, nullptr, count, 0, nullptr,
                                     nullptr, n_steps);
    },
};

TEST_F(threads, a_refused_request_also_attaches_the_thread) {
    constexpr struct {
        int count, status;
    } refusals[] = {{0, QUENTA_UNSUPPORTED_SETTING}, {65536, QUENTA_SIZE_OVERFLOW}};
    for (const auto& refusal : refusals)
        for (const request& refused : requests)
            std::thread{[&] {
                int n_steps = 0;
                EXPECT_EQ(refused(refusal.count, &n_steps), refusal.status);
                EXPECT_EQ(attached_threads.size(), attached_before + 1);
            }}.join();
}

TEST_F(threads, limits_and_settings_do_not_attach_the_thread) {
    std::thread{[&] {
        int settings[336];
        quenta_get_supported_settings(settings);
        EXPECT_EQ(quenta_have_lapack() + quenta_max_coll_params() + function_solve_max_p() + function_solve_max_d() +
                      quenta_num_supported_settings(),
                  0 + 5 + 5 + 8 + 56);
        EXPECT_EQ(attached_threads.size(), attached_before);
    }}.join();
}

TEST_F(threads, an_attached_thread_solves_and_ends_while_another_thread_holds_the_library_lock) {
    quenta_tests::latch attached{1}, locked{1};
    std::thread thread{[&] {
        EXPECT_EQ(solve_small_problem(), QUENTA_SOLVED);
        attached.count_down();
        locked.wait();
        EXPECT_EQ(solve_small_problem(), QUENTA_SOLVED);
    }};
    attached.wait();
    const std::lock_guard guard{*library_lock};
    locked.count_down();
    thread.join();
    EXPECT_EQ(attached_threads.size(), attached_before);
}

TEST_F(threads, a_first_attachment_waits_for_the_library_lock) {
    std::atomic<bool> solved{false};
    std::thread thread;
    {
        const std::lock_guard guard{*library_lock};
        thread = std::thread{[&] {
            EXPECT_EQ(solve_small_problem(), QUENTA_SOLVED);
            solved = true;
        }};
        std::this_thread::sleep_for(std::chrono::milliseconds{50});
        EXPECT_FALSE(solved);
        EXPECT_EQ(attached_threads.size(), attached_before);
    }
    thread.join();
    EXPECT_TRUE(solved);
}

#if !defined(_WIN32)

TEST_F(threads, a_request_that_divides_by_zero_also_attaches_the_thread) {
    EXPECT_TRUE(quenta_tests::works_in_forked_child([this] {
        static int expected;
        expected = attached_before + 1;
        std::signal(SIGFPE, [](int) { _exit(attached_threads.size() == expected ? 0 : 1); });
        std::thread{[] {
            int n_steps = 0;
            quenta_solve_vie2(nullptr, nullptr, 2, 1.0, 0, nullptr, 0, 0, nullptr, nullptr, &n_steps);
        }}.join();
        return false;
    }));
}

// A key of the host. Its destructor solves in its second round; the destructor of the library runs in the first.
struct late_solve {
    pthread_key_t key{};
    int rounds = 0, attached_before = -1, attached_after = -1;

    static void destroy(void* value) {
        auto& late = *static_cast<late_solve*>(value);
        if (++late.rounds == 1) {
            pthread_setspecific(late.key, value);
            return;
        }
        late.attached_before = attached_threads.size();
        solve_small_problem();
        late.attached_after = attached_threads.size();
    }
};

TEST_F(threads, a_thread_that_solves_after_it_was_detached_is_attached_and_detached_again) {
    late_solve late;
    ASSERT_EQ(pthread_key_create(&late.key, late_solve::destroy), 0);
    std::thread{[&] {
        EXPECT_EQ(solve_small_problem(), QUENTA_SOLVED);
        EXPECT_EQ(pthread_setspecific(late.key, &late), 0);
    }}.join();
    EXPECT_EQ(late.attached_before, attached_before);
    EXPECT_EQ(late.attached_after, attached_before + 1);
    EXPECT_EQ(attached_threads.size(), attached_before) << "expected the thread to be detached again";
    EXPECT_EQ(pthread_key_delete(late.key), 0);
}

#endif

TEST_F(threads, detaching_a_null_or_unknown_record_does_nothing) {
    detach_thread_record(nullptr);
    thread_record other;
    thread_record unknown{&other};
    detach_thread_record(&unknown); // not on the heap, so that deleting it would end the test
    EXPECT_EQ(unknown.next, &other);
    EXPECT_EQ(attached_threads.size(), attached_before);
}

// The destructor of another thread's slot may run on this thread.
TEST_F(threads, detaching_the_record_of_another_thread_does_not_detach_this_one) {
    auto record = std::make_unique<thread_record>();
    thread_record* const of_another = record.get();
    attached_threads.enter(std::move(record));
    EXPECT_EQ(attached_threads.size(), attached_before + 1);
    detach_thread_record(of_another);
    EXPECT_EQ(attached_threads.size(), attached_before);
    EXPECT_EQ(solve_small_problem(), QUENTA_SOLVED);
    EXPECT_EQ(attached_threads.size(), attached_before) << "expected this thread to be attached once";
}

TEST_F(threads, without_a_slot_a_record_stays_and_the_next_start_requests_a_slot_again) {
    const std::uint32_t slot = thread_exit_slot;
    thread_exit_slot = platform::no_slot;
    std::thread{[] {
        EXPECT_EQ(solve_small_problem(), QUENTA_SOLVED);
    }}.join();
    EXPECT_EQ(attached_threads.size(), attached_before + 1);

    EXPECT_EQ(quenta_rt_init(), 1);
    EXPECT_NE(thread_exit_slot, platform::no_slot);
    EXPECT_NE(thread_exit_slot, slot);
    std::thread{[] {
        EXPECT_EQ(solve_small_problem(), QUENTA_SOLVED);
    }}.join();
    EXPECT_EQ(attached_threads.size(), attached_before + 1);
}

} // namespace

} // namespace quenta
