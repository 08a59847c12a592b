// Solutions that become infinite at a finite time: the solve ends there, with every scheme, on every mesh, and contains
// nothing that is not near the solution.
#include "quenta_equations.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace {

struct infinite_problem {
    std::string name;
    double pole;
    quenta::equation equation;
};

// |y| increases up to the pole.
std::vector<infinite_problem> infinite_problems() {
    const auto one = [](double) {
        return 1.0;
    };
    const auto square = [](double, double y) {
        return y * y;
    };
    const auto cube = [](double, double y) {
        return y * y * y;
    };
    const auto exponential = [](double, double y) {
        return std::exp(y);
    };
    return {
        {"square", 1.0, quenta::second_kind(one).lag_memory(one, square)},
        {"negative_square", 1.0,
         quenta::second_kind([](double) { return -1.0; }).lag_memory([](double) { return -1.0; }, square)},
        {"cube", 0.5, quenta::second_kind(one).lag_memory(one, cube)},
        {"fourth_power", 1.0 / 3.0,
         quenta::second_kind(one).memory([](double, double) { return 1.0; },
                                         [](double, double y) { return y * y * y * y; })},
        {"exponential", 1.0, quenta::second_kind([](double) { return 0.0; }).lag_memory(one, exponential)},
        {"tangent", std::numbers::pi / 2,
         quenta::second_kind([](double) { return 0.0; }).lag_memory(one, [](double, double y) { return 1.0 + y * y; })},
        {"integro_square", 1.0, quenta::integro_differential(square, 1.0)},
        {"integro_cube", 0.5, quenta::integro_differential(cube, 1.0)},
        {"integro_exponential", 1.0, quenta::integro_differential(exponential, 0.0)},
        // y' = 1 + integral of 2 y^3, y = 1 / (1 - t)
        {"integro_memory", 1.0,
         quenta::integro_differential([](double, double) { return 1.0; }, 1.0)
             .lag_memory(one, [](double, double y) { return 2.0 * y * y * y; })},
        {"system", 1.0,
         quenta::second_kind([](double, std::span<double> g) { g[0] = g[1] = 1.0; }, 2)
             .lag_memory([](double, std::span<double> K) { K[0] = K[1] = 1.0; },
                         [](double, std::span<const double> y, std::span<double> phi) { phi[0] = y[0] * y[1]; }, 1)},
        {"integro_system", 1.0,
         quenta::integro_differential(
             [](double, std::span<const double> y, std::span<double> f) { f[0] = f[1] = y[0] * y[1]; },
             std::vector{1.0, 1.0})},
    };
}

// Uniform meshes, those of which one step is ten times as long, and random ones.
std::vector<double> mesh_to(double t_end, int steps, int kind, std::mt19937& generator) {
    std::vector<double> mesh{0.0};
    for (int n = 0; n < steps; ++n) {
        const double length = kind == 0   ? 1.0
                              : kind == 1 ? (n == steps / 2 ? 10.0 : 1.0)
                                          : 0.2 + double(generator() % 1000) / 1000.0;
        mesh.push_back(mesh.back() + length);
    }
    for (double& t : mesh)
        t *= t_end / mesh.back();
    mesh.back() = t_end;
    return mesh;
}

class infinite_solution : public testing::TestWithParam<std::size_t> {
protected:
    const infinite_problem problem = infinite_problems().at(GetParam());

    // How many steps beyond the one that contains the pole may be solved, and how many before it may fail.
    void expect_end(const quenta::solve_options& options, int beyond, int before) const {
        SCOPED_TRACE(problem.name + ", P = " + std::to_string(options.P) + ", family " +
                     std::to_string(options.family) + ", " + std::to_string(options.mesh.size() - 1) + " steps");
        const int with_pole =
            int(std::upper_bound(options.mesh.begin(), options.mesh.end(), problem.pole) - options.mesh.begin());
        try {
            const quenta::solution y = problem.equation.solve(options.mesh.back(), options);
            EXPECT_LE(y.steps(), with_pole + beyond);
        } catch (const quenta::solve_failure& failure) {
            EXPECT_TRUE(failure.status == QUENTA_EQUATION_NO_CONVERGENCE ||
                        failure.status == QUENTA_EQUATION_NOT_FINITE);
            EXPECT_LE(failure.partial.steps(), with_pole + beyond);
            EXPECT_GE(failure.partial.steps(), with_pole - before);
            const std::span<const double> values = failure.partial.values();
            const std::size_t D = std::size_t(failure.partial.dimension());
            for (std::size_t i = D; i < values.size(); ++i)
                EXPECT_GT(std::fabs(values[i]), std::fabs(values[i - D])) << "step " << i / D;
        }
    }
};

INSTANTIATE_TEST_SUITE_P(equations, infinite_solution, testing::Range<std::size_t>(0, infinite_problems().size()),
                         [](const auto& problem) { return infinite_problems()[problem.param].name; });

TEST_P(infinite_solution, ends_the_solve_within_a_few_steps) {
    std::mt19937 generator(7);
    for (const int family : {QUENTA_RADAU, QUENTA_GAUSS, QUENTA_LOBATTO})
        for (int P = family == QUENTA_LOBATTO ? 2 : 1; P <= 5; ++P)
            for (const int steps : {1, 2, 3, 5, 8, 13, 24, 40, 90, 200})
                for (int kind = 0; kind < 3; ++kind) {
                    const double t_end = problem.pole * (1.05 + 3.0 * double(generator() % 1000) / 1000.0);
                    // The implicit Euler method ends early: its own solution is infinite before.
                    expect_end(quenta::on_mesh(mesh_to(t_end, steps, kind, generator)).nodes(family, P), 4,
                               P == 1 ? 14 : 5);
                }
}

TEST_P(infinite_solution, is_not_solved_to_a_tolerance) {
    for (const double factor : {1.001, 1.1, 2.7})
        for (const double tolerance : {1e-2, 1e-4, 1e-8})
            try {
                problem.equation.solve(factor * problem.pole, quenta::to_tolerance(tolerance, 0.0, 512));
                ADD_FAILURE() << "to " << factor << " of the pole with the tolerance " << tolerance;
            } catch (const quenta::solve_failure& failure) {
                EXPECT_LE(failure.partial.mesh().back(), 1.03 * problem.pole);
                for (const double y : failure.partial.values())
                    EXPECT_TRUE(std::isfinite(y));
            }
}

// The kernel t - s vanishes in the present step of the implicit Euler method, which is then explicit: nothing limits
// its steps but the range of the numbers, which y'' = 6 y^2 exceeds soon.
TEST(infinite_solution_of_an_explicit_scheme, ends_the_solve_when_the_numbers_overflow) {
    const auto equation = quenta::second_kind([](double t) {
                              return 1.0 + 2.0 * t;
                          }).lag_memory([](double lag) { return 6.0 * lag; }, [](double, double y) { return y * y; });
    for (const int steps : {50, 100, 200, 400})
        try {
            equation.solve(2.0, quenta::equal_steps(steps).nodes(QUENTA_RADAU, 1));
            ADD_FAILURE() << steps << " steps";
        } catch (const quenta::solve_failure& failure) {
            EXPECT_EQ(failure.status, QUENTA_EQUATION_NOT_FINITE);
            EXPECT_LE(failure.partial.steps(), steps / 2 + 16);
        }
}

} // namespace
