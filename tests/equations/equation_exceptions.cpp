// Functions that throw, through the C interface and from C++; solves that stop or fail; copies of equations.
#include "equations/polynomial_equation.hpp"
#include "quenta_equations.hpp"
#include "support/bits.hpp"
#include "support/failures.hpp"
#include "support/fenced_array.hpp"

#include <array>
#include <cmath>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

namespace quenta_tests {

namespace {

// A type that no library knows.
struct own_failure {
    int call;
};

// ---- C interface ----

TEST(exception_of_a_c_function, leaves_the_solve_and_the_equation_stays_usable) {
    random_data random{20261};
    int thrown = 0;
    for (const equation_shape& shape : every_shape()) {
        SCOPED_TRACE(testing::PrintToString(shape));
        const polynomial_equation equation{random, shape};
        int status = -1;
        const std::vector<double> expected = everything_in(equation.solve(1.0, 20, {}, status).get());
        ASSERT_EQ(status, QUENTA_EQUATION_SOLVED);
        for (int last = 1; last < 30; ++last) {
            int calls = 0;
            at_each_call = [&] {
                return ++calls == last ? throw own_failure{last} : 0;
            };
            quenta_solution* solution = nullptr;
            const auto failure = failure_of<own_failure>(
                [&] { EXPECT_EQ(quenta_equation_solve(equation.get(), 1.0, 20, nullptr, 0, &solution), 0); });
            at_each_call = nullptr;
            EXPECT_EQ(failure.has_value(), solution == nullptr)
                << "expected that nothing is written after an exception";
            EXPECT_EQ(failure.has_value(), calls >= last);
            EXPECT_EQ(failure.value_or(own_failure{last}).call, last);
            thrown += failure.has_value();
            quenta_solution_destroy(solution);
        }
        EXPECT_TRUE(equal_bits(expected, everything_in(equation.solve(1.0, 20, {}, status).get())));
    }
    EXPECT_GT(thrown, 500);
}

TEST(exception_of_a_c_function, leaves_an_iterated_solution_unwritten) {
    random_data random{20262};
    const polynomial_equation equation{random,
                                       {'2', 2, false, false, {{2, false, false, false}, {3, true, true, false}}}};
    int status = -1;
    const owned_solution solution = equation.solve(1.0, 4, {}, status);
    const double t[] = {0.1, 0.9};
    fenced_array y{4};
    const auto iterate = [&] {
        return quenta_solution_iterate(solution.get(), equation.get(), 2, t, y.data());
    };
    // How the call ends if the function call number `last` does not work.
    int calls = 0;
    const auto ends = [&](int last, bool throws) {
        calls = 0;
        at_each_call = [=, &calls] {
            return ++calls < last ? 0 : throws ? throw own_failure{last} : 1;
        };
        int returned = -1;
        const bool threw = failure_of<own_failure>([&] { returned = iterate(); }).has_value();
        at_each_call = nullptr;
        return threw ? -1 : returned;
    };
    for (int last = 1; last <= 8; ++last) {
        EXPECT_EQ(ends(last, true), -1);
        EXPECT_EQ(ends(last, false), QUENTA_EQUATION_STOPPED);
        EXPECT_TRUE(y.untouched());
    }
    EXPECT_EQ(ends(9, true), QUENTA_EQUATION_SOLVED);
    EXPECT_EQ(calls, 8);
    EXPECT_FALSE(y.untouched());
    EXPECT_TRUE(y.fences_hold());
}

TEST(exception_of_a_c_function, bad_alloc_is_a_status) {
    random_data random{20263};
    const polynomial_equation equation{random, {'2', 1, false, false, {{1, false, false, false}}}};
    at_each_call = [] {
        return throw std::bad_alloc{}, 0;
    };
    int status = -1;
    EXPECT_EQ(equation.solve(1.0, 4, {}, status), nullptr);
    EXPECT_EQ(status, QUENTA_EQUATION_OUT_OF_MEMORY);
    at_each_call = nullptr;
}

TEST(iterated_solution, that_is_not_finite_is_not_written) {
    static double infinite_after = INFINITY;
    const auto g = [](void*, int count, const double* t, const double*, double* values) {
        for (int p = 0; p < count; ++p)
            values[p] = t[p] > infinite_after ? INFINITY : 1.0;
        return 0;
    };
    quenta_equation* equation = nullptr;
    quenta_solution* solution = nullptr;
    ASSERT_EQ(quenta_equation_second_kind(1, g, nullptr, &equation), 0);
    ASSERT_EQ(quenta_equation_solve(equation, 1.0, 4, nullptr, 0, &solution), 0);
    const double t[] = {0.1, 0.9};
    fenced_array y{2};
    infinite_after = 0.5;
    EXPECT_EQ(quenta_solution_iterate(solution, equation, 2, t, y.data()), QUENTA_EQUATION_NOT_FINITE);
    EXPECT_TRUE(y.untouched());
    quenta_solution_destroy(solution);
    quenta_equation_destroy(equation);
}

TEST(progress, is_called_after_every_step_and_may_stop_the_solve) {
    struct record {
        std::vector<int> done;
        int stop_after;
    };
    const auto note = [](void* context, int done, int steps) {
        EXPECT_EQ(steps, 20);
        record& into = *static_cast<record*>(context);
        into.done.push_back(done);
        return done == into.stop_after ? 1 : 0;
    };
    random_data random{20264};
    for (const equation_shape& shape : every_shape()) {
        SCOPED_TRACE(testing::PrintToString(shape));
        const polynomial_equation equation{random, shape};
        int status = -1;
        const owned_solution complete = equation.solve(1.0, 20, {}, status);
        for (const int last : {1, 7, 20, 21}) {
            record calls{{}, last};
            ASSERT_EQ(quenta_equation_set_progress(equation.get(), note, &calls), 0);
            const owned_solution partial = equation.solve(1.0, 20, {}, status);
            EXPECT_EQ(status, last <= 20 ? QUENTA_EQUATION_STOPPED : QUENTA_EQUATION_SOLVED);
            const int solved = quenta_solution_steps(partial.get());
            EXPECT_EQ(solved, std::min(last, 20));
            ASSERT_EQ(calls.done.size(), std::size_t(solved));
            for (int n = 0; n < solved; ++n)
                EXPECT_EQ(calls.done[std::size_t(n)], n + 1);
            const std::size_t values = std::size_t((solved + 1) * shape.D);
            EXPECT_TRUE(equal_bits(std::span{quenta_solution_values(complete.get()), values},
                                   std::span{quenta_solution_values(partial.get()), values}));
        }
        EXPECT_EQ(quenta_equation_set_progress(equation.get(), nullptr, nullptr), 0);
        EXPECT_EQ((equation.solve(1.0, 20, {}, status), status), QUENTA_EQUATION_SOLVED);
    }
}

// ---- C++ ----

// Throws in the call number `fails_at`. One object of this type serves as each kind of function.
struct throwing {
    double result;
    int *calls, fails_at;

