#include "utility/subset_range.hpp"

#include "reference/lagrange.hpp"
#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::failure_of;

// Element i is i.
std::array<double, 31> counted_elements() {
    std::array<double, 31> elements{};
    std::iota(elements.begin(), elements.end(), 0.0);
    return elements;
}

const std::array<double, 31> elements = counted_elements();

// Expects the subsets of the reference in its order, both as words and as elements.
void expect_lexicographic_order(std::size_t n, std::size_t size) {
    SCOPED_TRACE(::testing::Message() << "n " << n << ", size " << size);
    subset_range range{static_cast<int>(size), elements.data(), n};
    const std::vector<std::vector<std::size_t>> expected = reference::subsets(n, size);
    ASSERT_FALSE(expected.empty());
    for (const std::vector<std::size_t>& positions : expected) {
        ASSERT_FALSE(range.empty());
        std::uint32_t word = 0;
        for (const std::size_t position : positions)
            word |= std::uint32_t{1} << position;
        ASSERT_EQ(range.bits, word);
        std::vector<std::size_t> walked;
        for (const double element : range.front())
            walked.push_back(static_cast<std::size_t>(element));
        ASSERT_EQ(walked, positions);
        ASSERT_EQ(range.front().size(), static_cast<int>(size));
        range.pop_front();
    }
    EXPECT_TRUE(range.empty());
    EXPECT_EQ(range.bits, 0x80000000u);
}

TEST(subset_range, visits_all_subsets_in_lexicographic_order) {
    for (std::size_t n = 0; n <= 12; ++n)
        for (std::size_t size = 0; size <= n; ++size)
            expect_lexicographic_order(n, size);
}

TEST(subset_range, works_for_lists_of_up_to_31_elements) {
    for (std::size_t n = 28; n <= 31; ++n)
        for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{3}, n - 2, n - 1, n})
            expect_lexicographic_order(n, size);
}

TEST(subset_range, the_pairs_of_four_elements_have_these_words) {
    std::vector<std::uint32_t> words;
    for (subset_range range{2, elements.data(), 4}; !range.empty(); range.pop_front())
        words.push_back(range.bits);
    EXPECT_EQ(words, (std::vector<std::uint32_t>{3, 5, 9, 6, 10, 12}));
}

TEST(subset_range, the_empty_subset_is_the_only_one_of_its_size) {
    for (std::uint64_t n = 0; n <= 31; ++n) {
        subset_range range{0, elements.data(), n};
        ASSERT_FALSE(range.empty());
        EXPECT_EQ(range.bits, 0u);
        EXPECT_EQ(range.front().size(), 0);
        range.pop_front();
        EXPECT_TRUE(range.empty());
    }
}

TEST(subset_range, access_past_the_end_raises_an_assertion_failure) {
    subset_range range{2, elements.data(), 2};
    range.pop_front();
    ASSERT_TRUE(range.empty());
    EXPECT_TRUE(failure_of<assertion_failure>([&] { range.pop_front(); }));
    EXPECT_TRUE(failure_of<assertion_failure>([&] { range.front(); }));
}

TEST(subset_range, a_bit_beyond_the_list_raises_an_assertion_failure) {
    subset_range range{1, elements.data(), 4};
    for (int position = 4; position <= 30; ++position) {
        range.bits = 1u << position | 1u;
        const auto raised = failure_of<assertion_failure>([&] { range.front(); });
        ASSERT_TRUE(raised) << position;
        EXPECT_STREQ(raised->what(), "1 bits found in positions not corresponsing to elements in set");
    }
    range.bits = 0xF;
    EXPECT_EQ(range.front().size(), 4);
}

TEST(subset_range, a_size_above_the_length_raises_an_assertion_failure_at_the_front) {
    const subset_range range{3, elements.data(), 2};
    EXPECT_TRUE(failure_of<assertion_failure>([&] { range.front(); }));
}

// A range at build time.
constexpr double sum_of_products_of_pairs() {
    constexpr std::array<double, 3> list{2, 3, 5};
    double sum = 0;
    for (subset_range range{2, list.data(), 3}; !range.empty(); range.pop_front()) {
        double product = 1;
        for (const double element : range.front())
            product *= element;
        sum += product;
    }
    return sum;
}
static_assert(sum_of_products_of_pairs() == 6 + 10 + 15);

} // namespace
} // namespace quenta
