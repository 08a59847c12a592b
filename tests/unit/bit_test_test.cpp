#include "utility/bit_test.hpp"

#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace quenta {
namespace {

static_assert(bit_test(4, 2) && !bit_test(4, 1));

TEST(bit_test, reads_every_bit) {
    for (std::uint64_t set = 0; set < 32; ++set)
        for (std::uint64_t position = 0; position < 32; ++position) {
            const std::uint32_t word = std::uint32_t{1} << set;
            EXPECT_EQ(bit_test(word, position), position == set);
            EXPECT_EQ(bit_test(~word, position), position != set);
        }
}

TEST(bit_test, a_position_above_31_raises_an_assertion_failure) {
    const std::uint64_t positions[] = {32, 33, 63, 64, std::uint64_t{1} << 32, UINT64_MAX};
    for (const std::uint64_t position : positions) {
        const auto raised = quenta_tests::failure_of<assertion_failure>([&] { bit_test(0xFFFFFFFF, position); });
        ASSERT_TRUE(raised) << position;
        EXPECT_STREQ(raised->what(), "bad bit position");
    }
}

} // namespace
} // namespace quenta
