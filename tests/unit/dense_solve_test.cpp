#include "quenta_solvers/dense_kernels.hpp"
#include "quenta_solvers/dense_solve.hpp"

#include "reference/dense_solve.hpp"
#include "support/bits.hpp"
#include "support/failures.hpp"
#include "support/random_data.hpp"
#include "utility/instruction_sets.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::equal_bits;
using quenta_tests::failure_of;
using quenta_tests::random_data;
using reference::matrix_order;

// The orders of the systems of a step: P D for 1 to 5 nodes and dimensions 1 to 8.
using orders_of_steps =
    std::integer_sequence<int, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 14, 15, 16, 18, 20, 21, 24, 25, 28, 30, 32, 35, 40>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr int untouched = -7;

struct linear_system {
    int n;
    std::vector<double> a; // row-major
    std::vector<double> b;

    double& at(int i, int j) { return a[static_cast<std::size_t>(i * n + j)]; }
};

// The solution, or nothing for a singular matrix.
using solution = std::optional<std::vector<double>>;

::testing::AssertionResult equal_solutions(const solution& expected, const solution& actual) {
    if (expected.has_value() != actual.has_value())
        return ::testing::AssertionFailure() << "expected a " << (expected ? "regular" : "singular")
                                             << " matrix, got a " << (actual ? "regular" : "singular") << " one";
    return expected ? equal_bits(*expected, *actual) : ::testing::AssertionSuccess();
}

solution solve_by_reference(linear_system system) {
    std::vector<int> pivots(system.b.size());
    if (!reference::solve_dense(matrix_order::row_major, system.n, system.a, system.b, pivots))
        return std::nullopt;
    return system.b;
}

// The arguments of the forms for any order, which are column-major, and the results that they leave in them.
struct column_system {
    explicit column_system(const linear_system& rows)
        : n{rows.n}, a(rows.a.size()), b{rows.b}, pivots(rows.b.size(), untouched) {
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                a[static_cast<std::size_t>(i + j * n)] = rows.a[static_cast<std::size_t>(i * n + j)];
    }

    int n;
    std::vector<double> a, b;
    std::vector<int> pivots;
    bool solved = false;
};

// Expects that the forms for any order leave the same values as the reference in every argument, also for a singular
// matrix. The kernels of an instruction set have one function for the elimination and one for the substitution.
solution solve_by_forms_of_any_order(const linear_system& system) {
    column_system expected{system};
    expected.solved =
        reference::solve_dense(matrix_order::column_major, expected.n, expected.a, expected.b, expected.pivots);

    column_system left{system};
    left.solved = solve_dense_in_place({left.a.size(), left.a.data()}, {left.b.size(), left.b.data()}, left.n,
                                       {left.pivots.size(), left.pivots.data()});
    EXPECT_EQ(left.solved, expected.solved) << "in place, n " << left.n;
    EXPECT_TRUE(equal_bits(expected.a, left.a)) << "in place, n " << left.n;
    EXPECT_TRUE(equal_bits(expected.b, left.b)) << "in place, n " << left.n;
    EXPECT_EQ(left.pivots, expected.pivots) << "in place, n " << left.n;

    for (const dense_kernels* const table : runnable_tables<dense_kernels>()) {
        left = column_system{system};
        left.solved = table->eliminate(left.a.data(), left.n, left.pivots.data()) == left.n;
        EXPECT_EQ(left.solved, expected.solved) << table->name << ", n " << left.n;
        EXPECT_TRUE(equal_bits(expected.a, left.a)) << table->name << ", n " << left.n;
        EXPECT_EQ(left.pivots, expected.pivots) << table->name << ", n " << left.n;
        if (left.solved) {
            table->substitute(left.a.data(), left.n, left.pivots.data(), left.b.data());
            EXPECT_TRUE(equal_bits(expected.b, left.b)) << table->name << ", n " << left.n;
        }
    }
    return expected.solved ? solution{expected.b} : std::nullopt;
}

