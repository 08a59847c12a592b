// A thread stack that is filled with a known byte, so that its use can be measured. The memory below it cannot be
// accessed, so that a thread that needs more ends the process.
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
        // A test may want a smaller stack than the system allows. The lower part of the stack is then inaccessible too.
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

    // Runs task(argument) on a thread with this stack and waits for its end.
    void run(void* (*task)(void*), void* argument) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        ASSERT_EQ(pthread_attr_setstack(&attributes, lowest + page, forbidden - page + bytes), 0);
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, &attributes, task, argument), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
    }

    // The bytes from the top down to the lowest one that was written.
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
