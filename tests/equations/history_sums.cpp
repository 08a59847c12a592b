// The sums of a history, from blocks and from functions, in C and in C++.
#include "equations/random_history.hpp"
#include "quenta_equations.hpp"
#include "support/bits.hpp"
#include "support/failures.hpp"
#include "support/fenced_array.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <span>
#include <utility>

namespace quenta_tests {

namespace {

constexpr double largest = std::numeric_limits<double>::max();

struct own_failure {
    int lag;
};

double largest_of(const std::vector<double>& values) {
    double found = 0.0;
    for (const double value : values)
        found = std::max(found, std::fabs(value));
    return found;
}

void expect_equal_to_rounding(const std::vector<double>& expected, const std::vector<double>& actual) {
    ASSERT_EQ(expected.size(), actual.size());
    const double tolerance = 1e-13 * largest_of(expected);
    for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_NEAR(expected[i], actual[i], tolerance) << "number " << i;
}

// ---- C ----

TEST(history, has_the_sums_of_plain_loops_for_every_shape_and_number_of_steps) {
    random_data random{20261123};
    int compared = 0;
    for (const auto& [rows, columns] : {std::pair{1, 1}, {1, 2}, {2, 1}, {2, 2}, {3, 5}, {5, 3}, {4, 9}, {17, 2}})
        for (const int steps : {1, 2, 3, 4, 5, 17, 31, 32, 33, 63, 64, 65, 96, 97, 100, 200, 257, 400}) {
            const random_history data{random, rows, columns, steps};
            SCOPED_TRACE(testing::PrintToString(data));
            expect_equal_to_rounding(data.direct_sums(), data.sums_of(data.create().get()));
            ++compared;
        }
    EXPECT_EQ(compared, 8 * 18);
}

// Blocks of direct sums have up to 128 steps (scalars) or 64 (matrices). Up to 16 or 8 such blocks are on one level;
// for more steps there are two levels, then three.
TEST(history, has_the_sums_of_plain_loops_on_both_sides_of_each_limit_of_its_blocks) {
    random_data random{20261124};
    int compared = 0;
    const auto expect = [&](int rows, int columns, int steps) {
        const random_history data{random, rows, columns, steps};
        SCOPED_TRACE(testing::PrintToString(data));
        expect_equal_to_rounding(data.direct_sums(), data.sums_of(data.create().get()));
        ++compared;
    };
    for (int steps = 1; steps <= 300; ++steps)
        expect(1, 1, steps);
    for (const int near : {512, 1024, 2048, 4096})
        for (const int steps : {near - 1, near, near + 1, near + 17})
            for (const auto& [rows, columns] : {std::pair{1, 1}, {1, 2}, {2, 1}, {3, 5}})
                if (near * rows * columns < 8'000)
                    expect(rows, columns, steps);
    expect(1, 1, 17'000);
    EXPECT_GT(compared, 330);
}

TEST(history, keeps_the_smallest_numbers_to_the_rounding_of_a_transform) {
    random_data random{20261133};
    for (const double size : {1e-290, 1e-307, 1e-310, 1e-320}) {
        random_history data{random, 1, 1, 600};
        for (double& entry : data.blocks)
            entry *= size;
        const std::vector<double> expected = data.direct_sums(), sums = data.sums_of(data.create().get());
        for (int n = 0; n < data.steps; ++n)
            ASSERT_NEAR(expected[std::size_t(n)], sums[std::size_t(n)], 1e-13 * 600 * size + 1e-321) << "step " << n;
    }
}

TEST(history, takes_values_that_depend_on_its_sums) {
    random_data random{20261125};
    random_history data{random, 2, 3, 300};
    const owned_history history = data.create();
    std::vector<double> sums(600);
    for (int n = 0; n < data.steps; ++n) {
        double* const sum = sums.data() + 2 * n;
        double* const x = data.x.data() + 3 * n;
        ASSERT_EQ(quenta_history_sum(history.get(), sum), QUENTA_EQUATION_SOLVED);
        x[0] = std::tanh(sum[0] + x[0]);
        x[1] = std::cos(sum[1]);
        x[2] = sum[0] > sum[1] ? 1.0 : -1.0;
        ASSERT_EQ(quenta_history_push(history.get(), x), QUENTA_EQUATION_SOLVED);
    }
    expect_equal_to_rounding(data.direct_sums(), sums);
}

TEST(history, writes_one_sum_as_often_as_it_is_asked_and_nothing_else) {
    random_data random{20261126};
    const random_history data{random, 3, 2, 100};
    const std::vector<double> expected = data.sums_of(data.create().get());
    const owned_history history = data.create();
    for (int n = 0; n < data.steps; ++n) {
        for (int repetition = 0; n % 3 == 0 && repetition < 2; ++repetition) { // other sums are left out
            fenced_array sum{3};
            ASSERT_EQ(quenta_history_sum(history.get(), sum.data()), QUENTA_EQUATION_SOLVED);
            EXPECT_TRUE(equal_bits(std::span{expected}.subspan(std::size_t(3 * n), 3), sum.values()));
            EXPECT_TRUE(sum.fences_hold());
        }
        ASSERT_EQ(quenta_history_push(history.get(), data.value(n)), QUENTA_EQUATION_SOLVED);
    }
    EXPECT_TRUE(std::all_of(expected.begin(), expected.begin() + 3, [](double first) { return first == 0.0; }));
}

// What a block function was asked for, and how it answers.
struct block_record {
    const random_history& data;
    int asked = 0, fails_at = -1;
    int (*failure)(int lag, double* block) = nullptr;

    static int write(void* context, int lag, double* block) {
        auto& self = *static_cast<block_record*>(context);
        EXPECT_EQ(lag, ++self.asked) << "expected ascending lags";
        const int count = self.data.rows * self.data.columns;
        EXPECT_TRUE(std::all_of(block, block + count, [](double entry) { return entry == 0.0; }));
        std::copy_n(self.data.block(lag), count, block);
        return lag == self.fails_at ? self.failure(lag, block) : 0;
    }
    int create(quenta_history** history) {
        return quenta_history_from_function(data.rows, data.columns, data.steps, write, this, history);
    }
};

TEST(history, from_a_function_is_the_same_as_from_blocks) {
    random_data random{20261127};
    for (const int steps : {1, 2, 77, 300}) {
        const random_history data{random, 2, 3, steps};
        block_record record{data};
        quenta_history* created = nullptr;
        ASSERT_EQ(record.create(&created), QUENTA_EQUATION_SOLVED);
        const owned_history history{created};
        EXPECT_EQ(record.asked, steps - 1);
        EXPECT_TRUE(equal_bits(data.sums_of(data.create().get()), data.sums_of(history.get())));
        EXPECT_EQ(record.asked, steps - 1) << "expected no call after the creation";
    }
}

TEST(history, from_a_function_that_fails_is_not_created) {
    random_data random{20261128};
    const random_history data{random, 2, 2, 10};
    quenta_history* const untouched = reinterpret_cast<quenta_history*>(&random);
    const auto expect = [&](int status, int (*failure)(int, double*)) {
        for (const int fails_at : {1, 4, 9}) {
            block_record record{data, 0, fails_at, failure};
            quenta_history* created = untouched;
            EXPECT_EQ(record.create(&created), status);
            EXPECT_EQ(created, untouched);
            EXPECT_EQ(record.asked, fails_at) << "expected no call after the one that failed";
        }
    };
    expect(QUENTA_EQUATION_STOPPED, [](int, double*) { return -3; });
    expect(QUENTA_EQUATION_NOT_FINITE, [](int, double* block) {
        block[3] = NAN;
        return 0;
    });
    expect(QUENTA_EQUATION_NOT_FINITE, [](int, double* block) {
        block[0] = -INFINITY;
        return 0;
    });
    expect(QUENTA_EQUATION_OUT_OF_MEMORY, [](int, double*) { return throw std::bad_alloc{}, 0; });
    block_record record{data, 0, 5, [](int lag, double*) {
                            return throw own_failure{lag}, 0;
                        }};
    quenta_history* created = untouched;
    const auto failure = failure_of<own_failure>([&] { record.create(&created); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->lag, 5);
    EXPECT_EQ(created, untouched);
}

TEST(history, reports_a_sum_that_overflows_and_keeps_the_others) {
    const std::vector<double> blocks(199, largest / 4.0);
    quenta_history* created = nullptr;
    ASSERT_EQ(quenta_history_from_blocks(1, 1, 200, blocks.data(), &created), QUENTA_EQUATION_SOLVED);
    const owned_history history{created};
    const double one = 1.0, expected[] = {0.0, 0.25, 0.5, 0.75, 1.0};
    for (int n = 0; n < 200; ++n) {
        fenced_array sum{1};
        const int status = quenta_history_sum(history.get(), sum.data());
        EXPECT_EQ(status, n <= 4 ? QUENTA_EQUATION_SOLVED : QUENTA_EQUATION_NOT_FINITE);
        EXPECT_EQ(sum.untouched(), n > 4);
        if (n <= 4) {
            EXPECT_EQ(sum.values()[0], expected[n] * largest);
        }
        ASSERT_EQ(quenta_history_push(history.get(), &one), QUENTA_EQUATION_SOLVED);
    }
}

// Only the sum of step 1 is too large, and all others are 0. But the first number is part of all transforms, which are
// those for the steps from 128 on.
TEST(history, reports_an_overflow_in_a_transform) {
    std::vector<double> blocks(255);
    blocks[0] = 1e200;
    quenta_history* created = nullptr;
    ASSERT_EQ(quenta_history_from_blocks(1, 1, 256, blocks.data(), &created), QUENTA_EQUATION_SOLVED);
    const owned_history history{created};
    for (int n = 0; n < 256; ++n) {
        double sum = 1.0;
        const bool finite = n == 0 || (n > 1 && n < 128);
        EXPECT_EQ(quenta_history_sum(history.get(), &sum),
                  finite ? QUENTA_EQUATION_SOLVED : QUENTA_EQUATION_NOT_FINITE);
        EXPECT_EQ(sum, finite ? 0.0 : 1.0) << "step " << n;
        const double x = n == 0 ? 1e150 : 0.0;
        ASSERT_EQ(quenta_history_push(history.get(), &x), QUENTA_EQUATION_SOLVED);
    }
}

// ---- C++ ----

std::vector<double> sums_in_cpp(quenta::history& history, const random_history& data) {
    std::vector<double> sums;
    for (int n = 0; n < data.steps; ++n) {
        EXPECT_EQ(history.steps_done(), n);
        const std::span<const double> sum = history.sum();
        sums.insert(sums.end(), sum.begin(), sum.end());
        history.push(std::span(data.value(n), std::size_t(data.columns)));
    }
    return sums;
}

TEST(history_of_cpp, is_the_same_as_that_of_c) {
    random_data random{20261129};
    for (const auto& [rows, columns] : {std::pair{1, 1}, {2, 3}, {3, 1}})
        for (const int steps : {1, 2, 150}) {
            const random_history data{random, rows, columns, steps};
            SCOPED_TRACE(testing::PrintToString(data));
            const std::vector<double> expected = data.sums_of(data.create().get());
            quenta::history from_blocks(data.blocks, rows, columns, steps);
            EXPECT_TRUE(equal_bits(expected, sums_in_cpp(from_blocks, data)));
            quenta::history from_function(
                [&](int lag, std::span<double> block) { std::copy_n(data.block(lag), block.size(), block.begin()); },
                rows, columns, steps);
            EXPECT_TRUE(equal_bits(expected, sums_in_cpp(from_function, data)));
            if (rows == 1 && columns == 1) {
                quenta::history of_numbers([&](int lag) { return *data.block(lag); }, steps);
                EXPECT_TRUE(equal_bits(expected, sums_in_cpp(of_numbers, data)));
            }
        }
}

TEST(history_of_cpp, takes_numbers_and_can_be_moved) {
    quenta::history original([](int lag) { return 1.0 / lag; }, 4);
    original.push(6.0);
    quenta::history moved = std::move(original);
    moved.push(12.0);
    EXPECT_EQ(moved.sum()[0], 6.0 / 2.0 + 12.0);
    const auto moved_from = failure_of<quenta::equation_error>([&] { original.sum(); });
    ASSERT_TRUE(moved_from.has_value());
    EXPECT_EQ(moved_from->status, QUENTA_EQUATION_NULL_POINTER);
    original = std::move(moved);
    original.push(0.0);
    EXPECT_EQ(original.sum()[0], 6.0 / 3.0 + 12.0 / 2.0);
    EXPECT_EQ(original.steps_done(), 3);
    EXPECT_NE(original.get(), nullptr);
}

TEST(history_of_cpp, passes_on_what_its_function_throws) {
    const auto failure = failure_of<own_failure>(
        [] { quenta::history([](int lag) { return lag < 3 ? 1.0 : throw own_failure{lag}; }, 9); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->lag, 3);
}

TEST(history_of_cpp, throws_an_error_that_names_what_was_expected) {
    const auto expect = [](int status, const auto& act) {
        const auto error = failure_of<quenta::equation_error>(act);
        ASSERT_TRUE(error.has_value()) << status;
        EXPECT_EQ(error->status, status) << error->what();
        EXPECT_STREQ(error->what(), quenta_equations_error_text(status));
    };
    const auto zero = [](int, std::span<double>) {
    };
    const std::vector<double> six(6, 1.0), with_nan{1.0, NAN}, none;
    expect(QUENTA_EQUATION_BAD_DIMENSION, [&] { quenta::history(zero, 0, 1, 3); });
    expect(QUENTA_EQUATION_BAD_DIMENSION, [&] { quenta::history(zero, 1, -1, 3); });
    expect(QUENTA_EQUATION_BAD_STEPS, [&] { quenta::history(zero, 1, 1, 0); });
    expect(QUENTA_EQUATION_NOT_FINITE, [] { quenta::history([](int lag) { return std::log(lag - 2.0); }, 3); });
    for (const int steps : {0, -1, std::numeric_limits<int>::min()})
        expect(QUENTA_EQUATION_BAD_STEPS, [&] { quenta::history(six, 1, 2, steps); });
    expect(QUENTA_EQUATION_BAD_DIMENSION, [&] { quenta::history(six, 0, 2, 4); });
    for (const int steps : {1, 2, 3, 5})
        expect(QUENTA_EQUATION_BAD_BLOCKS, [&] { quenta::history(six, 2, 1, steps); });
    expect(QUENTA_EQUATION_BAD_BLOCKS, [&] { quenta::history(none, 2, 1, 2); });
    expect(QUENTA_EQUATION_BAD_BLOCKS, [&] { quenta::history(with_nan, 1, 1, 3); });

    quenta::history history(six, 3, 2, 2);
    expect(QUENTA_EQUATION_BAD_PUSH, [&] { history.push(1.0); });
    expect(QUENTA_EQUATION_BAD_PUSH, [&] { history.push(six); });
    expect(QUENTA_EQUATION_BAD_PUSH, [&] { history.push(with_nan); });
    EXPECT_EQ(history.steps_done(), 0);
    for (int n = 0; n < 2; ++n)
        history.push(std::span(six).first(2));
    expect(QUENTA_EQUATION_NO_STEP_LEFT, [&] { history.push(std::span(six).first(2)); });
    expect(QUENTA_EQUATION_NO_STEP_LEFT, [&] { history.sum(); });
    EXPECT_EQ(history.steps_done(), 2);
}

} // namespace

} // namespace quenta_tests
