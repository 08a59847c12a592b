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
    explicit painted_stack(std::size_t size) : bytes{size} {
        // The least stack of a thread is on some systems more than a test wants to give: its lower part is then out of
        // bounds, too.
        const auto least = std::size_t(sysconf(_SC_THREAD_STACK_MIN));
        forbidden = page + std::max(least, bytes) - bytes;
        void* const mapped =
            mmap(nullptr, forbidden + bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
        EXPECT_NE(mapped, MAP_FAILED);
        lowest = static_cast<unsigned char*>(mapped);
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
    static constexpr unsigned char paint = 0xA5;
    const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
    const std::size_t bytes;
    std::size_t forbidden;
    unsigned char* lowest;
};

} // namespace quenta_tests
