// The variants that C++ programs call directly give the results of the exports, and check the lengths of their views.
#include "conformance/function_call.hpp"
#include "quenta_function_solvers/function_solvers.hpp"
#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

namespace quenta_tests {

namespace {

using quenta::view;

view<const double> in(const std::vector<double>& array) {
    return {array.size(), array.data()};
}
view<double> out(fenced_array& array) {
    return {array.values().size(), array.data()};
}

// D = 0: the scalar form.
template <int P, int D>
bool call_variant(const block_problem& given, fenced_array& x, fenced_array& y) {
    if constexpr (D == 0)
        switch (given.kind) {
        case block_kind::vie1:
            return quenta::function_solve_vie1_impl<P>(in(given.A), in(given.b), given.N, out(x));
        case block_kind::vie1_cont:
            return quenta::function_solve_vie1_cont_impl<P>(in(given.A), in(given.b), given.N, in(given.w), given.rho,
                                                            given.y0[0], out(x), out(y));
        default:
            return quenta::function_solve_vide_impl<P>(in(given.A), in(given.b), in(given.C), in(given.E), in(given.w),
                                                       in(given.h), given.y0[0], given.N, out(x), out(y));
        }
    else
        switch (given.kind) {
        case block_kind::vie1:
            return quenta::function_solve_vie1_vec_impl<P, D>(in(given.A), in(given.b), given.N, out(x));
        case block_kind::vie1_cont:
            return quenta::function_solve_vie1_cont_vec_impl<P, D>(in(given.A), in(given.b), given.N, in(given.w),
                                                                   given.rho, in(given.y0), out(x), out(y));
        default:
            return quenta::function_solve_vide_vec_impl<P, D>(in(given.A), in(given.b), in(given.C), in(given.E),
                                                              in(given.w), in(given.h), in(given.y0), given.N, out(x),
                                                              out(y));
        }
}

template <int P, int D>
void compare(random_data& random, block_kind kind, int& compared) {
    for (const bool singular : {false, true}) {
        block_problem problem = random_blocks(random, kind, 7, P, D);
        if (singular) // an infinite pivot counts as singular
            problem.A[problem.entry(3, 0, 0, 3, 0, 0)] = std::numeric_limits<double>::infinity();
        const block_answer expected = call_block_solver(problem);
        fenced_array x{expected.x.values().size()}, y{expected.y.values().size()};
        const bool solved = call_variant<P, D>(problem, x, y);
        EXPECT_EQ(solved, expected.status == QUENTA_SOLVED) << problem.text();
        EXPECT_EQ(solved, !singular) << problem.text();
        EXPECT_TRUE(equal_bits(expected.x.values(), x.values())) << problem.text();
        EXPECT_TRUE(equal_bits(expected.y.values(), y.values())) << problem.text();
        ++compared;
    }
}

// Shortens each view in turn by one element.
template <int P, int D>
void expect_index_failures(random_data& random, block_kind kind, int& failures) {
    const block_problem whole = random_blocks(random, kind, 4, P, D);
    const block_answer solved = call_block_solver(whole);
    const std::size_t x_length = solved.x.values().size(), y_length = solved.y.values().size();
    const auto expect_failure = [&](const block_problem& problem, std::size_t length_of_x, std::size_t length_of_y,
                                    std::size_t short_length) {
        fenced_array x{length_of_x}, y{length_of_y};
        const auto failure = failure_of<quenta::index_failure>([&] { call_variant<P, D>(problem, x, y); });
        ASSERT_TRUE(failure) << problem.text();
        EXPECT_EQ(failure->length, short_length) << problem.text();
        EXPECT_EQ(failure->index, short_length) << problem.text();
        EXPECT_NE(std::strstr(failure->where.file, "quenta_function_solvers"), nullptr) << failure->where.file;
        EXPECT_GT(failure->where.line, 0);
        EXPECT_TRUE(x.untouched() && y.untouched()) << problem.text();
        ++failures;
    };
    for (std::vector<double> block_problem::*const array :
         {&block_problem::A, &block_problem::b, &block_problem::C, &block_problem::E, &block_problem::w,
          &block_problem::h, &block_problem::y0}) {
        if ((whole.*array).empty() || (D == 0 && array == &block_problem::y0)) // this variant has no such view
            continue;
        block_problem problem = whole;
        (problem.*array).pop_back();
        expect_failure(problem, x_length, y_length, (problem.*array).size());
    }
    expect_failure(whole, x_length - 1, y_length, x_length - 1);
    if (whole.carries())
        expect_failure(whole, x_length, y_length - 1, y_length - 1);
}

// Calls visit<P, D>(kind) for every variant that is exported.
template <class visitor>
void for_each_exported_variant(const visitor& visit) {
    for (const block_kind kind : {block_kind::vie1, block_kind::vie1_cont, block_kind::vide})
        [&]<int... number>(std::integer_sequence<int, number...>) {
            (visit.template operator()<1 + number / 9, number % 9>(kind), ...);
        }
    (std::make_integer_sequence<int, 45>{});
}

TEST(function_variants, give_the_same_bits_as_the_exports) {
    random_data random{20260321};
    int compared = 0;
    for_each_exported_variant([&]<int P, int D>(block_kind kind) { compare<P, D>(random, kind, compared); });
    EXPECT_EQ(compared, 3 * 45 * 2);
}

TEST(function_variants, throw_an_index_failure_for_a_view_that_is_too_short_and_write_nothing) {
    random_data random{20260322};
    int failures = 0;
    for_each_exported_variant(
        [&]<int P, int D>(block_kind kind) { expect_index_failures<P, D>(random, kind, failures); });
    // The second term counts y0, which only the vector forms take as a view.
    EXPECT_EQ(failures, 45 * (3 + 5 + 8) + 40 * (0 + 1 + 1));
}

} // namespace

} // namespace quenta_tests
