// The samples that a setting reads, compared with the library: a sample that is NaN makes the solution NaN if and only
// if it is read.
#include "unread_samples.hpp"

#include "quenta_native.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

using namespace quenta_program;

constexpr std::size_t steps = 4;

struct equation {
    std::vector<double> g, K, a;
};

// The solution, or an empty vector if the solver refuses the setting.
std::vector<double> solved(char kind, const equation& posed, const setting& chosen) {
    const int samples = static_cast<int>(posed.g.size()), m = chosen.m, count = chosen.count();
    const int* const nodes = chosen.nodes.data();
    std::vector<double> y(posed.g.size());
    int solved_steps = 0, status = QUENTA_UNSUPPORTED_SETTING;
    if (kind == '1')
        status = quenta_solve_vie1(posed.g.data(), posed.K.data(), samples, 0.0, 0.01, m, nodes, count, 0, 0, y.data(),
                                   nullptr, &solved_steps);
    if (kind == '2')
        status = quenta_solve_vie2(posed.g.data(), posed.K.data(), samples, 0.01, m, nodes, count, 0, y.data(), nullptr,
                                   &solved_steps);
    if (kind == 'd')
        status = quenta_solve_vide(posed.g.data(), posed.K.data(), posed.a.data(), samples, 1.0, 0.01, m, nodes, count,
                                   0, y.data(), nullptr, &solved_steps);
    return status == QUENTA_SOLVED ? y : std::vector<double>();
}

bool all_finite(const std::vector<double>& values) {
    return std::all_of(values.begin(), values.end(), [](double value) { return std::isfinite(value); });
}

TEST(unread_samples, are_those_for_which_nan_does_not_change_the_solution) {
    quenta_rt_init();
    int solves = 0;
    for (const setting& chosen : supported_settings())
        for (const char kind : {'1', '2', 'd'}) {
            const std::vector<bool> at_nodes = read_at_nodes(chosen, steps), at_lags = read_at_lags(chosen, steps);
            const std::size_t samples = at_nodes.size();
            ASSERT_EQ(at_lags.size(), samples);
            equation whole{std::vector<double>(samples), std::vector<double>(samples), std::vector<double>(samples)};
            for (std::size_t sample = 0; sample < samples; ++sample) {
                whole.g[sample] = std::sin(0.1 * static_cast<double>(sample));
                whole.K[sample] = whole.a[sample] = std::exp(-0.1 * static_cast<double>(sample));
            }
            const std::vector<double> expected = solved(kind, whole, chosen);
            if (expected.empty())
                continue;
            ASSERT_TRUE(all_finite(expected));
            equation without = whole;
            std::vector<std::pair<std::vector<double> equation::*, const std::vector<bool>*>> arguments{
                {&equation::g, &at_nodes}, {&equation::K, &at_lags}};
            if (kind == 'd')
                arguments.push_back({&equation::a, &at_nodes});
            for (const auto& [argument, is_read] : arguments)
                for (std::size_t sample = 0; sample < samples; ++sample) {
                    if (!(*is_read)[sample]) {
                        (without.*argument)[sample] = NAN;
                        continue;
                    }
                    equation spoiled = whole;
                    (spoiled.*argument)[sample] = NAN;
                    EXPECT_FALSE(all_finite(solved(kind, spoiled, chosen)))
                        << kind << " " << chosen.text() << " " << sample;
                    ++solves;
                }
            EXPECT_EQ(solved(kind, without, chosen), expected) << kind << " " << chosen.text();
        }
    EXPECT_GT(solves, 1000);
}

// Samples of a cubic, which is interpolated exactly between four samples.
std::vector<double> cubic(std::size_t samples) {
    std::vector<double> values(samples);
    for (std::size_t sample = 0; sample < samples; ++sample) {
        const double t = static_cast<double>(sample) / static_cast<double>(samples - 1);
        values[sample] = 1.0 - 2.0 * t + 3.0 * t * t * t;
    }
    return values;
}

TEST(unread_samples, of_a_cubic_agree_and_a_deviating_sample_is_found) {
    int deviations = 0;
    for (const setting& chosen : supported_settings()) {
        const std::vector<bool> is_read = read_at_nodes(chosen, steps);
        const std::vector<std::vector<double>> smooth{cubic(is_read.size()), std::vector<double>(is_read.size(), 7.0)};
        EXPECT_FALSE(largest_difference(smooth, is_read)) << chosen.text();
        const double range = *std::max_element(smooth[0].begin(), smooth[0].end()) -
                             *std::min_element(smooth[0].begin(), smooth[0].end());
        for (std::size_t sample = 5; sample + 5 < is_read.size(); ++sample) {
            std::vector<std::vector<double>> changed = smooth;
            changed[0][sample] += 0.5 * range;
            const auto found = largest_difference(changed, is_read);
            ASSERT_TRUE(is_read[sample] || found) << chosen.text() << " " << sample;
            if (is_read[sample])
                continue;
            EXPECT_EQ(found->column, 0U);
            EXPECT_EQ(found->row, sample);
            ++deviations;
        }
    }
    EXPECT_GT(deviations, 500);
}

TEST(unread_samples, may_deviate_by_one_percent_times_the_sum_of_the_interpolation_weights) {
    // In the middle of four samples the weights are -1/16, 9/16, 9/16, -1/16. The sum of their magnitudes is 1.25.
    const std::vector<bool> is_read{true, false, true, false, true, false, true};
    for (const double part : {0.0124, 0.0126}) {
        const std::vector<double> column{0.0, 0.0, 0.0, part, 0.0, 0.0, 0.0};
        std::vector<double> ramp(7);
        for (std::size_t sample = 0; sample < 7; ++sample)
            ramp[sample] = static_cast<double>(sample) / 6.0 + column[sample];
        const std::vector<std::vector<double>> columns{ramp};
        EXPECT_EQ(largest_difference(columns, is_read).has_value(), part > 0.0125) << part;
    }
    // One spacing outside of four samples they are 4, -6, 4, -1. The sum of their magnitudes is 15.
    const std::vector<bool> all_but_first{false, true, true, true, true, true};
    for (const double part : {0.14, 0.16}) {
        const std::vector<std::vector<double>> columns{{1.0 / (1.0 - part) - 1.0, 0.0, 0.0, 0.0, 0.0, 0.0}};
        const auto found = largest_difference(columns, all_but_first);
        ASSERT_TRUE(found); // the range is the difference itself
        EXPECT_DOUBLE_EQ(found->part_of_range, 1.0);
        const std::vector<std::vector<double>> in_range{{part, 0.0, 0.0, 0.0, 0.0, 1.0}};
        EXPECT_EQ(largest_difference(in_range, all_but_first).has_value(), part > 0.15) << part;
    }
}

TEST(unread_samples, that_are_not_finite_are_not_compared) {
    const std::vector<bool> is_read{true, false, true, false, true};
    for (const double odd : {std::nan(""), std::numeric_limits<double>::infinity()}) {
        const std::vector<std::vector<double>> columns{{0.0, odd, 2.0, 3.0, 4.0}};
        EXPECT_FALSE(largest_difference(columns, is_read));
    }
}

} // namespace
