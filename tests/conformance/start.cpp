// Starting the library, also in children of forks. The first test starts it for the first time in this process.
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

// Counts the handlers that the library registers, and can make the registration fail.
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

TEST(start, fails_without_memory_for_its_fork_handler_and_succeeds_when_called_again) {
    ASSERT_EQ(library_lock, nullptr);
    no_memory_for_handlers = true;
    EXPECT_EQ(quenta_rt_init(), 0);
    EXPECT_EQ(library_lock, nullptr);
    EXPECT_EQ(thread_exit_slot, platform::no_slot);
    forget_other_threads(); // as in the child of a fork during the start on another thread
    EXPECT_EQ(library_lock, nullptr);
    no_memory_for_handlers = false;
    EXPECT_EQ(quenta_rt_init(), 1);
    EXPECT_NE(library_lock, nullptr);
    EXPECT_NE(thread_exit_slot, platform::no_slot);
}

TEST(start, registers_one_fork_handler_even_if_called_repeatedly) {
    for (int start = 0; start < 3; ++start)
        EXPECT_EQ(quenta_rt_init(), 1);
    EXPECT_EQ(registered_handlers, 1);
}

TEST(start, succeeds_when_no_key_is_left_and_the_next_start_requests_one_again) {
    thread_exit_slot = platform::no_slot; // an earlier test may have started the library
    const int attached_before = attached_threads.size();
    {
        const quenta_tests::every_key_taken no_key_is_left;
        EXPECT_EQ(quenta_rt_init(), 1);
        EXPECT_NE(library_lock, nullptr);
        EXPECT_EQ(thread_exit_slot, platform::no_slot);
        std::thread{quenta_gc_collect}.join();
        EXPECT_EQ(attached_threads.size(), attached_before + 1)
            << "expected the record to stay, since without a key the library cannot detect the end of a thread";
    }
    EXPECT_EQ(quenta_rt_init(), 1);
    EXPECT_NE(thread_exit_slot, platform::no_slot);
    std::thread{quenta_gc_collect}.join();
    EXPECT_EQ(attached_threads.size(), attached_before + 1);
}

TEST(start, works_in_a_child_of_a_fork_and_in_the_children_of_that_child) {
    EXPECT_TRUE(works_in_forked_child([] {
        if (quenta_rt_init() != 1)
            return false;
        quenta_tests::latch locked{1}, finished{1};
        std::thread holder{[&] {
            const std::lock_guard guard{*library_lock};
            locked.count_down();
            finished.wait();
        }};
        locked.wait();
        const bool works = bool(works_in_forked_child([] {
            quenta_gc_collect();
            return quenta_rt_init() == 1;
        }));
        finished.count_down();
        holder.join();
        return works;
    }));
}

} // namespace

} // namespace quenta