// Expects that the form of a fixed order leaves the same values as the reference in every argument.
template <int n>
solution solve_fixed_order(const linear_system& system) {
    square_matrix<n> a;
    std::array<double, n> b;
    std::copy_n(system.a.begin(), n * n, a.front().begin());
    std::copy_n(system.b.begin(), n, b.begin());
    bool ok = false;
    const std::array<double, n> x = solve_dense_fixed<n>(a, b, ok);

    linear_system expected = system;
    std::vector<int> pivots(n);
    EXPECT_EQ(reference::solve_dense(matrix_order::row_major, n, expected.a, expected.b, pivots), ok) << "n " << n;
    const double* const left = a.front().data();
    EXPECT_TRUE(equal_bits(expected.a, std::vector<double>(left, left + n * n))) << "n " << n;
    EXPECT_TRUE(equal_bits(expected.b, std::vector<double>(b.begin(), b.end()))) << "n " << n;
    EXPECT_TRUE(equal_bits(expected.b, std::vector<double>(x.begin(), x.end()))) << "n " << n;
    return ok ? solution{{x.begin(), x.end()}} : std::nullopt;
}

// Calls visit(n, the form of the fixed order n) for every order of a step.
template <int... n, class visitor>
void visit_orders(std::integer_sequence<int, n...>, const visitor& visit) {
    (visit(n, solve_fixed_order<n>), ...);
}

void for_all_orders(const std::function<void(int)>& visit) {
    visit_orders(orders_of_steps{}, [&](int n, auto) { visit(n); });
}

solution solve_fixed(const linear_system& system) {
    solution solved;
    bool found = false;
    visit_orders(orders_of_steps{}, [&](int n, auto solve) {
        if (n == system.n) {
            solved = solve(system);
            found = true;
        }
    });
    EXPECT_TRUE(found) << "no form of the fixed order " << system.n;
    return solved;
}

// Expects that all forms agree with the reference. Returns whether the matrix is regular.
bool expect_all_forms_agree(const linear_system& system) {
    const solution expected = solve_by_reference(system);
    EXPECT_TRUE(equal_solutions(expected, solve_fixed(system))) << "fixed order, n " << system.n;
    EXPECT_TRUE(equal_solutions(expected, solve_by_forms_of_any_order(system))) << "n " << system.n;
    return expected.has_value();
}

linear_system random_system(random_data& data, int n) {
    const auto size = static_cast<std::size_t>(n);
    return {n, data.uniform(size * size), data.uniform(size)};
}

TEST(dense_solve, random_matrices_give_the_same_result_as_the_reference_and_a_small_residual) {
    for_all_orders([](int n) {
        random_data data(n);
        for (int repetition = 0; repetition < 20; ++repetition) {
            const linear_system system = random_system(data, n);
            ASSERT_TRUE(expect_all_forms_agree(system));

            // The residual is small compared with its terms.
            const std::vector<double> x = *solve_by_reference(system);
            double largest = 0;
            for (const double component : x)
                largest = std::max(largest, std::fabs(component));
            for (int i = 0; i < n; ++i) {
                double residual = system.b[static_cast<std::size_t>(i)];
                for (int j = 0; j < n; ++j)
                    residual -= system.a[static_cast<std::size_t>(i * n + j)] * x[static_cast<std::size_t>(j)];
                EXPECT_NEAR(residual, 0.0, 1e-13 * n * (1 + largest)) << "n " << n;
            }
        }
    });
}

TEST(dense_solve, matrices_close_to_the_identity_give_the_same_result_as_the_reference) {
    for_all_orders([](int n) {
        random_data data(1000 + n);
        for (int repetition = 0; repetition < 20; ++repetition) {
            linear_system system = random_system(data, n);
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j)
                    system.at(i, j) = (i == j ? 1.0 : 0.0) - 0.01 * system.at(i, j);
            ASSERT_TRUE(expect_all_forms_agree(system));
        }
    });
}

TEST(dense_solve, graded_matrices_give_the_same_result_as_the_reference) {
    int solved = 0, singular = 0;
    for_all_orders([&](int n) {
        random_data data(2000 + n);
        for (const double decay : {0.5, 0x1p-3, 0x1p-10, 0x1p-30}) {
            linear_system rows = random_system(data, n), columns = rows, entries = rows;
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j) {
                    rows.at(i, j) *= std::pow(decay, i);
                    columns.at(i, j) *= std::pow(decay, n - 1 - j);
                    entries.at(i, j) *= std::pow(decay, std::max(i, j));
                }
            for (const linear_system& system : {rows, columns, entries})
                ++(expect_all_forms_agree(system) ? solved : singular);
        }
        linear_system wide = random_system(data, n);
        wide.a = data.wide(wide.a.size());
        ++(expect_all_forms_agree(wide) ? solved : singular);
    });
    EXPECT_GT(solved, 50);
    EXPECT_GT(singular, 50);
}

