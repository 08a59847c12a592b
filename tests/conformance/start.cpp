// The start of the library, and that it serves the children of forks. It starts in the first test.
#include "quenta_native.h"
#include "quenta_solvers/calling_threads_state.hpp"
#include "support/every_key_taken.hpp"
#include "support/forked_child.hpp"
#include "support/latch.hpp"
#include "utility/platform.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <thread>

#include <pthread.h>

namespace {

bool no_memory_for_handlers = false;
int registered_handlers = 0;

} // namespace

// What the library asks of the system, noted on the way.
extern "C" int __real_pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)());
extern "C" int __wrap_pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)()) {
    if (no_memory_for_handlers)
        return ENOMEM;
    ++registered_handlers;
    return __real_pthread_atfork(prepare, parent, child);
}

namespace quenta {

namespace {

using quenta_tests::works_in_forked_child;

TEST(start, without_memory_for_its_handler_of_forks_fails_and_creates_nothing_and_may_be_tried_again) {
    ASSERT_EQ(library_lock, nullptr);
    no_memory_for_handlers = true;
    EXPECT_EQ(quenta_rt_init(), 0);
    EXPECT_EQ(library_lock, nullptr);
    EXPECT_EQ(thread_exit_slot, platform::no_slot);
    forget_other_threads(); // as a fork does that comes while another thread starts the library
    EXPECT_EQ(library_lock, nullptr);
    no_memory_for_handlers = false;
    EXPECT_EQ(quenta_rt_init(), 1);
    EXPECT_NE(library_lock, nullptr);
    EXPECT_NE(thread_exit_slot, platform::no_slot);
}

TEST(start, registers_one_handler_of_forks_however_often_it_is_called) {
    for (int start = 0; start < 3; ++start)
        EXPECT_EQ(quenta_rt_init(), 1);
    EXPECT_EQ(registered_handlers, 1);
}

TEST(start, succeeds_without_a_key_left_and_the_next_one_tries_again) {
    thread_exit_slot = platform::no_slot; // where an earlier test has started the library
    const int attached_before = attached_threads.size();
    {
        const quenta_tests::every_key_taken no_key_is_left;
        EXPECT_EQ(quenta_rt_init(), 1);
        EXPECT_NE(library_lock, nullptr);
        EXPECT_EQ(thread_exit_slot, platform::no_slot);
        std::thread{quenta_gc_collect}.join();
        EXPECT_EQ(attached_threads.size(), attached_before + 1) << "nothing notices the end of a thread";
    }
    EXPECT_EQ(quenta_rt_init(), 1);
    EXPECT_NE(thread_exit_slot, platform::no_slot);
    std::thread{quenta_gc_collect}.join();
    EXPECT_EQ(attached_threads.size(), attached_before + 1);
}

TEST(start, in_a_child_of_a_fork_serves_the_children_of_that_child) {
    EXPECT_TRUE(works_in_forked_child([] {
        if (quenta_rt_init() != 1)
            return false;
        quenta_tests::latch locked{1}, over{1};
        std::thread holder{[&] {
            const std::lock_guard guard{*library_lock};
            locked.count_down();
            over.wait();
        }};
        locked.wait();
        const bool works = bool(works_in_forked_child([] {
            quenta_gc_collect();
            return quenta_rt_init() == 1;
        }));
        over.count_down();
        holder.join();
        return works;
    }));
}

} // namespace

} // namespace quenta
