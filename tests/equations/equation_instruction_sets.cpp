// Every instruction set gives the same bits: the loops, compared with the reference implementation, and whole solves.
#include "equations/polynomial_equation.hpp"
#include "equations/random_history.hpp"
#include "quenta_equations/kernel_sums.hpp"
#include "reference/kernel_sums.hpp"
#include "support/bits.hpp"
#include "support/transform_angles.hpp"
#include "utility/instruction_sets.hpp"

#include <set>
#include <string_view>
#include <tuple>

namespace {

quenta::processor_features allowed{true, true};

// The angles at which the library called `cos` or `sin`.
std::set<double> angles;

} // namespace

// The linker replaces the function with which the library detects the features of the processor.
extern "C" {
quenta::processor_features __real__ZN6quenta27detected_processor_featuresEv();

quenta::processor_features __wrap__ZN6quenta27detected_processor_featuresEv() {
    const quenta::processor_features features = __real__ZN6quenta27detected_processor_featuresEv();
    return {features.avx2 && allowed.avx2, features.avx512 && allowed.avx512};
}

double __real_cos(double angle);
double __real_sin(double angle);
double __wrap_cos(double angle) {
    angles.insert(angle);
    return __real_cos(angle);
}
double __wrap_sin(double angle) {
    angles.insert(angle);
    return __real_sin(angle);
}
}

