// Solutions satisfy their collocation equations at every node: equations of every kind, numbers of nodes, meshes.
#include "equations/collocation_residual.hpp"

#include <gtest/gtest-spi.h>

namespace quenta_tests {

namespace {

TEST(collocation_equations, are_not_satisfied_by_other_values) {
    random_data random{202615};
    double nodes[3];
    ASSERT_EQ(quenta_equation_nodes(QUENTA_RADAU, 3, nodes), 0);
    for (const equation_shape& shape : every_shape()) {
        const polynomial_equation equation{random, shape};
        int status = -1;
        const owned_solution solution = equation.solve(1.0, 4, nodes, status);
        ASSERT_EQ(status, QUENTA_EQUATION_SOLVED);
        static quenta_solution changed{};
        static const polynomial_equation* of;
        changed = *solution;
        of = &equation;
        changed.unknowns[std::size_t(10 * shape.D)] *= 1.0 + 1e-9;
        EXPECT_NONFATAL_FAILURE(expect_collocation_equations(*of, changed, 1e-13), "step 3 of 4");
    }
}

TEST(every_shape, satisfies_its_collocation_equations) {
    random_data random{202614};
    const std::vector<double> meshes[] = {
        {0.0, 0.5}, {0.0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6}, {0.0, 1e-6, 1e-3, 0.1, 0.4, 1.0}};
    int solved = 0;
    for (const equation_shape& shape : every_shape())
        for (const int family : {QUENTA_RADAU, QUENTA_GAUSS, QUENTA_LOBATTO})
            for (int P = 1; P <= 5; ++P)
                for (const std::vector<double>& mesh : meshes) {
                    double nodes[5];
                    if (quenta_equation_nodes(family, P, nodes) != 0 || (shape.kind == '1' && nodes[0] == 0.0))
                        continue;
                    const polynomial_equation equation{random, shape};
                    quenta_solution* solution = nullptr;
                    const int steps = int(mesh.size()) - 1;
                    const int status =
                        quenta_equation_solve_on_mesh(equation.get(), mesh.data(), steps, nodes, P, &solution);
                    const owned_solution owner{solution};
                    ASSERT_EQ(status, QUENTA_EQUATION_SOLVED) << testing::PrintToString(shape) << ", P = " << P
                                                              << ", family " << family << ", steps " << steps;
                    expect_collocation_equations(equation, *solution, 1e-13);
                    ++solved;
                }
    EXPECT_EQ(solved, 3 * (36 * 14 + 12 * 10)) << "expected every kind of nodes except Lobatto for the first kind";
}

// The kernel values of one step do not fit a batch.
TEST(large_system, satisfies_its_collocation_equations) {
    random_data random{202616};
    const term_shape lag{40, true, false, false}, wide{42, false, true, true};
    const polynomial_equation equation{random, {'2', 40, false, false, {lag, wide}}, 0.02};
    double nodes[5];
    ASSERT_EQ(quenta_equation_nodes(QUENTA_GAUSS, 5, nodes), 0);
    int status = -1;
    const owned_solution solution = equation.solve(1.0, 3, nodes, status);
    ASSERT_EQ(status, QUENTA_EQUATION_SOLVED);
    expect_collocation_equations(equation, *solution, 1e-13);
}

// With 52 times 63 values at a point, a batch has 10 points, and so have the pairs of a group, which has four steps.
TEST(group_of_whole_batches, satisfies_its_collocation_equations) {
    random_data random{202617};
    const polynomial_equation equation{random, {'2', 52, false, false, {{63, false, true, false}}}, 0.02};
    const double node[] = {1.0};
    int status = -1;
    const owned_solution solution = equation.solve(1.0, 9, node, status);
    ASSERT_EQ(status, QUENTA_EQUATION_SOLVED);
    expect_collocation_equations(equation, *solution, 1e-13);
}

} // namespace

} // namespace quenta_tests
