// The size limits of the library, as the program checks them. The sizes are too large for a test with files.
#include "messages.hpp"
#include "sample_grid.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace quenta_program {
namespace {

constexpr std::size_t largest = std::numeric_limits<int>::max();

std::string refusal(std::size_t samples, const setting& chosen, std::size_t dimension = 1) {
    try {
        whole_steps("samples.csv", samples, chosen, dimension);
    } catch (const bad_input& wrong) {
        return wrong.what();
    }
    return "";
}

TEST(whole_steps, refuses_fewer_samples_than_one_step_needs) {
    ASSERT_EQ(supported_settings().size(), 56u);
    for (const setting& one : supported_settings()) {
        const std::size_t enough = static_cast<std::size_t>(one.m * one.m) + 1;
        EXPECT_EQ(whole_steps("", enough, one, 1), 1) << one.text();
        EXPECT_EQ(whole_steps("", 3 * enough, one, 1), static_cast<int>((3 * enough - 1) / (enough - 1))) << one.text();
        EXPECT_NE(refusal(enough - 1, one), "") << one.text();
        EXPECT_NE(refusal(0, one), "") << one.text();
    }
}

TEST(whole_steps, refuses_more_samples_than_an_index_counts) {
    const setting quarters{4, {0}};
    EXPECT_EQ(whole_steps("", largest, quarters, 1), (2147483647 - 1) / 16);
    EXPECT_EQ(refusal(largest + 1, quarters), "samples.csv: expected at most 2147483647 samples, got 2147483648");
    EXPECT_NE(refusal(std::numeric_limits<std::size_t>::max(), quarters), "");
}

TEST(whole_steps, refuses_more_coefficients_than_an_index_counts) {
    const setting trapezoid{1, {0, 1}}; // 3 coefficients per step, so at most 715827882 steps
    EXPECT_EQ(whole_steps("", 715827883, trapezoid, 1), 715827882);
    EXPECT_EQ(refusal(715827884, trapezoid),
              "samples.csv: expected at most 715827883 samples with the setting 1:0,1, got 715827884");
}

TEST(whole_steps, refuses_systems_too_large_for_an_index) {
    const setting rectangle{1, {1}}; // 2 slots per step and unknown
    EXPECT_EQ(whole_steps("", 21474836, rectangle, 10), 21474835);
    EXPECT_EQ(refusal(21474837, rectangle, 10),
              "samples.csv: expected at most 21474836 samples in 10 dimensions, got 21474837");
    const setting all_of_four{4, {0, 1, 2, 3, 4}}; // a block of order 6 D, so D is at most 7723
    EXPECT_EQ(whole_steps("", 17, all_of_four, 7723), 1);
    EXPECT_EQ(refusal(17, all_of_four, 7724),
              "samples.csv: expected at most 7723 dimensions with the setting 4:0,1,2,3,4, got 7724");
}

} // namespace
} // namespace quenta_program
