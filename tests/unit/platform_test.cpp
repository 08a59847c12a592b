// What the platform gives when it has no more to give.
#include "utility/platform.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include <pthread.h>

namespace quenta {
namespace {

TEST(platform, without_a_key_left_there_is_no_slot) {
    std::vector<pthread_key_t> all;
    for (pthread_key_t key; all.size() <= PTHREAD_KEYS_MAX && pthread_key_create(&key, nullptr) == 0;)
        all.push_back(key);
    ASSERT_GT(all.size(), 0u);
    EXPECT_EQ(platform::allocate_thread_slot(nullptr), platform::no_slot);
    for (const pthread_key_t key : all)
        EXPECT_EQ(pthread_key_delete(key), 0);

    const std::uint32_t slot = platform::allocate_thread_slot(nullptr);
    EXPECT_NE(slot, platform::no_slot);
    EXPECT_EQ(pthread_key_delete(static_cast<pthread_key_t>(slot)), 0);
}

} // namespace
} // namespace quenta
