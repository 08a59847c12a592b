#include "utility/ieee.hpp"

#include "support/bits.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>

namespace quenta {
namespace {

// Values whose sums, products and quotients leave the finite numbers only through what is special about them: a finite
// result never overflows, as a compiler does not evaluate that.
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

// Calls the operation of the machine, the function itself, and what of it is for the compiler, all with operands that
// no compiler knows.
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

TEST(ieee, quotients_at_build_time_are_those_of_the_machine) {
    expect_same(quotients, ieee::quotient, ieee::spelled_out::quotient, [](double a, double b) { return a / b; });
}

TEST(ieee, products_at_build_time_are_those_of_the_machine) {
    expect_same(products, ieee::product, ieee::spelled_out::product, [](double a, double b) { return a * b; });
}

TEST(ieee, sums_at_build_time_are_those_of_the_machine) {
    expect_same(sums, ieee::sum, ieee::spelled_out::sum, [](double a, double b) { return a + b; });
}

TEST(ieee, values_are_classified) {
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
