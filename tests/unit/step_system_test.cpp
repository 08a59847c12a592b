#include "quenta_solvers/step_system.hpp"

#include "support/bits.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::equal_bits;

struct solved_system {
    bool regular = false;
    std::vector<double> first, second; // the solutions of two consecutive solves with the same right-hand side
};

template <class system_type>
solved_system solve_twice(system_type system, const std::vector<double>& matrix, const std::vector<double>& values) {
    const int n = system.n_sys;
    const auto fill_and_solve = [&](std::vector<double>& solution) {
        std::copy_n(values.begin(), n, system.rhs());
        system.solve();
        solution.assign(system.rhs(), system.rhs() + n);
    };
    for (int R = 0; R < n; ++R)
        for (int C = 0; C < n; ++C)
            system.at(R, C) = matrix[static_cast<std::size_t>(R * n + C)];
    solved_system solved;
    solved.regular = system.eliminate();
    if (solved.regular) {
        fill_and_solve(solved.first);
        fill_and_solve(solved.second);
    }
    return solved;
}

// One form eliminates by rows and the other by columns. Every element receives the same products in the same order.
template <int P, int D>
void expect_same_bits(const std::vector<double>& matrix, const std::vector<double>& values, bool regular) {
    SCOPED_TRACE(::testing::Message() << P << " nodes, dimension " << D);
    using fixed = fixed_dimension<D>;
    const solved_system with_fixed = solve_twice(step_system<P, fixed>{fixed{}}, matrix, values);
    const solved_system with_run_time = solve_twice(step_system<P, run_time_dimension>{{D}}, matrix, values);
    EXPECT_EQ(with_fixed.regular, regular);
    EXPECT_EQ(with_run_time.regular, regular);
    if (!regular)
        return;
    EXPECT_TRUE(equal_bits(with_fixed.first, with_run_time.first));
    EXPECT_TRUE(equal_bits(with_fixed.first, with_fixed.second)) << "the second solve differs from the first";
    EXPECT_TRUE(equal_bits(with_run_time.first, with_run_time.second)) << "the second solve differs from the first";
}

template <int P, int D>
void expect_same_bits_for_random_systems(quenta_tests::random_data& random) {
    constexpr std::size_t n = P * D;
    for (int repetition = 0; repetition < 20; ++repetition)
        expect_same_bits<P, D>(random.uniform(n * n), random.uniform(n), true);
    expect_same_bits<P, D>(std::vector<double>(n * n, 0.0), random.uniform(n), false);
}

template <int... sizes>
void expect_same_bits_for_all_sizes(std::integer_sequence<int, sizes...>) {
    quenta_tests::random_data random{20260210};
    (expect_same_bits_for_random_systems<sizes / 8 + 1, sizes % 8 + 1>(random), ...);
}

TEST(step_system, a_fixed_and_a_run_time_dimension_give_the_same_bits) {
    expect_same_bits_for_all_sizes(std::make_integer_sequence<int, 5 * 8>{});
}

TEST(step_system, at_takes_row_and_column_for_both_kinds_of_dimension) {
    // 1 2   x = 5   has the solution 1, 2. The transposed system has another one.
    // 3 4       11
    const std::vector<double> matrix{1.0, 2.0, 3.0, 4.0}, values{5.0, 11.0};
    const std::vector<double> solution{1.0, 2.0};
    EXPECT_TRUE(equal_bits(solution, solve_twice(step_system<1, fixed_dimension<2>>{{}}, matrix, values).first));
    EXPECT_TRUE(equal_bits(solution, solve_twice(step_system<2, run_time_dimension>{{1}}, matrix, values).first));
}

} // namespace
} // namespace quenta
