#include "utility/failure.hpp"

#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace quenta {
namespace {

using quenta_tests::failure_of;

TEST(failure, an_index_failure_has_the_index_the_length_and_the_position_in_the_code) {
    const int line = __LINE__ + 1;
    const auto raised = failure_of<index_failure>([] { fail_index(7, 5, code_position::here()); });
    ASSERT_TRUE(raised);
    EXPECT_EQ(raised->index, 7u);
    EXPECT_EQ(raised->length, 5u);
    EXPECT_EQ(raised->where.line, line);
    EXPECT_TRUE(std::string_view{raised->where.file}.ends_with("failure_test.cpp")) << raised->where.file;
    EXPECT_EQ(raised->what(), "index 7, length 5, at " + std::string{raised->where.file} + ":" + std::to_string(line));
}

TEST(failure, the_longest_index_message_is_not_truncated) {
    const auto raised = failure_of<index_failure>([] {
        fail_index(UINT64_MAX, UINT64_MAX - 1, {"source/of/the/failure.cpp", 99999});
    });
    ASSERT_TRUE(raised);
    EXPECT_STREQ(raised->what(),
                 "index 18446744073709551615, length 18446744073709551614, at source/of/the/failure.cpp:99999");
}

TEST(failure, a_message_that_is_too_long_is_truncated) {
    const std::string path(1000, 'x');
    const auto raised = failure_of<index_failure>([&] { fail_index(7, 5, {path.c_str(), 1}); });
    ASSERT_TRUE(raised);
    EXPECT_LT(std::string{raised->what()}.size(), 200u);
}

TEST(failure, a_conversion_failure_has_the_message_and_the_position_in_the_code) {
    const int line = __LINE__ + 1;
    const auto raised = failure_of<conversion_failure>([] { fail_conversion("too far", code_position::here()); });
    ASSERT_TRUE(raised);
    EXPECT_STREQ(raised->what(), "too far");
    EXPECT_EQ(raised->where.line, line);
    EXPECT_TRUE(std::string_view{raised->where.file}.ends_with("failure_test.cpp")) << raised->where.file;
}

TEST(failure, a_false_requirement_raises_an_assertion_failure_with_its_position_in_the_code) {
    const int line = __LINE__ + 1;
    const auto raised = failure_of<assertion_failure>([] { require(false, "bad luck"); });
    ASSERT_TRUE(raised);
    EXPECT_STREQ(raised->what(), "bad luck");
    EXPECT_EQ(raised->where.line, line);
    EXPECT_TRUE(std::string_view{raised->where.file}.ends_with("failure_test.cpp")) << raised->where.file;
    EXPECT_NO_THROW(require(true, "bad luck"));
}

TEST(failure, a_requirement_without_a_message_has_an_empty_message) {
    const auto raised = failure_of<assertion_failure>([] { require(false); });
    ASSERT_TRUE(raised);
    EXPECT_STREQ(raised->what(), "");
}

TEST(failure, every_failure_is_a_standard_exception) {
    EXPECT_THROW(fail_index(0, 0, code_position::here()), std::exception);
    EXPECT_THROW(fail_conversion("", code_position::here()), std::exception);
    EXPECT_THROW(fail_assertion("", code_position::here()), std::exception);
}

} // namespace
} // namespace quenta
