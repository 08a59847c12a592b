// Equations with known solutions: the orders of the schemes.
#include "equations/problems.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

using namespace quenta_test;

// The largest error at the mesh points, and between them.
struct errors {
    double at_mesh, between;
};

errors errors_of(const equation_problem& problem, int steps, int family, int P) {
    const quenta::solution y = problem.equation.solve(problem.t_end, quenta::equal_steps(steps).nodes(family, P));
    const auto error_at = [&](double t, std::span<const double> values) {
        const std::vector<double> expected = problem.exact(t);
        double largest = 0.0;
        for (std::size_t a = 0; a < expected.size(); ++a)
            largest = std::max(largest, std::fabs(values[a] - expected[a]));
        return largest;
    };
    errors result{0.0, 0.0};
    const std::size_t D = std::size_t(y.dimension());
    for (std::size_t n = 0; n < y.mesh().size(); ++n)
        result.at_mesh = std::max(result.at_mesh, error_at(y.mesh()[n], y.values().subspan(n * D, D)));
    for (int k = 0; k <= 1000; ++k) {
        const double t = problem.t_end * k / 1000;
        result.between = std::max(result.between, error_at(t, y.at(t)));
    }
    return result;
}

class every_closed_form : public testing::TestWithParam<std::size_t> {
protected:
    const equation_problem problem = closed_forms().at(GetParam());
};

INSTANTIATE_TEST_SUITE_P(equations, every_closed_form, testing::Range<std::size_t>(0, closed_forms().size()),
                         [](const auto& problem) { return closed_forms()[problem.param].name; });

TEST_P(every_closed_form, is_approximated_with_the_order_of_the_scheme) {
    for (int P = 2; P <= 4; ++P) {
        const errors coarse = errors_of(problem, 64, QUENTA_RADAU, P), fine = errors_of(problem, 128, QUENTA_RADAU, P);
        const double at_mesh = problem.kind == '1' ? P : 2 * P - 1;
        EXPECT_LT(fine.between, 1.3 * coarse.between * std::pow(0.5, P - 0.2) + 1e-13) << "P = " << P;
        EXPECT_LT(fine.at_mesh, 1.3 * coarse.at_mesh * std::pow(0.5, at_mesh - 0.2) + 2e-12) << "P = " << P;
    }
}

TEST_P(every_closed_form, is_solved_to_a_tolerance) {
    for (const double tolerance : {1e-3, 1e-6, 1e-9}) {
        const quenta::solution y = problem.equation.solve(problem.t_end, quenta::to_tolerance(tolerance, tolerance));
        for (int k = 0; k <= 1000; ++k) {
            const double t = problem.t_end * k / 1000;
            const std::vector<double> expected = problem.exact(t), got = y.at(t);
            for (std::size_t a = 0; a < expected.size(); ++a)
                EXPECT_NEAR(got[a], expected[a], tolerance * (1.0 + std::fabs(expected[a]))) << "t = " << t;
        }
    }
}

} // namespace
