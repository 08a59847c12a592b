// The loops over the history of a block solver give the bits of the plain sums, on every instruction set and for every
// number of sums.
#include "quenta_function_solvers/history_kernels.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"
#include "utility/instruction_sets.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <vector>

namespace quenta {

namespace {

using quenta_tests::equal_bits;
using quenta_tests::random_data;

enum kind { first_kind, continuous_first_kind, second_kind, integro_differential };

// D = 0 is the scalar form.
struct history_problem {
    kind equation;
    int D, points, count;
    std::int64_t first, end;
    std::vector<double> A, x, y, h;
    std::int64_t row;

    int components() const { return D == 0 ? 1 : D; }
    bool carries() const { return equation == continuous_first_kind || equation == integro_differential; }
    int slots() const { return carries() ? points + 1 : points; }

    history_problem(random_data& random, kind of_kind, int dimension, int points_of_a_step, int sums,
                    std::int64_t first_step, std::int64_t end_step)
        : equation{of_kind}, D{dimension}, points{points_of_a_step}, count{sums}, first{first_step}, end{end_step} {
        const int width = components();
        row = end * slots() * width * width + 5; // the elements after the last step of a row are not read
        A = random.uniform(std::size_t((count + width - 1) / width * row));
        x = random.uniform(std::size_t(end * points * width));
        y = random.uniform(std::size_t(end * width));
        h = random.uniform(std::size_t(end));
    }

    known_steps known() const {
        return {A.data(),
                row,
                first,
                end,
                points,
                x.data(),
                carries() ? y.data() : nullptr,
                equation == integro_differential ? h.data() : nullptr};
    }

    double row_product(int index, std::int64_t slot, const double* values) const {
        const int width = components();
        const double* const entries =
            &A[std::size_t(index / width * row + slot * width * width + index % width * width)];
        if (D == 0)
            return entries[0] * values[0];
        double sum = 0.0;
        for (int b = 0; b < width; ++b)
            sum += entries[b] * values[b];
        return sum;
    }

    double plain_sum(int index, double sum) const {
        const double sign = equation == first_kind || equation == continuous_first_kind ? -1.0 : 1.0;
        for (std::int64_t k = first; k < end; ++k) {
            if (carries())
                sum += sign * row_product(index, k * slots() + points, &y[std::size_t(k * components())]);
            for (int j = 0; j < points; ++j) {
                const double* const values = &x[std::size_t((k * points + j) * components())];
                const std::int64_t slot = k * slots() + j;
                const double step = h[std::size_t(k)];
                if (equation != integro_differential)
                    sum += sign * row_product(index, slot, values);
                else if (D == 0)
                    sum += A[std::size_t(index * row + slot)] * (values[0] * step);
                else
                    sum += step * row_product(index, slot, values);
            }
        }
        return sum;
    }
};

void compare(const history_kernels& kernels, const history_problem& problem, random_data& random) {
    const std::array<const history_kernels::of_kind*, 4> kinds{&kernels.first_kind, &kernels.continuous_first_kind,
                                                               &kernels.second_kind, &kernels.integro_differential};
    std::vector<double> sums = random.uniform(max_sums), expected;
    for (int index = 0; index < problem.count; ++index)
        expected.push_back(problem.plain_sum(index, sums[std::size_t(index)]));
    (*kinds[problem.equation])[std::size_t(problem.D)](sums.data(), problem.count, problem.known());
    sums.resize(expected.size());
    ASSERT_TRUE(equal_bits(expected, sums))
        << kernels.name << ", kind " << problem.equation << ", D = " << problem.D << ", P = " << problem.points << ", "
        << problem.count << " sums, steps " << problem.first << " to " << problem.end;
}

TEST(history_kernels, every_instruction_set_gives_the_bits_of_the_plain_sums) {
    random_data random{20260341};
    int compared = 0;
    for (const history_kernels* const kernels : runnable_tables<history_kernels>())
        for (const kind equation : {first_kind, continuous_first_kind, second_kind, integro_differential})
            for (int D = 0; D <= max_dimension; ++D)
                for (int points = 1; points <= max_points; ++points) {
                    const int step = points * (D == 0 ? 1 : D);
                    for (const auto& [first, end] :
                         {std::pair<std::int64_t, std::int64_t>{0, 1}, {0, 2}, {1, 2}, {0, 7}, {3, 40}, {0, 129}}) {
                        // The solvers ask for the sums of whole steps.
                        const bool one_step = equation == continuous_first_kind || equation == integro_differential;
                        for (int count = step; count == step || (!one_step && count <= sums_together); count += step) {
                            compare(*kernels, history_problem{random, equation, D, points, count, first, end}, random);
                            if (HasFatalFailure())
                                return;
                            ++compared;
                        }
                    }
                }
    EXPECT_GT(compared, 1000);
}

} // namespace

} // namespace quenta
