// The nonlinear equations of the steps: derivatives that are given or not, the calls that they cost, and each way in
// which a step can fail.
#include "quenta_equations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
constexpr int steps = 20, failing_step = 13;
constexpr double h = 0.1, failure_time = (failing_step + 0.5) * h;

enum class fault { none, not_a_number, infinite, stop };

// A scalar function that counts its calls and its points. After failure_time it has a fault.
struct counted_function {
    std::function<double(double, double)> value;
    fault after{};
    int calls = 0, points = 0;

    static int call(void* context, int count, const double* t, const double* x, double* values) {
        counted_function& self = *static_cast<counted_function*>(context);
        ++self.calls;
        self.points += count;
        bool faulty = false;
        for (int p = 0; p < count; ++p) {
            const bool late = t[p] > failure_time && self.after != fault::none;
            faulty = faulty || (late && self.after == fault::stop);
            values[p] = !late ? self.value(t[p], x ? x[p] : 0.0) : self.after == fault::infinite ? infinity : nan;
        }
        return faulty ? 1 : 0;
    }
};

struct equation_deleter {
    void operator()(quenta_equation* equation) const { quenta_equation_destroy(equation); }
    void operator()(quenta_solution* solution) const { quenta_solution_destroy(solution); }
};
using equation_pointer = std::unique_ptr<quenta_equation, equation_deleter>;
using solution_pointer = std::unique_ptr<quenta_solution, equation_deleter>;

struct functions {
    counted_function forcing, jacobian, kernel, lag_kernel, phi, derivative;
};

// y' = -y^3 + sin t + M, or y = cos t + M, with two terms.
functions smooth_functions(char kind) {
    functions f;
    f.forcing.value = [kind](double t, double y) {
        return kind == 'D' ? std::sin(t) - y * y * y : std::cos(t);
    };
    f.jacobian.value = [](double, double y) {
        return -3.0 * y * y;
    };
    f.kernel.value = [](double t, double s) {
        return std::cos(t - 2.0 * s);
    };
    f.lag_kernel.value = [](double lag, double) {
        return std::exp(-lag);
    };
    f.phi.value = [](double s, double y) {
        return s - y / (1.0 + y * y);
    };
    f.derivative.value = [](double, double y) {
        return -(1.0 - y * y) / ((1.0 + y * y) * (1.0 + y * y));
    };
    return f;
}

// phi and its derivative have one context.
struct phi_functions {
    counted_function &phi, &derivative;
    static int call_phi(void* context, int count, const double* s, const double* y, double* values) {
        return counted_function::call(&static_cast<phi_functions*>(context)->phi, count, s, y, values);
    }
    static int call_derivative(void* context, int count, const double* s, const double* y, double* values) {
        return counted_function::call(&static_cast<phi_functions*>(context)->derivative, count, s, y, values);
    }
};

struct result {
    int status;
    solution_pointer solution;
};

result solve(char kind, functions& f, bool with_derivatives, int count = steps) {
    const double y0 = 1.0;
    quenta_equation* created = nullptr;
    EXPECT_EQ(kind == 'D'   ? quenta_equation_integro_differential(1, counted_function::call, &f.forcing, &y0, &created)
              : kind == '1' ? quenta_equation_first_kind(1, counted_function::call, &f.forcing, &created)
                            : quenta_equation_second_kind(1, counted_function::call, &f.forcing, &created),
              QUENTA_EQUATION_SOLVED);
    const equation_pointer equation(created);
    if (kind == 'D' && with_derivatives) {
        EXPECT_EQ(quenta_equation_set_jacobian(created, counted_function::call, &f.jacobian), QUENTA_EQUATION_SOLVED);
    }
    phi_functions of_phi{f.phi, f.derivative};
    EXPECT_EQ(quenta_equation_add_memory(created, 1, 0.0, counted_function::call, &f.kernel), QUENTA_EQUATION_SOLVED);
    EXPECT_EQ(quenta_equation_set_phi(created, phi_functions::call_phi,
                                      with_derivatives ? phi_functions::call_derivative : nullptr, &of_phi),
              QUENTA_EQUATION_SOLVED);
    EXPECT_EQ(quenta_equation_add_lag_memory(created, 1, 0.0, counted_function::call, &f.lag_kernel),
              QUENTA_EQUATION_SOLVED);
    std::vector<double> mesh;
    for (int n = 0; n <= count; ++n)
        mesh.push_back(n * h);
    quenta_solution* solved = nullptr;
    const int status = quenta_equation_solve_on_mesh(created, mesh.data(), count, nullptr, 3, &solved);
    return {status, solution_pointer(solved)};
}

bool same_bits(const double* a, const double* b, int count) {
    return std::memcmp(a, b, std::size_t(count) * sizeof(double)) == 0;
}

