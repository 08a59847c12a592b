// Takes histories of any shape, whose numbers have any bits, through all their steps, and compares the statuses and the
// sums with plain loops.
#include "equations/random_history.hpp"
#include "fuzz/fuzz_input.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

using namespace quenta_tests;

namespace {

struct numbers {
    fuzz_input& input;

    std::vector<double> uniform(std::size_t count, double, double) { return input.reals(count); }
};

bool are_finite(std::span<const double> values) {
    return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
}

// At least the smallest normal number: below it, a transform rounds to a multiple of the smallest subnormal one.
double magnitude(double value) {
    return std::max(std::fabs(value), std::numeric_limits<double>::min());
}

double sum_of_magnitudes(std::span<const double> values) {
    double sum = 0.0;
    for (const double value : values)
        sum += magnitude(value);
    return sum;
}

int write_block(void* context, int lag, double* block) {
    const auto& data = *static_cast<const random_history*>(context);
    std::copy_n(data.block(lag), data.rows * data.columns, block);
    return 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fuzz_input input{bytes, size};
    const int rows = 1 + input.below(5), columns = 1 + input.below(5), steps = 1 + input.below(300);
    const bool from_function = input.below(2) == 1, finite_blocks = input.below(8) > 0;
    numbers source{input};
    random_history data{source, rows, columns, steps};
    if (finite_blocks)
        std::replace_if(
            data.blocks.begin(), data.blocks.end(), [](double entry) { return !std::isfinite(entry); }, 0.5);

    quenta_history* created = nullptr;
    const int status = from_function ? quenta_history_from_function(rows, columns, steps, write_block, &data, &created)
                                     : quenta_history_from_blocks(rows, columns, steps, data.blocks.data(), &created);
    EXPECT_EQ(status, are_finite(data.blocks) ? QUENTA_EQUATION_SOLVED
                      : from_function         ? QUENTA_EQUATION_NOT_FINITE
                                              : QUENTA_EQUATION_BAD_BLOCKS);
    const owned_history history{created};
    EXPECT_EQ(created != nullptr, status == QUENTA_EQUATION_SOLVED);
    if (created == nullptr)
        return 0;

    std::vector<double> sums(std::size_t(steps * rows), 0.25);
    std::vector<int> statuses;
    for (int n = 0; n < steps; ++n) {
        EXPECT_EQ(quenta_history_steps_done(created), n);
        statuses.push_back(quenta_history_sum(created, sums.data() + n * rows));
        double* const x = data.x.data() + n * columns;
        if (!are_finite({x, std::size_t(columns)})) {
            EXPECT_EQ(quenta_history_push(created, x), QUENTA_EQUATION_BAD_PUSH);
            std::fill_n(x, columns, 1.0);
        }
        EXPECT_EQ(quenta_history_push(created, x), QUENTA_EQUATION_SOLVED);
    }
    EXPECT_EQ(quenta_history_push(created, data.x.data()), QUENTA_EQUATION_NO_STEP_LEFT);

    double largest = 0.0; // entry of a block
    for (const double entry : data.blocks)
        largest = std::max(largest, magnitude(entry));
    const std::vector<double> direct = data.direct_sums();
    for (int n = 0; n < steps; ++n) {
        const double scale = largest * sum_of_magnitudes(std::span{data.x}.first(std::size_t(n * columns)));
        const bool is_finite = statuses[std::size_t(n)] == QUENTA_EQUATION_SOLVED;
        EXPECT_TRUE(is_finite || statuses[std::size_t(n)] == QUENTA_EQUATION_NOT_FINITE);
        const bool overflows_nowhere = scale < 1e300; // numbers in a transform may be larger than the sum
        EXPECT_TRUE(is_finite || !overflows_nowhere) << "step " << n;
        for (std::size_t i = std::size_t(n * rows); i < std::size_t((n + 1) * rows); ++i) {
            EXPECT_TRUE(is_finite ? std::isfinite(sums[i]) : sums[i] == 0.25);
            EXPECT_TRUE(!overflows_nowhere || std::fabs(sums[i] - direct[i]) <= 1e-13 * scale + 1e-300)
                << "sum " << i << ": " << sums[i] << ", directly " << direct[i];
        }
    }
    return 0;
}
