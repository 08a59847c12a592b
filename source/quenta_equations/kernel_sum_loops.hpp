// The dot product of kernel values, in an order that does not depend on the instruction set.
#pragma once

#include "quenta_equations/kernel_sums.hpp"
#include "utility/instruction_sets.hpp"
#include "utility/lanes.hpp"

#include <cstdint>

namespace quenta {

template <class instruction_set>
struct kernel_sum_loops {
    static constexpr int width = instruction_set::width;
    static constexpr int partial_sums = 16, registers = partial_sums / width;

    static double scalar_sum(const double* values, const double* weighted, std::int64_t count) {
        lanes<width> in_registers[registers] = {};
        std::int64_t p = 0;
        for (; p + partial_sums <= count; p += partial_sums)
            for (int r = 0; r < registers; ++r)
                in_registers[r] += load<width>(values + p + r * width) * load<width>(weighted + p + r * width);
        double partial[partial_sums];
        for (int r = 0; r < registers; ++r)
            store<width>(partial + r * width, in_registers[r]);
        for (int left = 0; p < count; ++p, ++left)
            partial[left] += values[p] * weighted[p];
        for (int half = partial_sums / 2; half > 0; half /= 2)
            for (int i = 0; i < half; ++i)
                partial[i] += partial[i + half];
        return partial[0];
    }
};

template <class instruction_set>
const kernel_sums& kernel_sums::of() {
    static constexpr kernel_sums table{instruction_set::name, kernel_sum_loops<instruction_set>::scalar_sum};
    return table;
}

} // namespace quenta
