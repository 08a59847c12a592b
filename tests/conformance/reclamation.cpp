// quenta_gc_collect waits for threads that are being attached, holds the library lock, and returns free memory of the
// heap to the system. This also works after an attachment that failed or that a fork interrupted.
#include "quenta_native.h"
#include "quenta_solvers/calling_threads_state.hpp"
#include "support/forked_child.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// Called once during the next attachment of this thread, after its entry into the list. If the result is not 0, the
// last step of the attachment fails with that error.
thread_local int (*in_an_attachment)() = nullptr;

// Called once by the next collection, when it returns memory.
void (*in_a_collection)() = nullptr;

std::atomic<bool> collection_waits{false};

template <class condition>
void wait_until(const condition& holds) {
    while (!holds())
        std::this_thread::sleep_for(std::chrono::microseconds(100));
}

} // namespace

// The library calls these functions instead of those of the platform: the last step of an attachment, the wait of a
// collection, and the return of memory.
[[gnu::visibility("default")]] int pthread_setspecific(pthread_key_t key, const void* value) noexcept {
    if (in_an_attachment != nullptr)
        if (const int error = std::exchange(in_an_attachment, nullptr)(); error != 0)
            return error;
    static const auto of_the_platform =
        reinterpret_cast<decltype(&pthread_setspecific)>(dlsym(RTLD_NEXT, "pthread_setspecific"));
    return of_the_platform(key, value);
}

[[gnu::visibility("default")]] int sched_yield() noexcept {
    collection_waits = true;
    return int(syscall(SYS_sched_yield));
}

[[gnu::visibility("default")]] int malloc_trim(std::size_t kept) noexcept {
    if (in_a_collection != nullptr)
        std::exchange(in_a_collection, nullptr)();
    static const auto of_the_platform = reinterpret_cast<decltype(&malloc_trim)>(dlsym(RTLD_NEXT, "malloc_trim"));
    return of_the_platform(kept);
}

namespace quenta {

namespace {

class reclamation : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(quenta_rt_init(), 1);
        quenta_gc_collect(); // attaches this thread
        attached_before = attached_threads.size();
    }
    int attached_before = 0;
};

// Whether a collection on this thread waits while another thread is being attached.
bool collection_waits_for_an_attachment() {
    static std::atomic<bool> attaching, collection_is_over;
    attaching = collection_waits = collection_is_over = false;
    std::thread other{[] {
        in_an_attachment = [] {
            attaching = true;
            wait_until([] { return collection_waits || collection_is_over; });
            return 0;
        };
        quenta_gc_collect();
    }};
    wait_until([] { return attaching.load(); });
    const bool waited_before = collection_waits;
    quenta_gc_collect();
    collection_is_over = true;
    other.join();
    return !waited_before && collection_waits;
}

TEST_F(reclamation, waits_for_a_thread_that_is_being_attached) {
    EXPECT_TRUE(collection_waits_for_an_attachment());
}

// A signal handler may fork during an attachment. The child collects in the handler, then it completes the attachment.
TEST_F(reclamation, works_in_the_child_of_a_fork_during_an_attachment) {
    std::thread{[this] {
        static pid_t child;
        in_an_attachment = [] {
            child = quenta_tests::fork_child();
            if (child == 0)
                quenta_gc_collect();
            return 0;
        };
        quenta_gc_collect();
        if (child == 0)
            _exit(attached_threads.size() == attached_before + 1 && collection_waits_for_an_attachment() ? 0 : 1);
        EXPECT_TRUE(quenta_tests::child_works(child));
    }}.join();
    EXPECT_TRUE(collection_waits_for_an_attachment());
}

TEST_F(reclamation, works_after_an_attachment_that_ran_out_of_memory_and_left_the_thread_unattached) {
    std::thread{[this] {
        in_an_attachment = [] {
            return ENOMEM;
        };
        EXPECT_THROW(quenta_gc_collect(), std::bad_alloc);
        EXPECT_EQ(attached_threads.size(), attached_before);
        quenta_gc_collect();
        EXPECT_EQ(attached_threads.size(), attached_before + 1);
    }}.join();
    EXPECT_EQ(attached_threads.size(), attached_before);
}

TEST_F(reclamation, holds_the_library_lock_while_it_returns_memory) {
    static bool others_can_lock;
    others_can_lock = true;
    in_a_collection = [] {
        std::thread{[] {
            const std::unique_lock guard{*library_lock, std::try_to_lock};
            others_can_lock = guard.owns_lock();
        }}.join();
    };
    quenta_gc_collect();
    EXPECT_FALSE(others_can_lock);
}

constexpr long mebibyte = 1024 * 1024;

// The resident memory of the process, in bytes.
long resident() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    statm >> pages >> pages;
    return pages * sysconf(_SC_PAGESIZE);
}

TEST_F(reclamation, returns_free_pages_below_memory_in_use) {
    const long at_first = resident();
    // Small blocks. The last one is kept, so that the heap cannot shrink from its end.
    constexpr std::size_t size = 4000;
    std::vector<std::unique_ptr<char[]>> blocks;
    for (int block = 0; block < 16000; ++block) {
        blocks.push_back(std::make_unique_for_overwrite<char[]>(size));
        std::memset(blocks.back().get(), 1, size);
    }
    blocks.erase(blocks.begin(), blocks.end() - 1);
    const long held_back = resident() - at_first;
    ASSERT_GT(held_back, 40 * mebibyte) << "expected the heap to keep free memory until the collection";
    quenta_gc_collect();
    EXPECT_LT(resident() - at_first, 10 * mebibyte);
}

} // namespace

} // namespace quenta
