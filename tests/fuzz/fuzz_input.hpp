// A problem from the bytes of a fuzzer: first the choices, then some numbers, of any bits, that the arrays are made of.
#pragma once

#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace quenta_tests {

class fuzz_input {
public:
    fuzz_input(const std::uint8_t* data, std::size_t size) : next{data}, left{size} {}

    // A number from 0 to bound - 1. There is no end: behind the last byte come zeros.
    int below(int bound) {
        std::uint16_t number = 0;
        take(&number, sizeof number);
        return number % bound;
    }

    double real() {
        double number = 0.0;
        take(&number, sizeof number);
        return number;
    }

    // To be called when all choices are made: `count` numbers, ordinary ones and those that the rest of the bytes are.
    std::vector<double> reals(std::size_t count) {
        if (!palette_taken) {
            const int others = below(256);
            std::uint64_t seed = std::uint64_t(others);
            while (left > 0) {
                palette.push_back(real());
                seed = seed * 0x100000001B3 + std::bit_cast<std::uint64_t>(palette.back());
            }
            random = random_data{seed};
            share = others;
            palette_taken = true;
        }
        std::vector<double> values(count);
        for (double& value : values)
            value = !palette.empty() && int(random.below(256)) < share ? palette[random.below(palette.size())]
                                                                       : random.uniform_value();
        return values;
    }

private:
    void take(void* to, std::size_t count) {
        const std::size_t taken = count < left ? count : left;
        std::memcpy(to, next, taken);
        next += taken;
        left -= taken;
    }

    const std::uint8_t* next;
    std::size_t left;
    bool palette_taken = false;
    std::vector<double> palette;
    int share = 0; // of the palette, in 256
    random_data random{0};
};

// The comparisons are those of the tests; what fails in one ends the fuzzer, which keeps the bytes.
inline const bool failures_end_the_process = [] {
    GTEST_FLAG_SET(break_on_failure, true);
    return true;
}();

} // namespace quenta_tests