class newton_iteration : public testing::TestWithParam<char> {};
INSTANTIATE_TEST_SUITE_P(equations, newton_iteration, testing::Values('2', 'D'));

TEST_P(newton_iteration, gives_the_same_solution_with_and_without_derivatives) {
    functions with = smooth_functions(GetParam()), without = smooth_functions(GetParam());
    const result a = solve(GetParam(), with, true), b = solve(GetParam(), without, false);
    ASSERT_EQ(a.status, QUENTA_EQUATION_SOLVED);
    ASSERT_EQ(b.status, QUENTA_EQUATION_SOLVED);
    for (int n = 0; n <= steps; ++n)
        EXPECT_NEAR(quenta_solution_values(a.solution.get())[n], quenta_solution_values(b.solution.get())[n], 2e-15);
    // A few iterations per step: the guess is the polynomial of the step before.
    EXPECT_LE(with.phi.calls, 6 * steps);
    EXPECT_LE(with.derivative.calls, 3 * steps);
    EXPECT_LE(without.phi.calls, 8 * steps);
    EXPECT_EQ(without.derivative.calls, 0);
    EXPECT_EQ(without.jacobian.calls, 0);
    // Each kernel is evaluated once at each point.
    EXPECT_EQ(with.kernel.points, (steps * (steps - 1) / 2 + steps) * 9);
    EXPECT_EQ(with.lag_kernel.points, (steps * (steps - 1) / 2 + steps) * 9);
}

struct faulty_function {
    std::string name;
    counted_function functions::*function;
    fault kind;
};

const std::vector<faulty_function>& faulty_functions() {
    static const std::vector<faulty_function> all = [] {
        std::vector<faulty_function> list;
        for (const fault kind : {fault::not_a_number, fault::infinite, fault::stop})
            for (const auto& [name, function] :
                 std::initializer_list<std::pair<std::string, counted_function functions::*>>{
                     {"forcing", &functions::forcing},
                     {"jacobian", &functions::jacobian},
                     {"kernel", &functions::kernel},
                     {"lag_kernel", &functions::lag_kernel},
                     {"phi", &functions::phi},
                     {"derivative", &functions::derivative}})
                list.push_back({name, function, kind});
        return list;
    }();
    return all;
}

using failure_case = std::pair<char, faulty_function>;

std::vector<failure_case> failure_cases() {
    std::vector<failure_case> cases;
    for (const char kind : {'1', '2', 'D'})
        for (const faulty_function& function : faulty_functions())
            if (kind == 'D' || function.name != "jacobian")
                cases.emplace_back(kind, function);
    return cases;
}

class a_function_that_fails : public testing::TestWithParam<failure_case> {};
INSTANTIATE_TEST_SUITE_P(equations, a_function_that_fails, testing::ValuesIn(failure_cases()));

TEST_P(a_function_that_fails, ends_the_solve_at_its_step) {
    const auto& [kind, failing] = GetParam();
    SCOPED_TRACE(failing.name + ", kind " + kind);
    functions sound = smooth_functions(kind), faulty = smooth_functions(kind);
    if (kind == '1') // M = g with phi monotone
        for (functions* f : {&sound, &faulty}) {
            f->forcing.value = [](double t, double) {
                return std::sin(t);
            };
            f->phi.value = [](double, double y) {
                return y + 0.5 * std::sin(y);
            };
            f->derivative.value = [](double, double y) {
                return 1.0 + 0.5 * std::cos(y);
            };
            f->kernel.value = [](double t, double s) {
                return 2.0 + t - s;
            };
        }
    (faulty.*failing.function).after = failing.kind;
    const result got = solve(kind, faulty, true);
    EXPECT_EQ(got.status, failing.kind == fault::stop ? QUENTA_EQUATION_STOPPED : QUENTA_EQUATION_NOT_FINITE);
    ASSERT_NE(got.solution, nullptr);
    const int solved = quenta_solution_steps(got.solution.get());
    // Functions of time alone are called ahead for many steps, which matters only if they stop the solve.
    const bool ahead = failing.kind == fault::stop && (failing.name == "kernel" || failing.name == "lag_kernel" ||
                                                       (failing.name == "forcing" && kind != 'D'));
    if (ahead)
        EXPECT_LE(solved, failing_step);
    else
        EXPECT_EQ(solved, failing_step);
    if (solved == 0)
        return;
    const result shorter = solve(kind, sound, true, solved);
    ASSERT_EQ(shorter.status, QUENTA_EQUATION_SOLVED);
    EXPECT_TRUE(same_bits(quenta_solution_values(got.solution.get()), quenta_solution_values(shorter.solution.get()),
                          solved + 1));
    std::vector<double> times, a, b;
    for (int i = 0; i < 10 * solved; ++i)
        times.push_back(i * 0.1 * h);
    a.resize(times.size());
    b.resize(times.size());
    EXPECT_EQ(quenta_solution_evaluate(got.solution.get(), int(times.size()), times.data(), a.data()),
              QUENTA_EQUATION_SOLVED);
    EXPECT_EQ(quenta_solution_evaluate(shorter.solution.get(), int(times.size()), times.data(), b.data()),
              QUENTA_EQUATION_SOLVED);
    EXPECT_TRUE(same_bits(a.data(), b.data(), int(times.size())));
}

