// Takes all thread-specific keys that the system has left, until the end of a scope.
#pragma once

#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include <pthread.h>

namespace quenta_tests {

class every_key_taken {
public:
    every_key_taken() {
        for (pthread_key_t key; keys.size() <= PTHREAD_KEYS_MAX && pthread_key_create(&key, nullptr) == 0;)
            keys.push_back(key);
        EXPECT_GT(keys.size(), 0u);
    }
    ~every_key_taken() {
        for (const pthread_key_t key : keys)
            EXPECT_EQ(pthread_key_delete(key), 0);
    }
    every_key_taken(const every_key_taken&) = delete;
    every_key_taken& operator=(const every_key_taken&) = delete;

private:
    std::vector<pthread_key_t> keys;
};

} // namespace quenta_tests
