// A stack for a thread, painted all over beforehand: one sees how far the thread has gone. Nobody may touch what is
// below it: who needs more than there is dies at once.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace quenta_tests {

class painted_stack {
public:
    explicit painted_stack(std::size_t size)
        : page{std::size_t(sysconf(_SC_PAGESIZE))}, bytes{size}, forbidden{page + std::max(least_of_a_thread(), bytes) -
                                                                           bytes},
          lowest{static_cast<unsigned char*>(mmap(nullptr, forbidden + bytes, PROT_READ | PROT_WRITE,
                                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0))} {
        EXPECT_NE(static_cast<void*>(lowest), MAP_FAILED);
        std::fill_n(lowest, forbidden + bytes, paint);
        EXPECT_EQ(mprotect(lowest, forbidden, PROT_NONE), 0);
    }
    painted_stack(const painted_stack&) = delete;
    painted_stack& operator=(const painted_stack&) = delete;
    ~painted_stack() { munmap(lowest, forbidden + bytes); }

    // Runs task(argument) on a thread that has this stack, to its end.
    void run(void* (*task)(void*), void* argument) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        ASSERT_EQ(pthread_attr_setstack(&attributes, lowest + page, forbidden - page + bytes), 0);
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, &attributes, task, argument), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
    }

    // From the top down to the last byte that has lost its paint.
    std::size_t used() const {
        const unsigned char* const first = lowest + forbidden;
        return bytes -
               std::size_t(std::find_if(first, first + bytes, [](unsigned char b) { return b != paint; }) - first);
    }

private:
    // Of some systems it is more than a test wants to give: the lower part is then out of bounds, too.
    static std::size_t least_of_a_thread() { return std::size_t(sysconf(_SC_THREAD_STACK_MIN)); }

    static constexpr unsigned char paint = 0xA5;
    std::size_t page, bytes, forbidden;
    unsigned char* lowest;
};

} // namespace quenta_tests