// M = g with phi(y) = y^2 has no solution once g decreases.
TEST(a_step_without_a_solution, ends_the_solve) {
    functions f = smooth_functions('1');
    f.kernel.value = [](double, double) {
        return 1.0;
    };
    f.lag_kernel.value = [](double, double) {
        return 0.0;
    };
    f.phi.value = [](double, double y) {
        return y * y;
    };
    f.derivative.value = [](double, double y) {
        return 2.0 * y;
    };
    f.forcing.value = [](double t, double) {
        return t < failure_time ? t : 2.0 * failure_time - t;
    };
    quenta_equation* created = nullptr;
    ASSERT_EQ(quenta_equation_first_kind(1, counted_function::call, &f.forcing, &created), QUENTA_EQUATION_SOLVED);
    const equation_pointer equation(created);
    phi_functions of_phi{f.phi, f.derivative};
    const double guess = 1.0;
    ASSERT_EQ(quenta_equation_set_first_guess(created, &guess), QUENTA_EQUATION_SOLVED);
    ASSERT_EQ(quenta_equation_add_memory(created, 1, 0.0, counted_function::call, &f.kernel), QUENTA_EQUATION_SOLVED);
    ASSERT_EQ(quenta_equation_set_phi(created, phi_functions::call_phi, phi_functions::call_derivative, &of_phi),
              QUENTA_EQUATION_SOLVED);
    quenta_solution* solved = nullptr;
    EXPECT_EQ(quenta_equation_solve(created, steps * h, steps, nullptr, 1, &solved), QUENTA_EQUATION_NO_CONVERGENCE);
    const solution_pointer solution(solved);
    // Step 13 contains the change: its end is at the value of its start.
    const int reached = quenta_solution_steps(solved);
    EXPECT_GE(reached, failing_step);
    EXPECT_LE(reached, failing_step + 1);
    for (int n = 1; n <= failing_step; ++n)
        EXPECT_NEAR(quenta_solution_values(solved)[n], 1.0, 1e-12) << n;
}

// With one node at the end of the step the matrix of a linear step is 1 - h K (second kind), or K h (first kind).
class a_singular_step : public testing::TestWithParam<std::tuple<char, bool>> {};
INSTANTIATE_TEST_SUITE_P(equations, a_singular_step, testing::Combine(testing::Values('1', '2', 'D'), testing::Bool()));

TEST_P(a_singular_step, ends_the_solve) {
    const auto& [kind, with_phi] = GetParam();
    constexpr double length = 0.125;
    constexpr int singular_step = 7;
    constexpr double late = (singular_step + 0.5) * length;
    functions f = smooth_functions(kind);
    const double singular = kind == '1' ? 0.0 : kind == '2' ? 1.0 / length : 1.0 / (length * length);
    f.kernel.value = [=](double t, double) {
        return t < late ? 1.0 : singular;
    };
    f.forcing.value = [](double t, double) {
        return t;
    };
    f.phi.value = [](double, double y) {
        return y;
    };
    f.derivative.value = [](double, double) {
        return 1.0;
    };
    quenta_equation* created = nullptr;
    const double y0 = 1.0;
    ASSERT_EQ(kind == 'D'   ? quenta_equation_integro_differential(1, nullptr, nullptr, &y0, &created)
              : kind == '1' ? quenta_equation_first_kind(1, counted_function::call, &f.forcing, &created)
                            : quenta_equation_second_kind(1, counted_function::call, &f.forcing, &created),
              QUENTA_EQUATION_SOLVED);
    const equation_pointer equation(created);
    ASSERT_EQ(quenta_equation_add_memory(created, 1, 0.0, counted_function::call, &f.kernel), QUENTA_EQUATION_SOLVED);
    phi_functions of_phi{f.phi, f.derivative};
    if (with_phi) {
        ASSERT_EQ(quenta_equation_set_phi(created, phi_functions::call_phi, phi_functions::call_derivative, &of_phi),
                  QUENTA_EQUATION_SOLVED);
    }
    quenta_solution* solved = nullptr;
    EXPECT_EQ(quenta_equation_solve(created, steps * length, steps, nullptr, 1, &solved),
              QUENTA_EQUATION_SINGULAR_STEP);
    const solution_pointer solution(solved);
    EXPECT_EQ(quenta_solution_steps(solved), singular_step);
}

} // namespace
