// Seeded test data, the same on every machine.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace quenta_tests {

// Values for which arithmetic has special rules, or that overflow or underflow easily.
inline constexpr std::array special_values{
    std::numeric_limits<double>::quiet_NaN(),
    std::numeric_limits<double>::infinity(),
    -std::numeric_limits<double>::infinity(),
    0.0,
    -0.0,
    std::numeric_limits<double>::denorm_min(),
    -std::numeric_limits<double>::denorm_min(),
    0x1.8p-1030,
    std::numeric_limits<double>::min(),
    std::numeric_limits<double>::max(),
    std::numeric_limits<double>::lowest(),
    0x1.8p1000,
};

class random_data {
public:
    explicit random_data(std::uint64_t seed) : engine{seed} {}

    // An integer from 0 to bound - 1.
    std::uint64_t below(std::uint64_t bound) { return engine() % bound; }

    double uniform_value(double lowest = -1.0, double highest = 1.0) {
        return lowest + (highest - lowest) * (double(engine() >> 11) * 0x1p-53);
    }
    // A value of either sign, with a binary exponent from -exponents to +exponents.
    double wide_value(int exponents = 60) {
        const int exponent = static_cast<int>(below(2 * static_cast<std::uint64_t>(exponents) + 1)) - exponents;
        const double magnitude = std::ldexp(uniform_value(1.0, 2.0), exponent);
        return below(2) == 0 ? magnitude : -magnitude;
    }
    double special_value() { return special_values[below(special_values.size())]; }

    std::vector<double> uniform(std::size_t count, double lowest = -1.0, double highest = 1.0) {
        return filled(count, [&] { return uniform_value(lowest, highest); });
    }
    std::vector<double> wide(std::size_t count, int exponents = 60) {
        return filled(count, [&] { return wide_value(exponents); });
    }
    // Uniform values, of which on average one in `spacing` is replaced by a special value.
    std::vector<double> sprinkled(std::size_t count, std::uint64_t spacing = 8) {
        return filled(count, [&] { return below(spacing) == 0 ? special_value() : uniform_value(); });
    }

private:
    template <class generator>
    static std::vector<double> filled(std::size_t count, generator value) {
        std::vector<double> values(count);
        for (double& element : values)
            element = value();
        return values;
    }

    std::mt19937_64 engine;
};

} // namespace quenta_tests
