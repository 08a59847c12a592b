// quenta_solve_vide and quenta_solve_vide_vec converge with the order of the scheme, for every setting, at step
// boundaries and inside the steps.
//
// Let r be the order of the quadrature rule on the P nodes. For all settings r is P or P + 1. The history replaces
// integrals by the rule, which causes an error of order h^r. The derivative of the solution is interpolated at the
// nodes of a step, so the error of the solution inside the step is of order P + 1. At the end of the step only the
// error of the rule remains, which is of order h^(r+1) for one step. So the order is r everywhere.
#include "properties/matrix_exponential.hpp"
#include "properties/quadrature_order.hpp"
#include "properties/system_problem.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>

namespace quenta_tests {

namespace {

using reference::setting;

// An equation with the solution y(t, component), and the call that solves it.
struct solved_problem {
    const char* name;
    int D;
    std::function<double(double t, int a)> y;
    std::function<sampled_answer(const setting& row, int N, double dt)> solve;
};

void PrintTo(const solved_problem& problem, std::ostream* stream) {
    *stream << problem.name;
}

// y' = -y - integral of exp(-(t - s)) cos 3(t - s) y(s) ds with y(0) = 1.
solved_problem damped_oscillation(const char* name, bool as_system) {
    const auto solve = [as_system](const setting& row, int N, double dt) {
        const std::vector<double> g(std::size_t(N), 0.0), a(std::size_t(N), -1.0);
        std::vector<double> K;
        for (int sample = 0; sample < N; ++sample)
            K.push_back(-std::exp(-sample * dt) * std::cos(3.0 * sample * dt));
        return as_system ? call_vide_vec(g, K, a, 1, {1.0}, dt, row) : call_vide(g, K, a, 1.0, dt, row);
    };
    return {name, 1, [](double t, int) { return std::exp(-t) * (0.9 + 0.1 * std::cos(std::sqrt(10.0) * t)); }, solve};
}

// y' = A y + integral of exp(B (t - s)) C y(s) ds. The integral z satisfies z' = B z + C y, so (y, z) follows from the
// exponential of a matrix of order 4.
solved_problem exponential_of_a_matrix() {
    static const square_matrix A{2, {-1.0, 0.5, -0.3, -0.6}}, B{2, {-0.5, 2.0, -1.5, -0.8}},
        C{2, {-1.0, 0.4, 0.2, -0.7}};
    static const std::vector<double> y0{1.0, -0.5};
    static const square_matrix whole{4,
                                     {A.at(0, 0), A.at(0, 1), 1.0, 0.0,               //
                                      A.at(1, 0), A.at(1, 1), 0.0, 1.0,               //
                                      C.at(0, 0), C.at(0, 1), B.at(0, 0), B.at(0, 1), //
                                      C.at(1, 0), C.at(1, 1), B.at(1, 0), B.at(1, 1)}};
    const auto y = [](double t, int a) {
        const square_matrix map = exponential(whole, t);
        return map.at(std::size_t(a), 0) * y0[0] + map.at(std::size_t(a), 1) * y0[1];
    };
    const auto solve = [](const setting& row, int N, double dt) {
        const std::vector<double> g(std::size_t(2 * N), 0.0);
        std::vector<double> K, a;
        for (int sample = 0; sample < N; ++sample) {
            const square_matrix kernel = product(exponential(B, sample * dt), C);
            K.insert(K.end(), kernel.entries.begin(), kernel.entries.end());
            a.insert(a.end(), A.entries.begin(), A.entries.end());
        }
        return call_vide_vec(g, K, a, 2, y0, dt, row);
    };
    return {"exponential_of_a_matrix", 2, y, solve};
}

// A chosen solution, and a coefficient that depends on time.
solved_problem manufactured(const char* name, int D) {
    const system_problem problem{D, equation::integro_differential};
    const auto solve = [problem](const setting& row, int N, double dt) {
        const system_samples& data = problem.sampled(N, dt * (N - 1));
        return call_vide_vec(data.g, data.K, data.a, data.D, data.y0, dt, row);
    };
    return {name, D, [problem](double t, int a) { return problem.y(t, a); }, solve};
}

enum place { boundary, inside };
constexpr std::array place_names{"step boundaries", "inside the steps"};

// The largest error at each kind of place.
std::array<double, 2> errors(const solved_problem& problem, const setting& row, int steps) {
    const int S = row.m * row.m, N = steps * S + 1;
    const double dt = 3.0 / (N - 1);
    const sampled_answer answer = problem.solve(row, N, dt);
    EXPECT_EQ(answer.status, QUENTA_SOLVED);
    std::array<double, 2> largest{};
    for (int sample = 0; sample < N; ++sample)
        for (int a = 0; a < problem.D; ++a) {
            double& error = largest[sample % S == 0 ? boundary : inside];
            error = std::max(error, std::fabs(answer.out.values()[sample * problem.D + a] - problem.y(sample * dt, a)));
        }
    return largest;
}

class vide_convergence : public ::testing::TestWithParam<solved_problem> {};

TEST_P(vide_convergence, has_the_order_of_the_quadrature_rule) {
    int orders_seen = 0;
    for (const setting& row : reference::settings()) {
        const int P = int(row.indices.size()), order = quadrature_order(row);
        ASSERT_LE(order, P + 1);
        // Enough steps that the leading error term dominates, but not rounding.
        const int steps = P == 1 ? 128 : P == 2 ? 64 : P <= 4 ? 48 : 24;
        const auto coarse = errors(GetParam(), row, steps), fine = errors(GetParam(), row, 2 * steps);
        for (const place where : {boundary, inside}) {
            if (where == inside && row.m == 1)
                continue;
            ++orders_seen;
            EXPECT_NEAR(std::log2(coarse[where] / fine[where]), order, 0.25)
                << "m = " << row.m << ", nodes " << ::testing::PrintToString(row.indices) << ", " << place_names[where]
                << ": errors " << coarse[where] << " and " << fine[where];
        }
    }
    EXPECT_EQ(orders_seen, 2 * 56 - 3);
}

const solved_problem problems[] = {
    damped_oscillation("one_equation", false), damped_oscillation("one_component", true), exponential_of_a_matrix(),
    manufactured("three_components", 3),       manufactured("nine_components", 9),
};

INSTANTIATE_TEST_SUITE_P(solution, vide_convergence, ::testing::ValuesIn(problems),
                         [](const auto& instance) { return std::string{instance.param.name}; });

} // namespace

} // namespace quenta_tests
