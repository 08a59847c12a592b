// quenta_gc_collect waits for threads that are being attached, and really gives the heap's free memory back, where the
// platform offers that.
#include "quenta_native.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// A thread can be held up where it is in the list of attached threads, but its attachment has not come to its end.
thread_local bool hold_up = false;
std::atomic<bool> is_held_up{false}, collection_waits{false}, collection_is_over{false};

template <class condition>
void wait_until(const condition& holds) {
    while (!holds())
        std::this_thread::sleep_for(std::chrono::microseconds(100));
}

} // namespace

// The last thing that an attachment does, and what a collection does while it waits. The library finds these, and not
// those of the platform.
[[gnu::visibility("default")]] int pthread_setspecific(pthread_key_t key, const void* value) noexcept {
    if (hold_up) {
        hold_up = false;
        is_held_up = true;
        wait_until([] { return collection_waits || collection_is_over; });
    }
    static const auto of_the_platform =
        reinterpret_cast<decltype(&pthread_setspecific)>(dlsym(RTLD_NEXT, "pthread_setspecific"));
    return of_the_platform(key, value);
}

[[gnu::visibility("default")]] int sched_yield() noexcept {
    collection_waits = true;
    return int(syscall(SYS_sched_yield));
}

namespace {

TEST(reclamation, waits_for_a_thread_that_is_being_attached) {
    ASSERT_EQ(quenta_rt_init(), 1);
    quenta_gc_collect(); // attaches this thread
    std::thread newcomer{[] {
        hold_up = true;
        quenta_gc_collect();
    }};
    wait_until([] { return is_held_up.load(); });
    EXPECT_FALSE(collection_waits);
    quenta_gc_collect();
    collection_is_over = true;
    newcomer.join();
    EXPECT_TRUE(collection_waits);
}

constexpr long mebibyte = 1024 * 1024;

// The bytes of the process that are in memory.
long resident() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    statm >> pages >> pages;
    return pages * sysconf(_SC_PAGESIZE);
}

TEST(reclamation, returns_free_pages_below_memory_in_use) {
    ASSERT_EQ(quenta_rt_init(), 1);
    quenta_gc_collect();
    const long at_first = resident();
    // Small blocks, of which the last one stays: the heap cannot shrink from its end.
    constexpr std::size_t size = 4000;
    std::vector<std::unique_ptr<char[]>> blocks;
    for (int block = 0; block < 16000; ++block) {
        blocks.push_back(std::make_unique_for_overwrite<char[]>(size));
        std::memset(blocks.back().get(), 1, size);
    }
    blocks.erase(blocks.begin(), blocks.end() - 1);
    const long held_back = resident() - at_first;
    ASSERT_GT(held_back, 40 * mebibyte) << "the heap gives memory back by itself, so this shows nothing";
    quenta_gc_collect();
    EXPECT_LT(resident() - at_first, 10 * mebibyte);
}

} // namespace