TEST(dense_solve, matrices_with_tied_pivots_give_the_same_result_as_the_reference) {
    int solved = 0;
    for_all_orders([&](int n) {
        random_data data(3000 + n);
        for (int repetition = 0; repetition < 30; ++repetition) {
            linear_system system = random_system(data, n);
            const bool with_zeros = repetition % 2 == 0;
            for (double& entry : system.a)
                entry = with_zeros ? double(data.below(3)) - 1.0 : data.below(2) == 0 ? 1.0 : -1.0;
            solved += expect_all_forms_agree(system);
        }
    });
    EXPECT_GT(solved, 100);
}

TEST(dense_solve, singular_matrices_give_the_same_result_as_the_reference) {
    for_all_orders([](int n) {
        random_data data(4000 + n);
        // A column of zeros, at every position.
        for (int zero = 0; zero < n; ++zero) {
            linear_system system = random_system(data, n);
            for (int i = 0; i < n; ++i)
                system.at(i, zero) = 0.0;
            EXPECT_FALSE(expect_all_forms_agree(system)) << "n " << n << ", column " << zero;
        }
        // A row of zeros, and two equal rows of small whole numbers.
        linear_system system = random_system(data, n);
        for (int j = 0; j < n; ++j)
            system.at(n - 1, j) = 0.0;
        EXPECT_FALSE(expect_all_forms_agree(system)) << "n " << n;
        if (n >= 2) {
            for (double& entry : system.a)
                entry = double(data.below(9)) - 4.0;
            for (int j = 0; j < n; ++j)
                system.at(n - 1, j) = system.at(0, j);
            expect_all_forms_agree(system);
        }
        // Only zeros.
        std::fill(system.a.begin(), system.a.end(), 0.0);
        EXPECT_FALSE(expect_all_forms_agree(system)) << "n " << n;
    });
}

TEST(dense_solve, special_values_give_the_same_result_as_the_reference) {
    int solved = 0, singular = 0;
    for_all_orders([&](int n) {
        random_data data(5000 + n);
        for (int repetition = 0; repetition < 40; ++repetition) {
            linear_system system = random_system(data, n);
            const std::uint64_t spacing = repetition % 2 == 0 ? 4 : static_cast<std::uint64_t>(n) * n;
            system.a = data.sprinkled(system.a.size(), spacing);
            if (repetition % 4 == 0)
                system.b = data.sprinkled(system.b.size(), 4);
            ++(expect_all_forms_agree(system) ? solved : singular);
        }
    });
    EXPECT_GT(solved, 100);
    EXPECT_GT(singular, 100);
}

TEST(dense_solve, a_nan_pivot_is_not_singular_and_gives_a_solution_of_nan) {
    for_all_orders([](int n) {
        random_data data(6000 + n);
        for (int place = 0; place < n; ++place) {
            linear_system system = random_system(data, n);
            for (int i = 0; i < n; ++i)
                system.at(i, place) = nan;
            ASSERT_TRUE(expect_all_forms_agree(system)) << "n " << n << ", column " << place;
            const std::vector<double> x = *solve_by_reference(system);
            EXPECT_TRUE(std::isnan(x[0])) << "n " << n;
        }
    });
}

TEST(dense_solve, a_nan_below_the_diagonal_never_becomes_the_pivot) {
    const linear_system system{3, {1, 0, 0, nan, 1, 0, 2, 0, 1}, {1, 1, 1}};
    expect_all_forms_agree(system);
    std::vector<double> a{1, nan, 2, 0, 1, 0, 0, 0, 1}, b{1, 1, 1};
    std::vector<int> pivots(3);
    EXPECT_TRUE(solve_dense_in_place({9, a.data()}, {3, b.data()}, 3, {3, pivots.data()}));
    EXPECT_EQ(pivots[0], 2);
}

TEST(dense_solve, an_infinite_pivot_is_singular) {
    for_all_orders([](int n) {
        random_data data(7000 + n);
        for (int place = 0; place < n; ++place)
            for (const double pivot : {infinity, -infinity}) {
                linear_system system = random_system(data, n);
                system.at(data.below(2) == 0 ? 0 : n - 1, 0) = pivot;
                EXPECT_FALSE(expect_all_forms_agree(system)) << "n " << n;
            }
    });
}

