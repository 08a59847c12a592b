#include "utility/ieee.hpp"

#include "support/bits.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>

namespace quenta {
namespace {

// No sum, product or quotient of two finite values overflows. Compilers reject an overflow in a constant expression.
constexpr std::array values{
    0.0, -0.0, 1.0, -1.0, 1.0 / 3.0, -2.5, 0x1p-500, -0x1.8p+500, ieee::infinity, -ieee::infinity, ieee::quiet_nan};
constexpr std::size_t n = values.size();

using table = std::array<std::array<double, n>, n>;

using operation = double (*)(double, double);

template <operation of>
constexpr table evaluated() {
    table results{};
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j)
            results[i][j] = of(values[i], values[j]);
    return results;
}

constexpr table quotients = evaluated<ieee::quotient>();
constexpr table products = evaluated<ieee::product>();
constexpr table sums = evaluated<ieee::sum>();

// Compares three results with the operation of the processor: the one from build time, that of the function, and that
// of its form for constant expressions. The operands are volatile, so that the compiler does not know them.
template <class machine_operation>
void expect_same(const table& built, operation function, operation spelled_out, machine_operation machine) {
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) {
            volatile double a = values[i], b = values[j];
            EXPECT_TRUE(quenta_tests::equal_bits(machine(a, b), built[i][j])) << values[i] << ", " << values[j];
            EXPECT_TRUE(quenta_tests::equal_bits(machine(a, b), function(a, b))) << values[i] << ", " << values[j];
            EXPECT_TRUE(quenta_tests::equal_bits(machine(a, b), spelled_out(a, b))) << values[i] << ", " << values[j];
        }
}

TEST(ieee, quotients_at_build_time_equal_those_at_run_time) {
    expect_same(quotients, ieee::quotient, ieee::spelled_out::quotient, [](double a, double b) { return a / b; });
}

TEST(ieee, products_at_build_time_equal_those_at_run_time) {
    expect_same(products, ieee::product, ieee::spelled_out::product, [](double a, double b) { return a * b; });
}

TEST(ieee, sums_at_build_time_equal_those_at_run_time) {
    expect_same(sums, ieee::sum, ieee::spelled_out::sum, [](double a, double b) { return a + b; });
}

TEST(ieee, nan_infinity_and_negative_zero_are_recognized) {
    EXPECT_TRUE(ieee::is_nan(ieee::quiet_nan));
    EXPECT_FALSE(ieee::is_nan(ieee::infinity));
    EXPECT_TRUE(ieee::is_infinite(ieee::infinity));
    EXPECT_TRUE(ieee::is_infinite(-ieee::infinity));
    EXPECT_FALSE(ieee::is_infinite(ieee::quiet_nan));
    EXPECT_TRUE(ieee::is_negative(-0.0));
    EXPECT_FALSE(ieee::is_negative(0.0));
}

} // namespace
} // namespace quenta
