// A host that opens the library at run time, and whose heap has no memory left for a thread. A call on that thread
// throws std::bad_alloc, the process goes on, and a later call on it solves. This program has its own malloc and its
// relatives, which fail on demand and otherwise call those of glibc.
#include "quenta_native.h"
#include "support/latch.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <thread>

#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>

namespace {

// Which allocations of the calling thread fail.
struct failing_heap {
    long first = LONG_MAX, last = LONG_MAX;
    long asked = 0;
    bool has_failed = false;

    bool fails() {
        const long number = asked++;
        has_failed = has_failed || (first <= number && number <= last);
        return first <= number && number <= last;
    }
};
constinit thread_local failing_heap heap;

template <class... sizes>
void* from_heap(void* (*allocate)(sizes...), sizes... arguments) {
    if (!heap.fails())
        return allocate(arguments...);
    errno = ENOMEM;
    return nullptr;
}

} // namespace

extern "C" {

void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

[[gnu::visibility("default")]] void* malloc(std::size_t bytes) noexcept {
    return from_heap(__libc_malloc, bytes);
}
[[gnu::visibility("default")]] void* calloc(std::size_t count, std::size_t bytes) noexcept {
    return from_heap(__libc_calloc, count, bytes);
}
[[gnu::visibility("default")]] void* realloc(void* block, std::size_t bytes) noexcept {
    return from_heap<void*, std::size_t>(__libc_realloc, block, bytes);
}
[[gnu::visibility("default")]] void* memalign(std::size_t alignment, std::size_t bytes) noexcept {
    return from_heap(__libc_memalign, alignment, bytes);
}
[[gnu::visibility("default")]] void* aligned_alloc(std::size_t alignment, std::size_t bytes) noexcept {
    return memalign(alignment, bytes);
}
[[gnu::visibility("default")]] int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) noexcept {
    *block = memalign(alignment, bytes);
    return *block == nullptr ? ENOMEM : 0;
}
}

namespace {

decltype(&quenta_gc_collect) gc_collect;
decltype(&quenta_solve_vie2) solve_vie2;

template <class function>
void find(void* library, const char* name, function*& found) {
    found = reinterpret_cast<function*>(dlsym(library, name));
    if (found == nullptr)
        throw std::runtime_error{name};
}

// What is missing is an exception: there is nothing to test without it.
void open_and_start() {
    if (solve_vie2 != nullptr)
        return;
    void* const library = dlopen(QUENTA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        throw std::runtime_error{dlerror()};
    decltype(&quenta_rt_init) rt_init;
    find(library, "quenta_rt_init", rt_init);
    find(library, "quenta_gc_collect", gc_collect);
    find(library, "quenta_solve_vie2", solve_vie2);
    // A thread has room for the values of the first 32 keys. For later ones, pthread_setspecific allocates memory.
    for (int taken = 0; taken < 32; ++taken) {
        pthread_key_t key;
        ASSERT_EQ(pthread_key_create(&key, nullptr), 0);
    }
    ASSERT_EQ(rt_init(), 1);
}

struct outcome {
    int status = -1;
    bool out_of_memory = false, heap_has_failed = false;
};

// A solve on the calling thread. A setting with m = 5 is refused.
outcome solve_with(const failing_heap& failing, int m = 2) {
    constexpr double ones[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    constexpr int simpson[] = {0, 1, 2};
    double out[9];
    int n_steps = 0;
    outcome seen;
    heap = failing;
    try {
        seen.status = solve_vie2(ones, ones, 9, 0.01, m, simpson, 3, 0, out, nullptr, &n_steps);
    } catch (const std::bad_alloc&) {
        seen.out_of_memory = true;
    }
    seen.heap_has_failed = heap.has_failed;
    heap = {};
    return seen;
}

constexpr failing_heap none_fails{}, all_fail{.first = 0};

TEST(opened_library, serves_a_thread_that_is_older_than_it_after_it_was_out_of_memory) {
    quenta_tests::latch opened{1};
    std::thread older{[&] {
        opened.wait();
        EXPECT_TRUE(solve_with(all_fail).out_of_memory);
        EXPECT_EQ(solve_with(none_fails).status, QUENTA_SOLVED);
        EXPECT_TRUE(solve_with(all_fail).out_of_memory);
    }};
    open_and_start();
    opened.count_down();
    older.join();
}

TEST(opened_library, throws_for_each_allocation_that_fails_on_a_new_thread_and_serves_it_afterwards) {
    open_and_start();
    for (const bool all_further : {false, true}) {
        bool has_failed = true;
        long failures = 0;
        for (; has_failed; ++failures)
            std::thread{[&] {
                SCOPED_TRACE(failures);
                const outcome first = solve_with({.first = failures, .last = all_further ? LONG_MAX : failures});
                has_failed = first.heap_has_failed;
                EXPECT_EQ(first.out_of_memory, has_failed);
                EXPECT_EQ(solve_with(none_fails).status, QUENTA_SOLVED);
            }}.join();
        EXPECT_GT(failures, 3) << "expected failures for the record, the slot and the arrays";
    }
}

TEST(opened_library, needs_memory_on_an_attached_thread_only_for_arrays) {
    open_and_start();
    std::thread{[] {
        EXPECT_EQ(solve_with(none_fails).status, QUENTA_SOLVED);
        EXPECT_EQ(solve_with(all_fail, 5).status, QUENTA_UNSUPPORTED_SETTING);
        heap = all_fail;
        gc_collect();
        const bool has_failed = heap.has_failed;
        heap = {};
        EXPECT_FALSE(has_failed);
    }}.join();
}

} // namespace
