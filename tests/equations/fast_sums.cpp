// The parts of the fast sums: when transforms pay, the cells of a mesh, and the interpolation between them.
#include "quenta_equations/interpolation.hpp"
#include "quenta_equations/step_tree.hpp"
#include "quenta_equations/toeplitz_memory.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

using namespace quenta;

bool pays(int D, int P, std::int64_t steps) {
    per_node<double> c{};
    EXPECT_TRUE(family_nodes(node_family::radau, P, c.data()));
    quenta_equation equation{equation_kind::second, D, {}, {}, {}, {}};
    equation.memory.push_back({D, 0.0, false, {}, {}, {}});
    equation.memory.push_back({D, 0.5, true, {}, {}, {}});
    return toeplitz_memory::pays(equation, nodes_with_tables(c.data(), P), steps);
}

TEST(transforms, pay_for_many_steps_with_blocks_that_fit_in_memory) {
    EXPECT_TRUE(pays(1, 3, 256));
    EXPECT_TRUE(pays(1, 5, 1000000));
    EXPECT_TRUE(pays(4, 5, 1000));
    EXPECT_FALSE(pays(1, 3, 255));
    EXPECT_FALSE(pays(6, 5, 150000)) << "more than a gigabyte of blocks";
}

std::vector<std::vector<double>> meshes() {
    std::vector<std::vector<double>> list(4, {0.0});
    for (int n = 1; n <= 1000; ++n) {
        list[0].push_back(n);
        list[1].push_back(std::pow(n / 1000.0, 40.0));
        list[2].push_back(std::ldexp(1.0, n - 500));
        list[3].push_back(list[3].back() + (n % 50 == 0 ? 7.0 : 1.0 / n)); // a step is longer than all before it
    }
    return list;
}

void expect_cells(const step_tree& tree, const std::vector<double>& mesh, std::int64_t leaf_steps) {
    ASSERT_EQ(tree[0].first, 0);
    ASSERT_EQ(tree[0].end, std::int64_t(mesh.size()) - 1);
    ASSERT_EQ(tree[0].parent, -1);
    std::int64_t in_leaves = 0;
    for (std::int64_t at = 0; at < tree.size(); ++at) {
        const step_cell& cell = tree[at];
        ASSERT_EQ(cell.start, mesh[std::size_t(cell.first)]);
        ASSERT_EQ(cell.length, mesh[std::size_t(cell.end)] - cell.start);
        if (cell.is_leaf()) {
            ASSERT_LE(cell.end - cell.first, leaf_steps);
            in_leaves += cell.end - cell.first;
            for (std::int64_t n = cell.first; n < cell.end; ++n)
                ASSERT_EQ(tree.leaf_of(n), at);
            continue;
        }
        ASSERT_EQ(cell.left, at + 1);
        ASSERT_GT(cell.right, cell.left);
        ASSERT_EQ(tree[cell.left].first, cell.first);
        ASSERT_EQ(tree[cell.left].end, tree[cell.right].first);
        ASSERT_EQ(tree[cell.right].end, cell.end);
        ASSERT_EQ(tree[cell.left].parent, at);
        ASSERT_EQ(tree[cell.right].parent, at);
        // Not longer than half of the cell, unless it is one step.
        const step_cell& right = tree[cell.right];
        ASSERT_TRUE(right.length <= 0.5 * cell.length * (1 + 1e-12) || right.end - right.first == 1 || at == 0);
    }
    ASSERT_EQ(in_leaves, tree[0].end);
}

TEST(step_tree, halves_the_steps_of_any_mesh) {
    for (const std::vector<double>& mesh : meshes())
        for (const std::int64_t leaf_steps : {1, 9})
            for (const std::int64_t split : {0, 1, 400, 999, 1000}) {
                const step_tree tree(mesh, split, leaf_steps);
                expect_cells(tree, mesh, leaf_steps);
                if (split > 0 && split < 1000) {
                    EXPECT_EQ(tree[tree[0].right].first, split);
                }
            }
    const step_tree one_leaf({0.0, 1.0, 5.0}, 2, 9);
    EXPECT_EQ(one_leaf.size(), 1);
    const step_tree split_leaf({0.0, 1.0, 5.0}, 1, 9);
    EXPECT_EQ(split_leaf.size(), 3);
}

// The product of (x - k / 7) for k = 0 .. degree - 1.
double polynomial(int degree, double x) {
    double product = 1.0;
    for (int k = 0; k < degree; ++k)
        product *= 2.0 * (x - k % 8 / 7.0);
    return product;
}

TEST(interpolation, is_exact_for_polynomials_of_its_degree) {
    const interpolation polynomials;
    for (int degree = 0; degree < interpolation::points; ++degree)
        for (int k = 0; k <= 200; ++k) {
            const interpolation::values basis = polynomials.basis(k / 200.0);
            double sum = 0.0;
            for (int a = 0; a < interpolation::points; ++a)
                sum += basis[std::size_t(a)] * polynomial(degree, polynomials.point(a));
            EXPECT_NEAR(sum, polynomial(degree, k / 200.0), 1e-13) << "degree " << degree << " at " << k / 200.0;
        }
}

TEST(interpolation, at_a_point_is_the_value_there) {
    const interpolation polynomials;
    for (int a = 0; a < interpolation::points; ++a) {
        const interpolation::values basis = polynomials.basis(polynomials.point(a));
        for (int b = 0; b < interpolation::points; ++b)
            EXPECT_EQ(basis[std::size_t(b)], a == b ? 1.0 : 0.0);
    }
}

TEST(interpolation, shows_how_much_the_highest_polynomials_contribute) {
    const interpolation polynomials;
    constexpr unsigned degree = interpolation::points - 1;
    std::vector<double> f;
    for (int a = 0; a < interpolation::points; ++a) {
        const double x = 2.0 * polynomials.point(a) - 1.0;
        f.push_back(3.0 * std::legendre(degree, x) - 2.0 * std::legendre(degree - 1, x) + std::legendre(degree - 2, x));
        f.push_back(std::exp(x));
    }
    EXPECT_NEAR(polynomials.last_coefficients(f.data(), 2), 5.0, 1e-13);
    EXPECT_LT(polynomials.last_coefficients(f.data() + 1, 2), 1e-13) << "of a smooth function";
}

} // namespace
