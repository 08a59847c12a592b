// Forks: in the child every function works, whatever other threads were doing in the library when the fork came.
#include "conformance/every_solver.hpp"
#include "conformance/function_call.hpp"
#include "quenta_solvers/calling_threads_state.hpp"
#include "support/bits.hpp"
#include "support/forked_child.hpp"
#include "support/latch.hpp"

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
using quenta_tests::random_data; // the C library has one too

// A call of the library that knows its result.
struct entry {
    std::string name;
    std::function<bool()> works;
};

// One for each function of the header. Solvers of systems take a dimension without a variant of its own, so that every
// kind of dense solve is among them, and enough steps for the transform.
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
            entries.push_back({problem.text(), [problem, expected = block_twin(problem)] {
                                   return bool(answers_as_the_twin(problem, call_block_solver(problem), expected));
                               }});
        }
    return entries;
}

// A thread that is new to the library attaches, and is forgotten when it has ended.
bool a_thread_comes_and_goes() {
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
    forks() { alarm(300); } // a parent that hangs ends as well
    ~forks() override { alarm(0); }

    // Children of this thread: each function is the first call of one of them; then a new thread comes and goes.
    void expect_children_that_work(std::size_t children) const {
        for (std::size_t child = 0; child < children && !HasFailure(); ++child) {
            const entry& first = entries[child % entries.size()];
            EXPECT_TRUE(works_in_forked_child([&] { return first.works() && a_thread_comes_and_goes(); }))
                << first.name << " in child " << child;
        }
    }

    // The same from this thread, which is attached, and from one that the library does not know.
    void expect_children_of_both_kinds_of_threads_that_work(std::size_t children) const {
        expect_children_that_work(children);
        std::thread{[&] {
            expect_children_that_work(children);
        }}.join();
    }

    const std::vector<entry> entries = every_entry();
};

TEST_F(forks, work_while_one_thread_holds_the_library_lock_and_another_waits_for_it) {
    latch locked{1}, over{1};
    std::thread holder{[&] {
        const std::lock_guard guard{*library_lock};
        locked.count_down();
        over.wait();
    }};
    locked.wait();
    std::thread newcomer{quenta_gc_collect}; // has suspended reclamation
    std::this_thread::sleep_for(std::chrono::milliseconds{50});
    expect_children_of_both_kinds_of_threads_that_work(entries.size());
    over.count_down();
    holder.join();
    newcomer.join();
}

TEST_F(forks, work_while_another_thread_holds_the_lock_of_the_list) {
    // A list so long that a thread which counts it again and again holds its lock nearly all the time.
    std::vector<thread_record*> many;
    for (int record = 0; record < 20000; ++record) {
        auto made = std::make_unique<thread_record>();
        many.push_back(made.get());
        attached_threads.enter(std::move(made));
    }
    std::atomic<bool> over{false};
    latch counting{1};
    std::thread counter{[&] {
        counting.count_down();
        while (!over)
            attached_threads.size();
    }};
    counting.wait();
    expect_children_of_both_kinds_of_threads_that_work(entries.size());
    over = true;
    counter.join();
    while (!many.empty()) { // the last one entered stands first
        detach_thread_record(many.back());
        many.pop_back();
    }
}

TEST_F(forks, work_by_the_thousand_while_threads_attach_and_collect_and_solve_and_end) {
    const int attached_before = attached_threads.size();
    std::atomic<bool> over{false};
    std::vector<std::thread> busy;
    const auto repeat = [&](std::function<void()> action) {
        busy.emplace_back([&over, action = std::move(action)] {
            while (!over)
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
    expect_children_of_both_kinds_of_threads_that_work(1000);
    over = true;
    for (std::thread& each : busy)
        each.join();
    EXPECT_EQ(attached_threads.size(), attached_before);
}

TEST_F(forks, work_in_a_child_of_a_child_with_busy_threads_of_its_own) {
    for (int child = 0; child < 20 && !HasFailure(); ++child)
        EXPECT_TRUE(works_in_forked_child([&] {
            std::atomic<bool> over{false};
            const auto collect = [&over] {
                while (!over)
                    quenta_gc_collect();
            };
            std::thread first{collect}, second{collect};
            expect_children_of_both_kinds_of_threads_that_work(5);
            over = true;
            first.join();
            second.join();
            return !HasFailure();
        }));
}

TEST_F(forks, keep_the_record_of_the_thread_that_forks) {
    std::thread{[&] {
        quenta_gc_collect();
        const int attached = attached_threads.size();
        EXPECT_TRUE(works_in_forked_child([&] {
            quenta_gc_collect();
            return attached_threads.size() == attached;
        })) << "the child attached this thread once more";
        EXPECT_EQ(attached_threads.size(), attached);
    }}.join();
}

} // namespace

} // namespace quenta