    double operator()(double t) const {
        if (++*calls == fails_at)
            throw own_failure{*calls};
        return result * std::exp(-t);
    }
    double operator()(double t, double) const { return (*this)(t); }
    void operator()(double t, std::span<double> values) const { std::fill(values.begin(), values.end(), (*this)(t)); }
    void operator()(double t, double, std::span<double> values) const { (*this)(t, values); }
    void operator()(double t, std::span<const double>, std::span<double> values) const { (*this)(t, values); }
};

// Functions of a scalar equation return their values; those of a system write them.
template <class... arguments>
struct only : throwing {
    decltype(auto) operator()(arguments... at) const { return throwing::operator()(at...); }
};
using time_value = only<double>;
using times_value = only<double, double>;
using time_vector = only<double, std::span<double>>;
using times_vector = only<double, double, std::span<double>>;
using state_vector = only<double, std::span<const double>, std::span<double>>;

enum role { forcing, kernel, phi, derivative, roles };

// The equation whose function with this role throws in its call number `fails_at`.
quenta::equation throwing_equation(int which, role thrower, int* calls, int fails_at) {
    static int ignored = 0;
    const auto as = [&](role mine, double value) {
        return mine == thrower ? throwing{value, calls, fails_at} : throwing{value, &ignored, -1};
    };
    const double y0[] = {0.5, 0.5};
    switch (which) {
    case 0:
        return quenta::second_kind(time_value{as(forcing, 1.0)})
            .memory(times_value{as(kernel, 0.1)}, times_value{as(phi, 1.0)}, times_value{as(derivative, 0.0)});
    case 1:
        return quenta::second_kind(time_vector{as(forcing, 1.0)}, 2)
            .lag_memory(time_vector{as(kernel, 0.1)}, state_vector{as(phi, 1.0)}, state_vector{as(derivative, 0.0)}, 3);
    case 2:
        return quenta::integro_differential(times_value{as(forcing, 1.0)}, 0.5)
            .jacobian(times_value{as(derivative, 0.0)})
            .lag_memory(time_value{as(kernel, 0.1)}, times_value{as(phi, 1.0)});
    case 3:
        return quenta::integro_differential(state_vector{as(forcing, 1.0)}, y0)
            .jacobian(state_vector{as(derivative, 0.0)})
            .memory(times_vector{as(kernel, 0.1)}, state_vector{as(phi, 1.0)}, 3);
    default:
        return quenta::first_kind(time_value{as(forcing, 0.0)})
            .memory(times_value{as(kernel, 1.0)}, times_value{as(phi, 0.0)}, times_value{as(derivative, 1.0)});
    }
}

TEST(exception_of_a_lambda, reaches_the_caller_with_its_type_from_every_kind_of_function) {
    int thrown = 0;
    for (int which = 0; which < 5; ++which)
        for (int thrower = forcing; thrower < roles; ++thrower)
            for (const int fails_at : {1, 2, 5}) {
                SCOPED_TRACE("equation " + std::to_string(which) + ", function " + std::to_string(thrower));
                int calls = 0;
                const quenta::equation equation = throwing_equation(which, role(thrower), &calls, fails_at);
                for (const quenta::solve_options& options :
                     {quenta::equal_steps(5), quenta::on_mesh({0.0, 0.3, 1.0}), quenta::to_tolerance(1e-3)}) {
                    calls = 0;
                    const auto failure = failure_of<own_failure>([&] { equation.solve(1.0, options); });
                    ASSERT_TRUE(failure.has_value());
                    EXPECT_EQ(failure->call, fails_at);
                    EXPECT_EQ(calls, fails_at) << "expected no call after the one that threw";
                    EXPECT_EQ(equation.solve(1.0, options).mesh().back(), 1.0); // later calls do not throw
                    ++thrown;
                }
            }
    EXPECT_EQ(thrown, 5 * 4 * 3 * 3);
}

TEST(exception_of_a_lambda, reaches_the_caller_of_an_iterated_solution) {
    int calls = 0;
    const quenta::equation equation = throwing_equation(0, kernel, &calls, 0);
    const quenta::solution y = equation.solve(1.0, quenta::equal_steps(5));
    const quenta::equation failing = throwing_equation(0, kernel, &calls, 1);
    const double t[] = {0.2, 0.7};
    calls = 0;
    EXPECT_TRUE(failure_of<own_failure>([&] { failing.iterate(y, t); }).has_value());
    EXPECT_EQ(failing.iterate(y, t), equation.iterate(y, t));
}

// A function may solve another equation, and the exception of the inner solve may be handled there.
TEST(exception_of_a_lambda, may_be_handled_in_a_function_of_another_solve) {
    const quenta::equation inner = quenta::second_kind([](double t) { return t < 0.5 ? 1.0 : throw own_failure{1}; });
    int handled = 0;
    const quenta::equation outer = quenta::second_kind([&](double t) {
        try {
            return inner.solve(1.0, quenta::equal_steps(3))(t);
        } catch (const own_failure&) {
            ++handled;
            return t;
        }
    });
    EXPECT_NEAR(outer.solve(1.0, quenta::equal_steps(2))(0.3), 0.3, 1e-15);
    EXPECT_GT(handled, 0);
    const quenta::equation through =
        quenta::second_kind([&](double t) { return inner.solve(1.0, quenta::equal_steps(3))(t); });
    EXPECT_TRUE(failure_of<own_failure>([&] { through.solve(1.0, quenta::equal_steps(2)); }).has_value());
}

TEST(solve_failure, contains_the_steps_before_the_one_that_failed) {
    // y = 1 / (1 - t)
    const quenta::equation equation =
        quenta::second_kind([](double) { return 1.0; })
            .memory([](double, double) { return 1.0; }, [](double, double y) { return y * y; },
                    [](double, double y) { return 2.0 * y; });
    const auto failure = failure_of<quenta::solve_failure>([&] { equation.solve(2.0, quenta::equal_steps(100)); });
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(failure->status, QUENTA_EQUATION_NO_CONVERGENCE);
    EXPECT_STREQ(failure->what(), quenta_equations_error_text(QUENTA_EQUATION_NO_CONVERGENCE));
    EXPECT_NEAR(failure->partial(0.5), 2.0, 1e-5);
    EXPECT_NEAR(failure->partial.mesh().back(), 1.0, 0.05);
    EXPECT_EQ(failure->partial.mesh().size(), std::size_t(failure->partial.steps()) + 1);

    const auto missed = failure_of<quenta::solve_failure>([] {
        quenta::second_kind([](double t) { return std::sqrt(t); }).solve(1.0, quenta::to_tolerance(1e-12, 0, 64));
    });
    ASSERT_TRUE(missed.has_value());
    EXPECT_EQ(missed->status, QUENTA_EQUATION_TOLERANCE_MISSED);
    EXPECT_NEAR(missed->partial(0.25), 0.5, 1e-3);
}

TEST(equation_error, names_what_was_expected) {
    const quenta::equation equation = quenta::second_kind([](double) { return 1.0; });
    const auto expect = [](int status, const auto& act) {
        const auto error = failure_of<quenta::equation_error>(act);
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->status, status) << error->what();
        EXPECT_STREQ(error->what(), quenta_equations_error_text(status));
    };
    const auto solve = [&](double t_end, const quenta::solve_options& options) {
        return [&, t_end, options] {
            equation.solve(t_end, options);
        };
    };
    expect(QUENTA_EQUATION_BAD_DIMENSION, [] { quenta::second_kind([](double) { return 1.0; }, 0); });
    expect(QUENTA_EQUATION_BAD_DIMENSION, [] { quenta::first_kind([](double) { return 1.0; }, -1); });
    expect(QUENTA_EQUATION_BAD_START, [] { quenta::integro_differential(nullptr, NAN); });
    for (const int steps : {0, -1})
        expect(QUENTA_EQUATION_BAD_STEPS, solve(1.0, quenta::equal_steps(steps)));
    expect(QUENTA_EQUATION_BAD_MESH, solve(1.0, quenta::on_mesh({})));
    expect(QUENTA_EQUATION_BAD_STEPS, solve(0.0, quenta::on_mesh({0.0})));
    expect(QUENTA_EQUATION_BAD_MESH, solve(1.0, quenta::on_mesh({0.0, 0.5})));
    expect(QUENTA_EQUATION_BAD_END, solve(-1.0, quenta::equal_steps(3)));
    expect(QUENTA_EQUATION_BAD_TOLERANCE, solve(1.0, {}));
    expect(QUENTA_EQUATION_BAD_NODES, solve(1.0, quenta::equal_steps(3).nodes(QUENTA_LOBATTO, 1)));
    expect(QUENTA_EQUATION_BAD_NODES, solve(1.0, quenta::equal_steps(3).nodes({0.5, 0.5})));
    expect(QUENTA_EQUATION_BAD_START, [&] { quenta::equation{equation}.first_guess(std::span<const double>{}); });
    expect(QUENTA_EQUATION_WRONG_KIND,
           [&] { quenta::equation{equation}.jacobian([](double, double) { return 1.0; }); });
    const quenta::solution y = equation.solve(1.0, quenta::equal_steps(3));
    for (const double t : {-0.1, 1.1, double(NAN)}) {
        expect(QUENTA_EQUATION_BAD_TIME, [&] { y(t); });
        expect(QUENTA_EQUATION_BAD_TIME, [&] { y.derivative(t); });
        expect(QUENTA_EQUATION_BAD_TIME, [&] { equation.iterate(y, std::span(&t, 1)); });
    }
}

TEST(function_that_returns_a_number, is_refused_in_a_system) {
    const auto number = [](double) {
        return 1.0;
    };
    const auto two_numbers = [](double, double) {
        return 1.0;
    };
    const auto vector = [](double, std::span<double> values) {
        values[0] = values[1] = 0.0;
    };
    const auto refused = [](const auto& act) {
        return failure_of<std::invalid_argument>(act).has_value();
    };
    EXPECT_TRUE(refused([&] { quenta::second_kind(number, 2); }));
    EXPECT_TRUE(refused([&] { quenta::first_kind(number, 2); }));
    EXPECT_TRUE(refused([&] { quenta::integro_differential(two_numbers, std::array{1.0, 2.0}); }));
    EXPECT_TRUE(refused([&] { quenta::second_kind(vector, 2).lag_memory(number); }));
    EXPECT_TRUE(refused([&] { quenta::second_kind(vector, 2).memory(two_numbers); }));
    // D is 2 and E is 1, and the other way round.
    const auto column = [](double, double, std::span<double> values) {
        values[0] = values[1] = 1.0;
    };
    EXPECT_TRUE(refused([&] { quenta::second_kind(vector, 2).memory(column, two_numbers, 1); }));
    EXPECT_TRUE(refused([&] { quenta::second_kind(number).memory(column, two_numbers, 2); }));
    const auto first = [](double, std::span<const double> y, std::span<double> values) {
        values[0] = y[0];
    };
    EXPECT_TRUE(refused([&] { quenta::second_kind(vector, 2).memory(column, first, two_numbers, 1); }));
    EXPECT_FALSE(refused([&] { quenta::second_kind(vector, 2).memory(column, first, 1); }));
}

TEST(equation, is_the_same_after_copies_and_moves_and_a_solution_outlives_it) {
    const auto solved = [] {
        quenta::equation original = quenta::second_kind([scale = std::make_unique<double>(1.0)](double) {
                                        return *scale;
                                    }).memory([](double t, double s) { return t - s; });
        const quenta::equation copy = original;
        const std::vector<double> expected = original.solve(1.0, quenta::equal_steps(9)).at(1.0);
        quenta::equation moved = std::move(original);
        EXPECT_EQ(copy.solve(1.0, quenta::equal_steps(9)).at(1.0), expected);
        EXPECT_EQ(moved.solve(1.0, quenta::equal_steps(9)).at(1.0), expected);
        original = std::move(moved);
        return original.solve(1.0, quenta::equal_steps(9));
    }();
    const quenta::solution copy = solved;
    EXPECT_NEAR(copy(1.0), std::cosh(1.0), 1e-6);
    EXPECT_NEAR(solved.derivative(1.0), std::sinh(1.0), 1e-2);
    EXPECT_TRUE(solved.error().empty());
}

} // namespace

} // namespace quenta_tests
