// Histories whose arrays have more than 2^31 elements. An index of 32 bits would access a wrong element or memory
// outside the array. The arrays are pages of zeros, which use memory only after they are written. The pages are large
// because the whole kernel is read.
//
// The spectra are shorter, since transforms of this length would take minutes.
#include "reference/toeplitz_history.hpp"
#include "support/bits.hpp"
#include "support/mapped_doubles.hpp"
#include "support/random_data.hpp"
#include "support/replaced_new.hpp"
#include "toeplitz_history/toeplitz_history.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <span>
#include <vector>

namespace {

std::array<std::optional<quenta_tests::mapped_doubles>, 4> large_blocks;

} // namespace

void* quenta_tests::allocate_block(std::size_t bytes, std::size_t alignment) {
    if (bytes < std::size_t{1} << 20)
        return heap_block(bytes, alignment);
    for (auto& block : large_blocks)
        if (!block && block.emplace(bytes / sizeof(double), quenta_tests::page_size::large).start != nullptr)
            return block->start;
    throw std::bad_alloc{};
}

void quenta_tests::release_block(void* block) noexcept {
    for (auto& large : large_blocks)
        if (large && large->start == block)
            return large.reset();
    release_heap_block(block);
}

namespace quenta {

namespace {

using quenta_tests::equal_bits;
using quenta_tests::random_data;

constexpr std::size_t many = std::size_t{1} << 31;

// Makes push number i, which has s = i AND -i sources and the given number of targets. Expects the same sums as in a
// short history in which this block is the first of its size.
void expect_sums_of_first_block(ToeplitzHistory& history, random_data& data, std::int32_t i, int targets) {
    const int s = i & -i, p = history.p, q = history.q;
    SCOPED_TRACE(::testing::Message() << "i " << i << ", s " << s << ", targets " << targets);
    const std::vector<double> x = data.uniform(std::size_t(s * q));
    reference::toeplitz_history reference_history(s + targets, p, q);
    std::copy_n(history.kernel.begin(), reference_history.kernel.size(), reference_history.kernel.begin());
    for (int j = 0; j < s; ++j)
        reference_history.push({x.begin() + j * q, x.begin() + (j + 1) * q});

    const std::size_t first_source = std::size_t(i - s) * std::size_t(q), first_sum = std::size_t(i) * std::size_t(p);
    ASSERT_GT(std::min(first_source, first_sum), many);
    std::copy(x.begin(), x.end() - q, history.pushed.begin() + std::ptrdiff_t(first_source));
    std::fill_n(history.sums.begin() + std::ptrdiff_t(first_sum), targets * p, 0.0);
    history.count = i - 1;
    history.push({std::size_t(q), x.data() + (s - 1) * q});
    EXPECT_TRUE(equal_bits(x, std::span{history.pushed}.subspan(first_source, x.size())));
    for (int t = 0; t < targets; ++t) {
        const view<double> sum = history.history_at(i + t);
        EXPECT_TRUE(equal_bits(std::span{reference_history.sums}.subspan(std::size_t((s + t) * p), sum.length),
                               {sum.pointer, sum.length}));
    }
}

// Some systems limit the address space of a process.
bool has_address_space() {
    return quenta_tests::mapped_doubles{3 * many}.start != nullptr;
}

TEST(history_memory, sums_and_pushed_values_may_have_more_than_2_31_elements) {
    if (!has_address_space())
        GTEST_SKIP() << "not enough address space for the arrays";
    constexpr int n = (1 << 30) - 1, p = 3, q = 4, lags = 64;
    random_data data{20261122};
    ToeplitzHistory history;
    history.init(lags, p, q);
    const std::vector<double> kernel = data.uniform(history.kernel.size());
    std::copy(kernel.begin(), kernel.end(), history.kernel.begin()); // longer lags are not read
    history.n = n;
    history.sums.resize(std::size_t{n} * p);
    history.pushed.resize(std::size_t{n} * q);
    expect_sums_of_first_block(history, data, n - 95, 32); // transformed
    EXPECT_FALSE(history.cache_re.at(0).empty());
    expect_sums_of_first_block(history, data, n - 15, 15);
    expect_sums_of_first_block(history, data, n - 1, 1);
}

TEST(history_memory, the_kernel_may_have_more_than_2_31_elements) {
    if (!has_address_space())
        GTEST_SKIP() << "not enough address space for the arrays";
    constexpr int s = 1 << 22, n = s + 1, p = 8, q = 72;
    ToeplitzHistory history;
    history.init(2, p, q); // also allocates the scratch block in columns
    history.n = n;
    for (const auto& [array, length] : {std::pair{&history.kernel, p * q}, {&history.sums, p}, {&history.pushed, q}})
        array->resize(std::size_t{n} * std::size_t(length));
    ASSERT_GT(history.kernel.size(), many);

    // The push has one target. Each value contributes with a different lag, and only those below are not zero.
    double sum = 0.0;
    for (const int lag : {1, s / 3, s - 77, s - 1, s}) {
        history.kernel_row(lag, p - 1).at(q - 2) = lag;
        history.pushed[std::size_t(s - lag) * q + q - 2] = 3.0;
        sum += 3.0 * lag;
    }
    history.count = s - 1;
    const std::vector<double> last(history.pushed.end() - 2 * q, history.pushed.end() - q);
    history.push({last.size(), last.data()});
    const view<double> sums = history.history_at(s);
    for (int R = 0; R < p; ++R)
        EXPECT_EQ(sums.at(std::uint64_t(R)), R == p - 1 ? sum : 0.0) << "row " << R;
}

} // namespace

} // namespace quenta
