// A host opens the library at run time, and its heap runs out of memory for a thread. A call on that thread throws
// std::bad_alloc, the process continues, and a later call on the thread succeeds. This program replaces malloc and the
// related functions by ones that fail on demand and otherwise call those of glibc.
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
    long requests = 0;
    bool has_failed = false;

    bool fails() {
        const long number = requests++;
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

// Throws if the library or a function is missing.
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
    // A thread has space for the values of the first 32 keys. For later keys, pthread_setspecific allocates memory.
    for (int created = 0; created < 32; ++created) {
        pthread_key_t key;
        ASSERT_EQ(pthread_key_create(&key, nullptr), 0);
    }
    ASSERT_EQ(rt_init(), 1);
}

struct outcome {
    int status = -1;
    bool out_of_memory = false, heap_has_failed = false;
};

// Solves on the calling thread. m = 5 is not in the table, so the call returns status 1.
outcome solve_with(const failing_heap& failing, int m = 2) {
    constexpr double ones[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    constexpr int simpson[] = {0, 1, 2};
    double out[9];
    int n_steps = 0;
    outcome result;
    heap = failing;
    try {
        result.status = solve_vie2(ones, ones, 9, 0.01, m, simpson, 3, 0, out, nullptr, &n_steps);
    } catch (const std::bad_alloc&) {
        result.out_of_memory = true;
    }
    result.heap_has_failed = heap.has_failed;
    heap = {};
    return result;
}

constexpr failing_heap none_fails{}, all_fail{.first = 0};

TEST(opened_library, solves_on_a_thread_older_than_the_library_after_an_allocation_failed_there) {
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

TEST(opened_library, throws_bad_alloc_for_any_failing_allocation_on_a_new_thread_and_the_next_call_solves) {
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
        EXPECT_GT(failures, 3) << "expected failures of the record, the slot and the arrays";
    }
}

TEST(opened_library, allocates_nothing_but_arrays_on_an_attached_thread) {
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
