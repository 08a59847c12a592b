// In the child of a fork every function works, whatever other threads were doing in the library at the time of the
// fork.
#include "conformance/every_solver.hpp"
#include "conformance/function_call.hpp"
#include "quenta_solvers/calling_threads_state.hpp"
#include "support/bits.hpp"
#include "support/forked_child.hpp"
#include "support/latch.hpp"
#include "support/long_tests.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace quenta {

namespace {

using namespace quenta_tests;
using quenta_tests::random_data; // the C library also declares this name

// A call of the library, and the check of its result.
struct entry {
    std::string name;
    std::function<bool()> works;
};

// One for each function of the header. The systems have a dimension without a variant of its own, so that every kind of
// dense solve is used, and enough steps for the transform.
std::vector<entry> every_entry() {
    std::vector<entry> entries{
        {"quenta_rt_init",
         [] {
             return quenta_rt_init() == 1;
         }},
        {"quenta_gc_collect",
         [] {
             return quenta_gc_collect(), true;
         }},
        {"the limits",
         [] {
             return quenta_have_lapack() == 0 && quenta_max_coll_params() == 5 && function_solve_max_p() == 5 &&
                    function_solve_max_d() == 8 && quenta_num_supported_settings() == 56;
         }},
        {"quenta_get_supported_settings",
         [] {
             int settings[336];
             quenta_get_supported_settings(settings);
             return settings[330] == 4;
         }},
    };
    for (const sampled_solver& solver : every_solver) {
        const system_samples data{solver.solves_systems ? 9 : 1, 70};
        const auto solve = [&solver, data] {
            return solver.solve(data, 0.01, {1, {1}}, 1);
        };
        entries.push_back({solver.name, [solve, expected = solve()] {
                               const sampled_answer actual = solve();
                               return actual.status == QUENTA_SOLVED &&
                                      equal_bits(expected.out.values(), actual.out.values());
                           }});
    }
    random_data random{20261122};
    for (const block_kind kind : block_kinds)
        for (const int D : {0, 3}) {
            const block_problem problem = random_blocks(random, kind, 5, 2, D);
            entries.push_back({problem.text(), [problem, expected = block_reference(problem)] {
                                   return bool(matches_reference(problem, call_block_solver(problem), expected));
                               }});
        }
    return entries;
}

// Starts a thread that attaches. True if it was on the list until its end and not longer.
bool a_new_thread_attaches_and_detaches() {
    const int before = attached_threads.size();
    bool attached = false;
    std::thread{[&] {
        quenta_gc_collect();
        attached = attached_threads.size() == before + 1;
    }}.join();
    return attached && attached_threads.size() == before;
}

class forks : public ::testing::Test {
protected:
    forks() { alarm(300); } // ends the test if the parent hangs
    ~forks() override { alarm(0); }

    // Forks from this thread. The children take turns in which function they call first; then a new thread attaches and
    // ends.
    void expect_children_work(std::size_t children) const {
        for (std::size_t child = 0; child < children && !HasFailure(); ++child) {
            const entry& first = entries[child % entries.size()];
            EXPECT_TRUE(works_in_forked_child([&] { return first.works() && a_new_thread_attaches_and_detaches(); }))
                << first.name << " in child " << child;
        }
    }

    // The same from this thread, which is attached, and from a new one, which is not.
    void expect_children_of_any_thread_work(std::size_t children) const {
        expect_children_work(children);
        std::thread{[&] {
            expect_children_work(children);
        }}.join();
    }

    const std::vector<entry> entries = every_entry();
};

TEST_F(forks, work_while_one_thread_holds_the_library_lock_and_another_waits_for_it) {
    latch locked{1}, finished{1};
    std::thread holder{[&] {
        const std::lock_guard guard{*library_lock};
        locked.count_down();
        finished.wait();
    }};
    locked.wait();
    std::thread waiting{quenta_gc_collect}; // suspends reclamation, then waits for the lock
    std::this_thread::sleep_for(std::chrono::milliseconds{50});
    expect_children_of_any_thread_work(entries.size());
    finished.count_down();
    holder.join();
    waiting.join();
}

TEST_F(forks, work_while_another_thread_holds_the_lock_of_the_list_of_threads) {
    // The list is so long that a thread that counts it repeatedly holds its lock nearly all the time.
    std::vector<thread_record*> many;
    for (int record = 0; record < 20000; ++record) {
        auto made = std::make_unique<thread_record>();
        many.push_back(made.get());
        attached_threads.enter(std::move(made));
    }
    std::atomic<bool> finished{false};
    latch counting{1};
    std::thread counter{[&] {
        counting.count_down();
        while (!finished)
            attached_threads.size();
    }};
    counting.wait();
    expect_children_of_any_thread_work(entries.size());
    finished = true;
    counter.join();
    while (!many.empty()) { // the last entry is the first of the list
        detach_thread_record(many.back());
        many.pop_back();
    }
}

TEST_F(forks, work_while_other_threads_attach_and_collect_and_solve_and_end) {
    const int attached_before = attached_threads.size();
    std::atomic<bool> finished{false};
    std::vector<std::thread> busy;
    const auto repeat = [&](std::function<void()> action) {
        busy.emplace_back([&finished, action = std::move(action)] {
            while (!finished)
                action();
        });
    };
    repeat(quenta_gc_collect);
    repeat([&] {
        for (const entry& each : entries)
            EXPECT_TRUE(each.works()) << each.name;
    });
    for (int starter = 0; starter < 2; ++starter)
        repeat([&] {
            for (const entry& each : entries)
                std::thread{[&] {
                    EXPECT_TRUE(each.works()) << each.name;
                }}.join();
        });
    expect_children_of_any_thread_work(long_tests() ? 1000 : 250);
    finished = true;
    for (std::thread& each : busy)
        each.join();
    EXPECT_EQ(attached_threads.size(), attached_before);
}

TEST_F(forks, work_in_children_of_a_child_that_has_busy_threads) {
    for (int child = 0; child < 20 && !HasFailure(); ++child)
        EXPECT_TRUE(works_in_forked_child([&] {
            std::atomic<bool> finished{false};
            const auto collect = [&finished] {
                while (!finished)
                    quenta_gc_collect();
            };
            std::thread first{collect}, second{collect};
            expect_children_of_any_thread_work(5);
            finished = true;
            first.join();
            second.join();
            return !HasFailure();
        }));
}

TEST_F(forks, keep_the_thread_that_forks_attached) {
    std::thread{[&] {
        quenta_gc_collect();
        const int attached = attached_threads.size();
        EXPECT_TRUE(works_in_forked_child([&] {
            quenta_gc_collect();
            return attached_threads.size() == attached;
        })) << "expected the child not to attach this thread a second time";
        EXPECT_EQ(attached_threads.size(), attached);
    }}.join();
}

} // namespace

} // namespace quenta