// Every matrix of order 2 and 3 with entries that tie, cancel, are close to the tolerance, or are NaN.
TEST(dense_solve, every_matrix_of_a_small_world_gives_the_same_result_as_the_reference) {
    constexpr std::array entries{0.0, 1.0, -1.0, 1e-16, nan};
#ifdef __SANITIZE_ADDRESS__ // two million matrices would take minutes
    constexpr std::size_t in_order_3 = 3;
#else
    constexpr std::size_t in_order_3 = 5;
#endif
    for (const auto& [n, b, values] : {std::tuple{2, std::vector{1.0, 2.0}, entries.size()},
                                       {2, std::vector{0.0, -0.0}, entries.size()},
                                       {2, std::vector{1e-16, nan}, entries.size()},
                                       {3, std::vector{1.0, 2.0, -3.0}, in_order_3}}) {
        const int matrices = int(std::pow(values, n * n));
        linear_system system{n, std::vector<double>(static_cast<std::size_t>(n * n), entries[0]), b};
        std::vector<std::size_t> digits(system.a.size());
        int solved = 0, singular = 0;
        for (std::size_t carry = 0; carry < system.a.size();) {
            ++(expect_all_forms_agree(system) ? solved : singular);
            ASSERT_FALSE(HasFailure()) << "matrix " << ::testing::PrintToString(system.a);
            // The entries count up like the digits of a number.
            for (carry = 0; carry < system.a.size(); ++carry) {
                const std::size_t digit = digits[carry] = (digits[carry] + 1) % values;
                system.a[carry] = entries[digit];
                if (digit != 0)
                    break;
            }
        }
        EXPECT_EQ(solved + singular, matrices);
        EXPECT_GT(solved, matrices / 4);
        EXPECT_GT(singular, matrices / 10);
    }
}

TEST(dense_solve, a_pivot_is_compared_with_the_largest_pivot_so_far) {
    EXPECT_FALSE(expect_all_forms_agree({2, {1, 0, 0, 1e-16}, {1, 1}}));
    EXPECT_TRUE(expect_all_forms_agree({2, {1, 0, 0, 1e-15}, {1, 1}}));
    // A pivot equal to the bound is singular. The next larger double is not.
    const double bound = 2 * 2.220446049250313e-16;
    EXPECT_FALSE(expect_all_forms_agree({2, {1, 0, 0, bound}, {1, 1}}));
    EXPECT_TRUE(expect_all_forms_agree({2, {1, 0, 0, std::nextafter(bound, 1.0)}, {1, 1}}));
    // A small pivot before a large one is not singular.
    EXPECT_TRUE(expect_all_forms_agree({2, {1e-16, 0, 0, 1}, {1, 1}}));
}

TEST(dense_solve, the_tolerance_is_the_order_times_eps) {
    for_all_orders([](int n) {
        if (n < 2)
            return;
        linear_system system{n, std::vector<double>(std::size_t(n) * n), std::vector<double>(n, 1.0)};
        for (int i = 0; i < n; ++i)
            system.at(i, i) = 1.0;
        const double bound = double(n) * 2.220446049250313e-16;
        system.at(n - 1, n - 1) = bound;
        EXPECT_FALSE(expect_all_forms_agree(system)) << "n " << n;
        system.at(n - 1, n - 1) = std::nextafter(bound, 1.0);
        EXPECT_TRUE(expect_all_forms_agree(system)) << "n " << n;
    });
    EXPECT_EQ(3 * eps, 6.661338147750939e-16);
    EXPECT_EQ(4 * eps, 8.881784197001252e-16);
    EXPECT_EQ(12 * eps, 2.6645352591003757e-15);
}

TEST(dense_solve, the_pivot_is_the_first_of_equal_magnitudes) {
    std::vector<double> a{1, -1, 1, 2, 3, 5, 7, 11, 13}, b{1, 1, 1};
    std::vector<int> pivots(3, untouched);
    ASSERT_TRUE(solve_dense_in_place({9, a.data()}, {3, b.data()}, 3, {3, pivots.data()}));
    EXPECT_EQ(pivots[0], 0);
    EXPECT_EQ(a[0], 1.0);

    a = {1, -2, 2, 2, 3, 5, 7, 11, 13};
    b = {1, 1, 1};
    ASSERT_TRUE(solve_dense_in_place({9, a.data()}, {3, b.data()}, 3, {3, pivots.data()}));
    EXPECT_EQ(pivots[0], 1);
    EXPECT_EQ(a[0], -2.0);
}

