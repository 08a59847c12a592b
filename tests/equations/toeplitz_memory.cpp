// When the sums are taken by transforms.
#include "quenta_equations/toeplitz_memory.hpp"

#include <gtest/gtest.h>

#include <cstddef>

namespace {

using namespace quenta;

bool pays(const quenta_equation& equation, int P, int steps, double second_step = 1.0) {
    per_node<double> c{};
    EXPECT_TRUE(family_nodes(node_family::radau, P, c.data()));
    quenta_solution solution{equation.kind, equation.D, nodes_with_tables(c.data(), P), {}};
    for (int n = 0; n <= steps; ++n)
        solution.mesh.push_back(n == 1 ? second_step : n);
    return toeplitz_memory::pays(equation, solution);
}

quenta_equation equation_of(int D, bool of_lag) {
    quenta_equation equation{equation_kind::second, D, {}, {}, {}, {}};
    equation.memory.push_back({D, 0.0, false, {}, {}, {}});
    equation.memory.push_back({D, 0.5, of_lag, {}, {}, {}});
    return equation;
}

TEST(toeplitz_memory, pays_for_kernels_of_the_lag_on_many_equal_steps) {
    EXPECT_TRUE(pays(equation_of(1, true), 3, 256));
    EXPECT_TRUE(pays(equation_of(1, true), 5, 1000000));
    EXPECT_TRUE(pays(equation_of(4, true), 5, 1000));
}

TEST(toeplitz_memory, does_not_pay_otherwise) {
    EXPECT_FALSE(pays(equation_of(1, false), 3, 256)) << "no kernel of the lag";
    EXPECT_FALSE(pays(equation_of(1, true), 3, 255)) << "few steps";
    EXPECT_FALSE(pays(equation_of(1, true), 3, 256, 0.99)) << "unequal steps";
    EXPECT_FALSE(pays(equation_of(7, true), 5, 1000)) << "35 by 35 numbers in a block";
    EXPECT_FALSE(pays(equation_of(6, true), 5, 150000)) << "more than a gigabyte of blocks";
}

} // namespace
