// What the platform gives when it has no more to give, and the value of a thread.
#include "support/every_key_taken.hpp"
#include "utility/platform.hpp"

#include <gtest/gtest.h>

#include <thread>

#include <pthread.h>

namespace quenta {
namespace {

TEST(platform, without_a_key_left_there_is_no_slot) {
    {
        const quenta_tests::every_key_taken no_key_is_left;
        EXPECT_EQ(platform::allocate_thread_slot(nullptr), platform::no_slot);
    }
    const std::uint32_t slot = platform::allocate_thread_slot(nullptr);
    EXPECT_NE(slot, platform::no_slot);
    EXPECT_EQ(pthread_key_delete(static_cast<pthread_key_t>(slot)), 0);
}

void* destroyed = nullptr;

TEST(platform, a_thread_has_a_value_of_its_own_which_the_destructor_gets_at_its_end) {
    const std::uint32_t slot = platform::allocate_thread_slot([](void* value) { destroyed = value; });
    ASSERT_NE(slot, platform::no_slot);
    int number = 0;
    for (const std::uint32_t where : {slot, platform::no_slot}) {
        destroyed = nullptr;
        std::thread{[&] {
            EXPECT_EQ(platform::thread_value(where), nullptr);
            EXPECT_TRUE(platform::set_thread_value(where, &number));
            EXPECT_EQ(platform::thread_value(where), &number);
        }}.join();
        EXPECT_EQ(destroyed, where == slot ? &number : nullptr);
        EXPECT_EQ(platform::thread_value(where), nullptr);
    }
    EXPECT_EQ(pthread_key_delete(static_cast<pthread_key_t>(slot)), 0);
}

} // namespace
} // namespace quenta
