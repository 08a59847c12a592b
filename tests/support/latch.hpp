// A latch: threads wait until it has been counted down to zero.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace quenta_tests {

// Not std::latch: with the compiler for Windows, wait() reads the count before it takes the lock, so that it can miss
// the last count_down() and wait forever.
class latch {
public:
    explicit latch(std::size_t arrivals) : missing(arrivals) {}

    void count_down() {
        const std::lock_guard guard{lock};
        if (--missing == 0)
            opened.notify_all();
    }
    void wait() {
        std::unique_lock guard{lock};
        opened.wait(guard, [this] { return missing == 0; });
    }
    void arrive_and_wait() {
        count_down();
        wait();
    }

private:
    std::mutex lock;
    std::condition_variable opened;
    std::size_t missing;
};

} // namespace quenta_tests
