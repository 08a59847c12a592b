// Thread slots: when the system has no keys left, and the values of a thread.
#include "support/every_key_taken.hpp"
#include "utility/platform.hpp"

#include <gtest/gtest.h>

#include <thread>

#include <pthread.h>

namespace quenta {
namespace {

TEST(platform, allocate_thread_slot_returns_no_slot_if_the_system_has_no_keys_left) {
    {
        const quenta_tests::every_key_taken no_key_is_left;
        EXPECT_EQ(platform::allocate_thread_slot(nullptr), platform::no_slot);
    }
    const std::uint32_t slot = platform::allocate_thread_slot(nullptr);
    EXPECT_NE(slot, platform::no_slot);
    EXPECT_EQ(pthread_key_delete(static_cast<pthread_key_t>(slot)), 0);
}

void* destroyed = nullptr;

TEST(platform, each_thread_has_its_own_value_and_the_destructor_receives_it_when_the_thread_ends) {
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
