// Reads a problem from the bytes of a fuzzer: first the choices, then numbers of any bits with which arrays are filled.
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
    // The fuzzers use the comparisons of the tests. A failure ends the process, and the fuzzer then saves the input.
    // (The flag is set here and not by an initializer, which may run before those of the library.)
    fuzz_input(const std::uint8_t* data, std::size_t size) : next{data}, left{size} {
        GTEST_FLAG_SET(break_on_failure, true);
    }

    // A number from 0 to bound - 1. After the last byte, the input continues with zeros.
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

    // `count` numbers: random ones in [-1, 1), mixed with the numbers in the rest of the input. All choices must be
    // made before the first call.
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
    int share = 0; // of 256 numbers, how many come from the palette
    random_data random{0};
};

} // namespace quenta_tests
