// The variants that C++ programs may call are the ones behind the exports.
#include "conformance/function_call.hpp"
#include "quenta_function_solvers/function_solvers.hpp"

#include <gtest/gtest.h>

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

// D = 0 is the scalar form.
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
        if (singular) { // NaN passes, infinity does not
            const std::size_t at = problem.entry(3, 0, 0, 3, 0, 0);
            problem.A[at] = std::numeric_limits<double>::infinity();
        }
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

TEST(function_variants, are_what_the_exports_call) {
    random_data random{20260321};
    int compared = 0;
    for (const block_kind kind : {block_kind::vie1, block_kind::vie1_cont, block_kind::vide})
        [&]<int... number>(std::integer_sequence<int, number...>) {
            (compare<1 + number / 9, number % 9>(random, kind, compared), ...);
        }
    (std::make_integer_sequence<int, 45>{});
    EXPECT_EQ(compared, 3 * 45 * 2);
}

} // namespace

} // namespace quenta_tests
