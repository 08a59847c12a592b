#include "utility/integer_power.hpp"

#include "reference/lagrange.hpp"
#include "reference/settings.hpp"
#include "support/bits.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <vector>

namespace quenta {
namespace {

static_assert(integer_power(0.0, 0) == 1.0 && integer_power(0.0, 3) == 0.0 && integer_power(0.5, 3) == 0.125);

// The arguments at which the tables evaluate a basis: the nodes, the points c_i c_q, and the samples of a step.
std::set<double> arguments_of_the_tables() {
    std::set<double> arguments;
    for (const reference::setting& setting : reference::settings()) {
        const std::vector<double> c = setting.nodes();
        for (const double ci : c) {
            arguments.insert(ci);
            for (const double cq : c)
                arguments.insert(ci * cq);
        }
        const int S = setting.m * setting.m;
        for (int e = 0; e <= S; ++e)
            arguments.insert(double(e) / double(S));
    }
    return arguments;
}

TEST(integer_power, equals_pow_for_all_arguments_of_the_tables) {
    const std::set<double> arguments = arguments_of_the_tables();
    ASSERT_GT(arguments.size(), 20u);
    for (const double x : arguments)
        for (int exponent = 0; exponent <= 5; ++exponent) {
            volatile double base = x; // forces the evaluation at run time
            EXPECT_TRUE(
                quenta_tests::equal_bits(reference::power(x, std::size_t(exponent)), integer_power(base, exponent)))
                << x << "^" << exponent;
        }
}

} // namespace
} // namespace quenta
