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
    std::vector<double> first, second; // solutions for two right-hand sides, one after the other
};

template <class system_type>
solved_system solve_twice(system_type system, const std::vector<double>& matrix, const std::vector<double>& values) {
    const int n = system.n_sys;
    const auto fill_and_solve = [&](std::vector<double>& solution) {
        std::copy_n(values.begin(), n, system.rhs());
        system.solve();
        solution.assign(system.rhs(), system.rhs() + n);
    };
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            system.at(r, c) = matrix[static_cast<std::size_t>(r * n + c)];
    solved_system solved;
    solved.regular = system.eliminate();
    if (solved.regular) {
        fill_and_solve(solved.first);
        fill_and_solve(solved.second);
    }
    return solved;
}

// Row by row or column by column, every element receives the same products in the same order.
template <int P, int D>
void expect_one_answer(const std::vector<double>& matrix, const std::vector<double>& values, bool regular) {
    SCOPED_TRACE(::testing::Message() << P << " nodes, dimension " << D);
    using fixed = fixed_dimension<D>;
    const solved_system in_frame = solve_twice(step_system<P, fixed>{fixed{}}, matrix, values);
    const solved_system in_heap = solve_twice(step_system<P, run_time_dimension>{{D}}, matrix, values);
    EXPECT_EQ(in_frame.regular, regular);
    EXPECT_EQ(in_heap.regular, regular);
    if (!regular)
        return;
    EXPECT_TRUE(equal_bits(in_frame.first, in_heap.first));
    EXPECT_TRUE(equal_bits(in_frame.first, in_frame.second)) << "the factors do not last";
    EXPECT_TRUE(equal_bits(in_heap.first, in_heap.second)) << "the factors do not last";
}

template <int P, int D>
void expect_one_answer_of_random_systems(quenta_tests::random_data& random) {
    constexpr std::size_t n = P * D;
    for (int repetition = 0; repetition < 20; ++repetition)
        expect_one_answer<P, D>(random.uniform(n * n), random.uniform(n), true);
    expect_one_answer<P, D>(std::vector<double>(n * n, 0.0), random.uniform(n), false);
}

template <int... sizes>
void expect_one_answer_of_all(std::integer_sequence<int, sizes...>) {
    quenta_tests::random_data random{20260210};
    (expect_one_answer_of_random_systems<sizes / 8 + 1, sizes % 8 + 1>(random), ...);
}

TEST(step_system, a_dimension_known_early_or_late_gives_the_same_bits) {
    expect_one_answer_of_all(std::make_integer_sequence<int, 5 * 8>{});
}

TEST(step_system, at_is_row_and_column_in_both) {
    // 1 2   x = 5   has the solution 1, 2; its transpose has another one
    // 3 4       11
    const std::vector<double> matrix{1.0, 2.0, 3.0, 4.0}, values{5.0, 11.0};
    const std::vector<double> solution{1.0, 2.0};
    EXPECT_TRUE(equal_bits(solution, solve_twice(step_system<1, fixed_dimension<2>>{{}}, matrix, values).first));
    EXPECT_TRUE(equal_bits(solution, solve_twice(step_system<2, run_time_dimension>{{1}}, matrix, values).first));
}

} // namespace
} // namespace quenta
