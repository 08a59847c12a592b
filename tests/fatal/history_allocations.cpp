// After a failed allocation, a history can be initialized again and then gives the correct sums. After a failed init it
// is empty.
#include "support/bits.hpp"
#include "support/failures.hpp"
#include "support/random_data.hpp"
#include "support/replaced_new.hpp"
#include "toeplitz_history/toeplitz_history.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <new>
#include <vector>

namespace {

constexpr long no_limit = std::numeric_limits<long>::max();
long allocations_left = no_limit;

} // namespace

void* quenta_tests::allocate_block(std::size_t bytes, std::size_t alignment) {
    if (allocations_left == 0)
        throw std::bad_alloc{};
    --allocations_left;
    void* const block = std::aligned_alloc(alignment, (bytes + alignment) / alignment * alignment);
    if (block == nullptr)
        throw std::bad_alloc{};
    return block;
}

void quenta_tests::release_block(void* block) noexcept {
    std::free(block);
}

namespace quenta {

namespace {

void march(ToeplitzHistory& history, int n, int rows, const std::vector<double>& kernel, const std::vector<double>& x) {
    history.init(n, rows, rows);
    std::copy(kernel.begin(), kernel.end(), history.kernel.begin());
    for (int step = 0; step < n; ++step)
        history.push({std::uint64_t(rows), x.data() + step * rows});
}

TEST(history, can_be_initialized_again_after_any_failing_allocation) {
    quenta_tests::random_data random{20260811};
    constexpr int n = 300; // transforms of several sizes, with cached kernels and without
    for (const int rows : {1, 2, 5}) {
        const std::vector<double> kernel = random.uniform(std::size_t(n * rows * rows)),
                                  x = random.uniform(std::size_t(n * rows));
        ToeplitzHistory reference;
        march(reference, n, rows, kernel, x);
        const std::vector<double> expected(reference.sums.begin(), reference.sums.end());
        int failures = 0;
        for (bool failed = true; failed; ++failures) {
            ToeplitzHistory history;
            allocations_left = failures;
            try {
                march(history, n, rows, kernel, x);
                failed = false;
            } catch (const std::bad_alloc&) {
            }
            allocations_left = no_limit;
            march(history, n, rows, kernel, x);
            ASSERT_TRUE(quenta_tests::equal_bits(expected, {history.sums.data(), history.sums.size()}))
                << "blocks of " << rows << " rows, failed allocation " << failures;
        }
        EXPECT_GT(failures, 20);
    }
}

TEST(history, is_empty_after_an_init_that_fails) {
    for (const int rows : {1, 3}) {
        int failures = 0;
        for (;; ++failures) {
            ToeplitzHistory history;
            const vector_kernels* const chosen = history.kernels = &vector_kernels::of<baseline>();
            history.init(40, 1, 1);
            history.set_kernel_provider(&history, [](void*, std::int32_t, ToeplitzHistory&) {});
            allocations_left = failures;
            const bool failed =
                quenta_tests::failure_of<std::bad_alloc>([&] { history.init(2000, rows, rows); }).has_value();
            allocations_left = no_limit;
            if (!failed)
                break;
            SCOPED_TRACE(::testing::Message() << "blocks of " << rows << " rows, failed allocation " << failures);
            EXPECT_EQ(history.n, 0);
            EXPECT_EQ(history.p, 0);
            EXPECT_EQ(history.q, 0);
            EXPECT_EQ(history.count, 0);
            EXPECT_EQ(history.provider, nullptr);
            EXPECT_EQ(history.kernels, chosen);
            EXPECT_TRUE(history.kernel.empty() && history.sums.empty() && history.pushed.empty());
            const std::vector<double> x(std::size_t(rows), 1.0);
            for (int push = 0; push < 40; ++push)
                EXPECT_TRUE(quenta_tests::failure_of<index_failure>([&] { history.push({x.size(), x.data()}); }));
            EXPECT_TRUE(quenta_tests::failure_of<index_failure>([&] { history.history_at(0); }));
            EXPECT_TRUE(quenta_tests::failure_of<index_failure>([&] { history.kernel_block(0); }));
            const std::vector<double> kernel(std::size_t(2 * rows * rows), 3.0);
            march(history, 2, rows, kernel, std::vector<double>(std::size_t(2 * rows), 1.0));
            EXPECT_EQ(history.history_at(1).at(0), 3.0 * rows);
        }
        EXPECT_GT(failures, 2);
    }
}

} // namespace

} // namespace quenta
