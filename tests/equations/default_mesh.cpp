// The mesh of a singular equation, as the interface shows it.
#include "quenta_equations.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace {

std::vector<double> default_mesh(double alpha, double t_end, int steps, int P = 5) {
    const auto y = quenta::second_kind([](double) { return 1.0; })
                       .lag_memory(quenta::weakly_singular(alpha, [](double) { return 0.0; }))
                       .solve(t_end, quenta::steps(steps).nodes(QUENTA_RADAU, P));
    return {y.mesh().begin(), y.mesh().end()};
}

TEST(default_mesh, is_contained_in_the_mesh_of_twice_as_many_steps) {
    for (const double alpha : {0.05, 0.5, 0.8})
        for (const int steps : {8, 24, 64}) {
            const std::vector<double> coarse = default_mesh(alpha, 3.0, steps),
                                      fine = default_mesh(alpha, 3.0, 2 * steps);
            ASSERT_EQ(fine.size(), 2 * std::size_t(steps) + 1);
            for (std::size_t n = 0; n < coarse.size(); ++n)
                EXPECT_DOUBLE_EQ(coarse[n], fine[2 * n]) << "alpha = " << alpha << ", " << n << " of " << steps;
        }
}

TEST(default_mesh, has_its_longest_steps_at_the_end) {
    for (const double alpha : {0.1, 0.5, 0.9}) {
        const std::vector<double> mesh = default_mesh(alpha, 1.0, 800);
        const double last = mesh[800] - mesh[799];
        EXPECT_NEAR(mesh[700] - mesh[699], last, 1e-12);
        for (std::size_t n = 2; n < mesh.size(); ++n)
            EXPECT_LE(mesh[n - 1] - mesh[n - 2], (mesh[n] - mesh[n - 1]) * (1 + 1e-9)) << n;
        std::size_t graded = 0;
        while (mesh[graded + 1] - mesh[graded] < 0.9 * last)
            ++graded;
        EXPECT_GT(graded, std::size_t(350));
        EXPECT_LT(graded, std::size_t(610));
        // The points are t = T x^r, where r = 5 / (1 - alpha).
        EXPECT_NEAR(std::log(mesh[40] / mesh[20]) / std::log(2.0), std::min(5 / (1 - alpha), 50.0), 1e-6);
    }
}

TEST(default_mesh, has_steps_of_any_number_and_length) {
    for (const double alpha : {5e-324, 0.5, 0.95, 0.999, 1.0 - 0x1p-53})
        for (const double t_end : {1e-300, 1e-12, 1.0, 1e12, 1e300})
            for (const int steps : {1, 2, 3, 7, 400}) {
                const std::vector<double> mesh = default_mesh(alpha, t_end, steps, 2);
                ASSERT_EQ(mesh.size(), std::size_t(steps) + 1);
                EXPECT_EQ(mesh.back(), t_end);
                for (std::size_t n = 1; n < mesh.size(); ++n)
                    EXPECT_GE(mesh[n] - mesh[n - 1], std::numeric_limits<double>::min());
            }
}

TEST(default_mesh, of_no_steps_is_refused) {
    auto equation = quenta::second_kind([](double) { return 1.0; });
    equation.lag_memory(quenta::weakly_singular(0.5, [](double) { return 0.0; }));
    for (const int steps : {0, -1}) {
        EXPECT_THROW(equation.solve(1.0, quenta::steps(steps)), quenta::equation_error);
        EXPECT_THROW(equation.solve(1.0, quenta::equal_steps(steps)), quenta::equation_error);
    }
}

} // namespace