TEST(dense_solve, a_singular_matrix_leaves_the_right_hand_side_with_the_swaps_so_far) {
    // Column-major: the first column swaps rows 0 and 1, the second is zero.
    std::vector<double> a{1, 2, 0, 0, 0, 0, 3, 4, 5}, b{10, 20, 30};
    std::vector<int> pivots(3, untouched);
    EXPECT_FALSE(solve_dense_in_place({9, a.data()}, {3, b.data()}, 3, {3, pivots.data()}));
    EXPECT_EQ(b, (std::vector<double>{20, 10, 30}));
    EXPECT_EQ(pivots, (std::vector<int>{1, 1, untouched}));
}

TEST(dense_solve, a_system_of_order_one_is_solved_by_one_division) {
    EXPECT_FALSE(expect_all_forms_agree({1, {0.0}, {1}}));
    EXPECT_FALSE(expect_all_forms_agree({1, {-0.0}, {1}}));
    EXPECT_FALSE(expect_all_forms_agree({1, {infinity}, {1}}));
    for (const double pivot : {1.0, -3.0, 1e-300, -1e300, 0x1p-1070, std::numeric_limits<double>::max()})
        for (const double b : {0.0, -0.0, 1.0, -7.0}) {
            const linear_system system{1, {pivot}, {b}};
            ASSERT_TRUE(expect_all_forms_agree(system)) << "pivot " << pivot;
            EXPECT_TRUE(equal_bits(b / pivot, solve_fixed(system)->front()));
        }
}

TEST(dense_solve, an_order_below_one_counts_as_solved_and_writes_nothing) {
    double a = 3, b = 4;
    int pivot = untouched;
    for (const int n : {0, -1, -5, std::numeric_limits<int>::min()}) {
        EXPECT_TRUE(solve_dense_in_place({1, &a}, {1, &b}, n, {1, &pivot}));
        EXPECT_TRUE(solve_dense_in_place({}, {}, n, {}));
    }
    EXPECT_EQ(a, 3);
    EXPECT_EQ(b, 4);
    EXPECT_EQ(pivot, untouched);
}

TEST(dense_solve, gives_the_same_bits_on_every_instruction_set_for_every_order_up_to_100) {
    for (int n = 1; n <= 100; ++n) {
        random_data data(9000 + n);
        EXPECT_TRUE(solve_by_forms_of_any_order(random_system(data, n))) << "n " << n;
    }
}

TEST(dense_solve, views_may_be_longer_than_needed) {
    std::vector<double> a{2, 0, 0, 4, 99}, b{2, 4, 99};
    std::vector<int> pivots(3, untouched);
    ASSERT_TRUE(solve_dense_in_place({5, a.data()}, {3, b.data()}, 2, {3, pivots.data()}));
    EXPECT_EQ(b, (std::vector<double>{1, 1, 99}));
    EXPECT_EQ(a[4], 99);
    EXPECT_EQ(pivots[2], untouched);
}

TEST(dense_solve, a_view_that_is_too_short_raises_an_index_failure_before_anything_is_written) {
    for (const int n : {1, 2, 5, 40}) {
        const auto order = static_cast<std::size_t>(n);
        std::vector<double> a(order * order), b(order);
        std::vector<int> pivots(order, untouched);
        for (int i = 0; i < n; ++i)
            a[static_cast<std::size_t>(i + i * n)] = 1.0;
        const auto solve = [&](std::size_t missing_a, std::size_t missing_b, std::size_t missing_pivots) {
            return failure_of<index_failure>([&] {
                solve_dense_in_place({a.size() - missing_a, a.data()}, {b.size() - missing_b, b.data()}, n,
                                     {pivots.size() - missing_pivots, pivots.data()});
            });
        };
        EXPECT_TRUE(solve(1, 0, 0)) << "n " << n;
        EXPECT_TRUE(solve(a.size(), 0, 0)) << "n " << n;
        EXPECT_TRUE(solve(0, 1, 0)) << "n " << n;
        EXPECT_TRUE(solve(0, order, 0)) << "n " << n;
        EXPECT_TRUE(solve(0, 0, 1)) << "n " << n;
        EXPECT_TRUE(solve(0, 0, order)) << "n " << n;
        EXPECT_EQ(pivots, std::vector<int>(order, untouched)) << "n " << n;
        EXPECT_FALSE(solve(0, 0, 0)) << "n " << n;
    }
}

} // namespace
} // namespace quenta