namespace quenta_tests {

namespace {

using quenta::kernel_sums;

TEST(kernel_sums, of_scalars_are_bit_identical_to_the_reference_on_every_instruction_set) {
    random_data random{202611};
    int compared = 0;
    for (const kernel_sums* const loops : quenta::runnable_tables<kernel_sums>())
        for (std::size_t count = 0; count <= 100; ++count)
            for (const std::size_t offset : {0, 1, 3, 8})
                for (const bool special : {false, true}) {
                    // An array ends at its last element, so that a sanitizer finds an access past it.
                    const auto data = [&] {
                        return special ? random.sprinkled(count + offset, 20) : random.wide(count + offset);
                    };
                    const std::vector<double> values = data(), weighted = data();
                    const double expected =
                        reference::kernel_sum(std::span{values}.subspan(offset), std::span{weighted}.subspan(offset));
                    const double actual =
                        loops->scalar_sum(values.data() + offset, weighted.data() + offset, std::int64_t(count));
                    ASSERT_TRUE(equal_bits(expected, actual))
                        << loops->name << ", count " << count << ", offset " << offset;
                    const double before = special ? random.special_value() : random.wide_value();
                    double sum = before;
                    quenta::add_kernel_sum(*loops, values.data() + offset, weighted.data() + offset,
                                           std::int64_t(count), 1, 1, &sum);
                    ASSERT_TRUE(equal_bits(before + expected, sum));
                    ++compared;
                }
    EXPECT_GE(compared, 101 * 4 * 2);
}

TEST(kernel_sums, of_blocks_are_bit_identical_to_the_reference_on_every_instruction_set) {
    random_data random{202612};
    for (const kernel_sums* const loops : quenta::runnable_tables<kernel_sums>())
        for (int D = 1; D <= 5; ++D)
            for (int E = 1; E <= 5; ++E)
                for (const int count : {0, 1, 2, 15, 16, 17, 40})
                    for (const bool special : {false, true}) {
                        if (D == 1 && E == 1)
                            continue;
                        const auto data = [&](int length) {
                            return special ? random.sprinkled(std::size_t(length), 40)
                                           : random.wide(std::size_t(length));
                        };
                        const std::vector<double> blocks = data(count * D * E), weighted = data(count * E);
                        std::vector<double> sums = data(D), expected = sums;
                        for (std::size_t a = 0; a < sums.size(); ++a)
                            expected[a] = reference::block_kernel_sum(sums[a], blocks, weighted, std::size_t(D),
                                                                      std::size_t(E), a);
                        quenta::add_kernel_sum(*loops, blocks.data(), weighted.data(), count, D, E, sums.data());
                        ASSERT_TRUE(equal_bits(expected, sums))
                            << loops->name << ", D = " << D << ", E = " << E << ", count " << count;
                    }
}

// The bits of all numbers of a solution, and of its iterated values.
std::vector<double> everything_solved(const polynomial_equation& equation, int steps, int P) {
    std::vector<double> nodes(std::size_t(P), 0.0);
    EXPECT_EQ(quenta_equation_nodes(QUENTA_RADAU, P, nodes.data()), 0);
    int status = -1;
    const owned_solution solution = equation.solve(1.0, steps, nodes, status);
    EXPECT_EQ(status, QUENTA_EQUATION_SOLVED);
    std::vector<double> all = everything_in(solution.get());
    if (equation.shape.kind == '2') {
        const double t[] = {0.0, 0.77};
        std::vector<double> y(std::size_t(2 * equation.shape.D));
        EXPECT_EQ(quenta_solution_iterate(solution.get(), equation.get(), 2, t, y.data()), 0);
        all.insert(all.end(), y.begin(), y.end());
    }
    return all;
}

TEST(solves, give_the_same_bits_on_every_instruction_set) {
    random_data random{202613};
    std::vector<equation_shape> shapes = every_shape();
    shapes.push_back(
        {'2', 20, false, false, {{20, true, false, false}, {4, false, true, true}}}); // a dense solve of 60
    int compared = 0;
    for (const equation_shape& shape : shapes)
        for (const auto& [steps, P] : {std::pair{70, 3}, {9, 2}, {5, 5}, {300, 1}}) {
            SCOPED_TRACE(testing::PrintToString(shape));
            const polynomial_equation equation{random, shape, 1.0 / (4 + shape.D)};
            allowed = {false, false};
            ASSERT_EQ(quenta::widest_table<kernel_sums>().name, std::string_view{"baseline"});
            const std::vector<double> expected = everything_solved(equation, steps, P);
            for (const bool avx512 : {false, true}) {
                allowed = {true, avx512};
                EXPECT_TRUE(equal_bits(expected, everything_solved(equation, steps, P)));
                ++compared;
            }
        }
    EXPECT_GT(compared, 100);
}

// Up to three levels of blocks, in every register of all loops.
TEST(histories, give_the_same_bits_on_every_instruction_set) {
    random_data random{202614};
    for (const auto& [rows, columns, steps] :
         {std::tuple{1, 1, 20'000}, {1, 1, 127}, {3, 2, 1'500}, {2, 3, 9'000}, {9, 5, 600}, {1, 17, 70}}) {
        const random_history data{random, rows, columns, steps};
        SCOPED_TRACE(testing::PrintToString(data));
        allowed = {false, false};
        const std::vector<double> expected = data.sums_of(data.create().get());
        for (const bool avx512 : {false, true}) {
            allowed = {true, avx512};
            EXPECT_TRUE(equal_bits(expected, data.sums_of(data.create().get())));
        }
    }
}

// Other processors have been shown to give the same bits at the angles of transforms. Those of the twist are the ones
// of transforms with four times as many points.
TEST(histories, call_cos_and_sin_only_at_angles_of_transforms) {
    constexpr double turn = 6.283185307179586;
    constexpr std::int64_t largest_block = 4096;
    random_data random{202615};
    const random_history data{random, 1, 1, 33'000};
    angles.clear();
    data.create();
    EXPECT_GT(angles.size(), std::size_t(largest_block / 32));
    std::set<double> of_transforms;
    for (const double of_direction : {-turn, turn})
        for (const double angle : transform_angles(4 * largest_block, of_direction))
            of_transforms.insert(angle);
    for (const double angle : angles)
        EXPECT_TRUE(of_transforms.contains(angle)) << angle;
}

} // namespace

} // namespace quenta_tests
