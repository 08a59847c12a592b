// Wrong arguments of the functions of histories: the status, and that nothing is called, written or changed.
#include "equations/random_history.hpp"
#include "support/bits.hpp"
#include "support/fenced_array.hpp"

#include <climits>
#include <cmath>
#include <limits>
#include <vector>

namespace quenta_tests {

namespace {

const double not_finite[] = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity()};

int calls = 0;

int zero(void*, int, double*) {
    ++calls;
    return 0;
}

class history_refusals : public testing::Test {
protected:
    void expect_new(int status, int rows, int columns, int steps) {
        SCOPED_TRACE(testing::Message() << rows << " rows, " << columns << " columns, " << steps << " steps");
        EXPECT_EQ(quenta_history_from_blocks(rows, columns, steps, blocks.data(), &created), status);
        EXPECT_EQ(quenta_history_from_function(rows, columns, steps, zero, nullptr, &created), status);
        EXPECT_EQ(created, untouched);
        EXPECT_EQ(calls, 0);
    }

    std::vector<double> blocks = std::vector<double>(12, 1.0);
    quenta_history* const untouched = reinterpret_cast<quenta_history*>(&blocks);
    quenta_history* created = untouched;
};

TEST_F(history_refusals, of_sizes) {
    for (const int size : {0, -1, INT_MIN, 10'001, INT_MAX}) {
        expect_new(QUENTA_EQUATION_BAD_DIMENSION, size, 1, 3);
        expect_new(QUENTA_EQUATION_BAD_DIMENSION, 1, size, 3);
        expect_new(QUENTA_EQUATION_BAD_DIMENSION, size, size, 0);
    }
    for (const int steps : {0, -1, INT_MIN, 100'000'001, INT_MAX})
        expect_new(QUENTA_EQUATION_BAD_STEPS, 2, 3, steps);
}

TEST_F(history_refusals, of_null_pointers) {
    EXPECT_EQ(quenta_history_from_blocks(1, 1, 3, nullptr, &created), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(quenta_history_from_blocks(1, 1, 3, blocks.data(), nullptr), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(quenta_history_from_function(1, 1, 3, nullptr, nullptr, &created), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(quenta_history_from_function(1, 1, 3, zero, nullptr, nullptr), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(created, untouched);
    EXPECT_EQ(calls, 0);
    fenced_array sum{2};
    EXPECT_EQ(quenta_history_sum(nullptr, sum.data()), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_TRUE(sum.untouched());
    EXPECT_EQ(quenta_history_push(nullptr, blocks.data()), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(quenta_history_steps_done(nullptr), 0);
    quenta_history_destroy(nullptr);

    ASSERT_EQ(quenta_history_from_blocks(2, 1, 3, blocks.data(), &created), QUENTA_EQUATION_SOLVED);
    EXPECT_EQ(quenta_history_sum(created, nullptr), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(quenta_history_push(created, nullptr), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(quenta_history_steps_done(created), 0);
    quenta_history_destroy(created);
}

TEST_F(history_refusals, of_blocks_that_are_not_finite) {
    for (const double value : not_finite)
        for (double& entry : blocks) {
            entry = value;
            EXPECT_EQ(quenta_history_from_blocks(2, 3, 3, blocks.data(), &created), QUENTA_EQUATION_BAD_BLOCKS);
            entry = 1.0;
            EXPECT_EQ(created, untouched);
        }
    blocks[6] = not_finite[0]; // is not in the blocks of two steps
    EXPECT_EQ(quenta_history_from_blocks(2, 3, 2, blocks.data(), &created), QUENTA_EQUATION_SOLVED);
    quenta_history_destroy(created);
}

TEST_F(history_refusals, of_pushes_that_are_not_finite_change_nothing) {
    random_data random{20261130};
    const random_history data{random, 2, 3, 70};
    const std::vector<double> expected = data.sums_of(data.create().get());
    const owned_history history = data.create();
    for (int n = 0; n < data.steps; ++n) {
        for (const double value : not_finite)
            for (std::size_t c = 0; c < 3; ++c) {
                std::vector<double> x(3, 1.0);
                x[c] = value;
                EXPECT_EQ(quenta_history_push(history.get(), x.data()), QUENTA_EQUATION_BAD_PUSH);
            }
        ASSERT_EQ(quenta_history_steps_done(history.get()), n);
        double sum[2];
        ASSERT_EQ(quenta_history_sum(history.get(), sum), QUENTA_EQUATION_SOLVED);
        EXPECT_TRUE(equal_bits(std::span{expected}.subspan(std::size_t(2 * n), 2), sum));
        ASSERT_EQ(quenta_history_push(history.get(), data.value(n)), QUENTA_EQUATION_SOLVED);
    }
}

TEST_F(history_refusals, after_the_last_step) {
    for (const int steps : {1, 2, 64}) {
        random_data random{20261131};
        const random_history data{random, 2, 1, steps};
        const owned_history history = data.create();
        data.sums_of(history.get());
        for (int repetition = 0; repetition < 2; ++repetition) {
            fenced_array sum{2};
            EXPECT_EQ(quenta_history_steps_done(history.get()), steps);
            EXPECT_EQ(quenta_history_sum(history.get(), sum.data()), QUENTA_EQUATION_NO_STEP_LEFT);
            EXPECT_TRUE(sum.untouched());
            EXPECT_EQ(quenta_history_push(history.get(), data.value(0)), QUENTA_EQUATION_NO_STEP_LEFT);
        }
    }
}

TEST_F(history_refusals, of_one_step_need_no_blocks) {
    ASSERT_EQ(quenta_history_from_blocks(2, 1, 1, nullptr, &created), QUENTA_EQUATION_SOLVED);
    double sum[2] = {1.0, 1.0};
    EXPECT_EQ(quenta_history_sum(created, sum), QUENTA_EQUATION_SOLVED);
    EXPECT_TRUE(sum[0] == 0.0 && sum[1] == 0.0);
    EXPECT_EQ(quenta_history_push(created, sum), QUENTA_EQUATION_SOLVED);
    quenta_history_destroy(created);
    EXPECT_EQ(quenta_history_from_function(2, 1, 1, zero, nullptr, &created), QUENTA_EQUATION_SOLVED);
    EXPECT_EQ(calls, 0);
    quenta_history_destroy(created);
}

} // namespace

} // namespace quenta_tests
