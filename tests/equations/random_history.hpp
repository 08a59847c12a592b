// A history from random blocks, the values that are pushed to it, and its sums in plain loops.
#pragma once

#include "quenta_equations.h"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <ostream>
#include <vector>

namespace quenta_tests {

struct history_release {
    void operator()(quenta_history* history) const { quenta_history_destroy(history); }
};
using owned_history = std::unique_ptr<quenta_history, history_release>;

struct random_history {
    template <class source>
    random_history(source& random, int p, int q, int n)
        : rows{p}, columns{q}, steps{n}, blocks(random.uniform(size(n - 1) * size(p) * size(q), -1.0, 1.0)),
          x(random.uniform(size(n) * size(q), -1.0, 1.0)) {}

    owned_history create(int& status) const {
        quenta_history* created = nullptr;
        status = quenta_history_from_blocks(rows, columns, steps, blocks.data(), &created);
        return owned_history{created};
    }
    owned_history create() const {
        int status = -1;
        owned_history created = create(status);
        EXPECT_EQ(status, QUENTA_EQUATION_SOLVED);
        return created;
    }

    const double* block(int lag) const { return blocks.data() + size(lag - 1) * size(rows) * size(columns); }
    const double* value(int step) const { return x.data() + size(step) * size(columns); }

    // The sums of all steps, one after another.
    std::vector<double> sums_of(quenta_history* history) const {
        std::vector<double> sums(size(steps) * size(rows));
        for (int n = 0; n < steps; ++n) {
            EXPECT_EQ(quenta_history_steps_done(history), n);
            EXPECT_EQ(quenta_history_sum(history, sums.data() + size(n) * size(rows)), QUENTA_EQUATION_SOLVED);
            EXPECT_EQ(quenta_history_push(history, value(n)), QUENTA_EQUATION_SOLVED);
        }
        return sums;
    }
    std::vector<double> direct_sums() const {
        std::vector<double> sums(size(steps) * size(rows));
        for (int n = 0; n < steps; ++n)
            for (int k = 0; k < n; ++k)
                for (int r = 0; r < rows; ++r)
                    for (int c = 0; c < columns; ++c)
                        sums[size(n * rows + r)] += block(n - k)[r * columns + c] * value(k)[c];
        return sums;
    }

    static std::size_t size(int count) { return static_cast<std::size_t>(count); }

    int rows, columns, steps;
    std::vector<double> blocks, x;
};

inline void PrintTo(const random_history& history, std::ostream* stream) {
    *stream << history.rows << " rows, " << history.columns << " columns, " << history.steps << " steps";
}

} // namespace quenta_tests
