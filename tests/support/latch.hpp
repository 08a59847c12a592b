// A gate that opens when a number of threads have arrived at it, and stays open.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace quenta_tests {

// std::latch of this compiler for Windows looks at its count before it takes the lock that it sleeps under, and so may
// miss the last arrival and sleep for good.
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
