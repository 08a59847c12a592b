#include "utility/integers.hpp"

#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <cstdint>

namespace quenta {
namespace {

using quenta_tests::failure_of;

TEST(integers, products_and_sums_wrap_at_32_bits) {
    EXPECT_EQ(wrapping_product(65536, 65536), 0);
    EXPECT_EQ(wrapping_product(46341, 46341), -2147479015);
    EXPECT_EQ(wrapping_product(-3, 7), -21);
    EXPECT_EQ(wrapping_product(INT32_MIN, -1), INT32_MIN);
    EXPECT_EQ(wrapping_sum(INT32_MIN, -1), INT32_MAX);
    EXPECT_EQ(wrapping_sum(INT32_MAX, 1), INT32_MIN);
    EXPECT_EQ(wrapping_sum(-5, 3), -2);
}

TEST(integers, a_quotient_is_truncated_towards_zero) {
    EXPECT_EQ(faulting_quotient(7, 4), 1);
    EXPECT_EQ(faulting_quotient(-7, 4), -1);
    EXPECT_EQ(faulting_quotient(7, -4), -1);
    EXPECT_EQ(faulting_quotient(-1, 16), 0);
    EXPECT_EQ(faulting_quotient(INT32_MIN, -1), INT32_MIN);
}

TEST(integers, a_length_of_2_31_or_more_raises_a_conversion_failure) {
    EXPECT_EQ(guarded_int(0), 0);
    EXPECT_EQ(guarded_int(0x7FFFFFFF), 0x7FFFFFFF);
    const std::uint64_t lengths[] = {0x80000000, 0xFFFFFFFF, 0x100000000, static_cast<std::uint64_t>(-1)};
    for (const std::uint64_t length : lengths) {
        const int line = __LINE__ + 1;
        const auto raised = failure_of<conversion_failure>([&] { guarded_int(length); });
        ASSERT_TRUE(raised) << length;
        EXPECT_STREQ(raised->what(), "Conversion positive overflow");
        EXPECT_EQ(raised->where.line, line);
    }
}

} // namespace
} // namespace quenta
