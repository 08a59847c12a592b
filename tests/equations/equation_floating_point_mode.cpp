// The floating-point mode of the host does not change the results of the equation solvers. Functions are called in the
// default mode, and every call leaves the host's mode unchanged.
#include "equations/polynomial_equation.hpp"
#include "equations/random_history.hpp"
#include "support/bits.hpp"
#include "support/failures.hpp"
#include "support/host_modes.hpp"

#include <limits>

namespace quenta_tests {

namespace {

class equation_floating_point_mode : public testing::TestWithParam<host_mode> {};

INSTANTIATE_TEST_SUITE_P(of_the_host, equation_floating_point_mode, testing::ValuesIn(host_modes()),
                         [](const auto& instance) {
                             std::string name = instance.param.name;
                             std::replace_if(
                                 name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
                             return name;
                         });

// Rounds to nearest, and keeps subnormals.
bool is_default_mode() {
    volatile double one = 1.0, small = 0x1p-60, least = std::numeric_limits<double>::min();
    return one + small == 1.0 && -one - small == -1.0 && one - small == 1.0 && least / 2.0 > 0.0;
}

// in_mode() checks that the mode holds after each call.
TEST_P(equation_floating_point_mode, changes_no_bit) {
    random_data random{20268};
    const double times[] = {0.0, 0.1, 0.7};
    for (const equation_shape& shape : every_shape()) {
        const polynomial_equation equation{random, shape};
        const auto solve = [&] {
            at_each_call = [] {
                return is_default_mode() ? 0 : 1;
            };
            int status = -1;
            std::shared_ptr<quenta_solution> solution = equation.solve(1.0, 20, {}, status);
            EXPECT_EQ(status, QUENTA_EQUATION_SOLVED) << "expected that functions are called in the default mode";
            return solution;
        };
        const auto expected = solve(), actual = in_mode(GetParam(), solve);
        EXPECT_TRUE(equal_bits(everything_in(expected.get()), everything_in(actual.get())));
        const auto evaluate = [&] {
            std::vector<double> y(std::size_t(6 * shape.D));
            int status = quenta_solution_evaluate(expected.get(), 3, times, y.data());
            if (shape.kind == '2')
                status += quenta_solution_iterate(expected.get(), equation.get(), 3, times, y.data() + 3 * shape.D);
            EXPECT_EQ(status, QUENTA_EQUATION_SOLVED);
            return y;
        };
        EXPECT_TRUE(equal_bits(evaluate(), in_mode(GetParam(), evaluate)));
    }
    at_each_call = nullptr;
}

TEST_P(equation_floating_point_mode, changes_no_bit_of_a_history) {
    random_data random{20270};
    const random_history data{random, 2, 3, 200};
    const auto block = [](void* context, int lag, double* values) {
        std::copy_n(static_cast<const random_history*>(context)->block(lag), 6, values);
        return is_default_mode() ? 0 : 1;
    };
    const auto sums = [&] {
        quenta_history* created = nullptr;
        random_history copy = data;
        EXPECT_EQ(quenta_history_from_function(2, 3, 200, block, &copy, &created), QUENTA_EQUATION_SOLVED)
            << "expected that the function is called in the default mode";
        return data.sums_of(owned_history{created}.get());
    };
    EXPECT_TRUE(equal_bits(sums(), in_mode(GetParam(), sums)));
}

TEST_P(equation_floating_point_mode, holds_after_an_exception_and_after_wrong_arguments) {
    random_data random{20269};
    const polynomial_equation equation{random, {'1', 1, false, false, {{1, false, true, false}}}};
    EXPECT_TRUE(in_mode(GetParam(), [&] {
        at_each_call = [] {
            return throw 1, 0;
        };
        int status = -1;
        return failure_of<int>([&] { equation.solve(1.0, 4, {}, status); }).has_value();
    }));
    constexpr double tiny = std::numeric_limits<double>::denorm_min();
    quenta_solution* solution = nullptr;
    EXPECT_EQ(in_mode(GetParam(),
                      [&] { // (1 - c) / c overflows
                          return quenta_equation_solve(equation.get(), 1.0, 4, &tiny, 1, &solution);
                      }),
              QUENTA_EQUATION_UNSTABLE_NODES);
    EXPECT_EQ(
        in_mode(GetParam(), [&] { return quenta_equation_solve(equation.get(), tiny, 4, nullptr, 0, &solution); }),
        QUENTA_EQUATION_BAD_END);
}

} // namespace

} // namespace quenta_tests
