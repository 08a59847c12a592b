#include "utility/view.hpp"

#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string_view>

namespace quenta {
namespace {

using quenta_tests::failure_of;

struct view_test : ::testing::Test {
    std::array<double, 5> values{0, 1, 2, 3, 4};
    view<double> all{values.size(), values.data()};
};

TEST_F(view_test, at_returns_the_element_at_every_index_inside) {
    for (std::uint64_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(&all.at(i), &values[i]);
}

TEST_F(view_test, an_index_outside_raises_a_failure_with_index_length_and_position_of_the_caller) {
    for (const std::uint64_t index : {std::uint64_t{5}, std::uint64_t{6}, UINT64_MAX}) {
        const int line = __LINE__ + 1;
        const auto raised = failure_of<index_failure>([&] { all.at(index); });
        ASSERT_TRUE(raised) << index;
        EXPECT_EQ(raised->index, index);
        EXPECT_EQ(raised->length, 5u);
        EXPECT_EQ(raised->where.line, line);
        EXPECT_TRUE(std::string_view{raised->where.file}.ends_with("view_test.cpp")) << raised->where.file;
    }
}

TEST_F(view_test, an_empty_view_has_no_elements) {
    const view<double> none;
    EXPECT_EQ(none.length, 0u);
    EXPECT_THROW(none.at(0), index_failure);
    EXPECT_EQ(none.slice(0, 0).length, 0u);
}

TEST_F(view_test, every_slice_that_fits_has_its_position_and_length) {
    for (std::uint64_t first = 0; first <= 5; ++first)
        for (std::uint64_t count = 0; first + count <= 5; ++count) {
            const view<double> part = all.slice(first, count);
            EXPECT_EQ(part.length, count);
            EXPECT_EQ(part.pointer, values.data() + first);
        }
}

TEST_F(view_test, a_slice_that_does_not_fit_raises_an_index_failure_with_the_first_missing_index) {
    struct bounds {
        std::uint64_t first, count, index; // index: the first that is missing
    };
    const bounds cases[] = {
        {0, 6, 5},
        {1, 5, 5},
        {4, 2, 5},
        {5, 1, 5},
        {6, 0, 6},
        {6, 1, 6},
        {0, UINT64_MAX, 5},
        {1, UINT64_MAX, 5},
        {2, UINT64_MAX - 1, 5},
        {UINT64_MAX, 0, UINT64_MAX},
        {UINT64_MAX, 1, UINT64_MAX},
        {UINT64_MAX, 2, UINT64_MAX},
        {UINT64_MAX - 1, 5, UINT64_MAX - 1},
        {UINT64_MAX, UINT64_MAX, UINT64_MAX},
    };
    for (const bounds& c : cases) {
        const int line = __LINE__ + 1;
        const auto raised = failure_of<index_failure>([&] { all.slice(c.first, c.count); });
        ASSERT_TRUE(raised) << c.first << ", " << c.count;
        EXPECT_EQ(raised->index, c.index) << c.first << ", " << c.count;
        EXPECT_EQ(raised->length, 5u);
        EXPECT_EQ(raised->where.line, line);
    }
}

TEST_F(view_test, a_slice_of_a_slice_has_the_inner_bounds) {
    const view<double> inner = all.slice(1, 3);
    EXPECT_EQ(inner.slice(2, 1).at(0), 3.0);
    EXPECT_THROW(inner.slice(2, 2), index_failure);
    EXPECT_THROW(inner.at(3), index_failure);
}

TEST_F(view_test, a_view_converts_to_a_read_only_view) {
    const view<const double> read_only = all;
    EXPECT_EQ(read_only.length, all.length);
    EXPECT_EQ(read_only.pointer, all.pointer);
}

} // namespace
} // namespace quenta
