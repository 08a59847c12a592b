// The weights of kernel values: those that are kept between equal steps are those that are calculated for each pair of
// a node and a step.
#include "quenta_equations/memory_weights.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

namespace {

using namespace quenta;

quenta_solution solution_on(std::vector<double> mesh, int P) {
    per_node<double> c{};
    EXPECT_TRUE(family_nodes(node_family::gauss, P, c.data()));
    return {equation_kind::second, 1, nodes_with_tables(c.data(), P), std::move(mesh)};
}

memory_term term_of(double alpha) {
    return {1, alpha, false, {}, {}, {}};
}

std::vector<std::vector<double>> meshes() {
    std::vector<std::vector<double>> list(4);
    for (int n = 0; n <= 40; ++n) {
        list[0].push_back(3.0 * n / 40.0);
        list[1].push_back(n < 15 ? std::pow(n / 15.0, 3) : 1.0 + 0.2 * (n - 15));
        list[2].push_back(std::pow(1.1, n) - 1.0);
    }
    // Each length is equal to the last one up to rounding, but the points are not those of equal steps.
    const double unit = std::numeric_limits<double>::epsilon();
    list[3].push_back(0.0);
    for (int n = 0; n < 40; ++n)
        list[3].push_back(list[3].back() + 1.0 / 40.0 + (n < 20 ? 4.0 * unit : 0.0));
    return list;
}

TEST(memory_weights, that_are_kept_are_those_that_are_calculated) {
    int compared = 0;
    for (const std::vector<double>& mesh : meshes())
        for (const double alpha : {0.0, 0.2, 0.9})
            for (const int P : {1, 3, 5}) {
                const quenta_solution solution = solution_on(mesh, P);
                const memory_weights weights(term_of(alpha), solution, true);
                for (const std::int64_t block : {1, 6})
                    for (std::int64_t n = 1; n < std::int64_t(mesh.size()) - 1; n += 3)
                        for (int i = 0; i < P; ++i)
                            for (const std::int64_t first : {std::int64_t{0}, n * P / 3, n * P - 1}) {
                                const std::int64_t count = n * P - first;
                                std::vector<double> kept(std::size_t(count * block), 2.0), calculated = kept;
                                weights.multiply_at_node(n, i, first, count, block, kept.data());
                                weights.multiply_at(n, solution.nodes.c[std::size_t(i)], first, count, block,
                                                    calculated.data());
                                for (std::size_t v = 0; v < kept.size(); ++v)
                                    ASSERT_NEAR(kept[v], calculated[v], 1e-12 * std::fabs(calculated[v]) + 1e-300)
                                        << "alpha = " << alpha << ", n = " << n << ", i = " << i << ", first " << first;
                                if (alpha == 0.0) {
                                    ASSERT_EQ(kept, std::vector<double>(kept.size(), 2.0));
                                }
                                ++compared;
                            }
            }
    EXPECT_GT(compared, 1000);
}

TEST(memory_weights, without_a_singularity_are_those_of_the_quadrature_rule) {
    const quenta_solution solution = solution_on(meshes()[1], 3);
    const memory_weights smooth(term_of(0.0), solution, true), singular(term_of(0.5), solution, true);
    for (int j = 0; j < 3; ++j) {
        const double b = solution.nodes.b[std::size_t(j)];
        EXPECT_EQ(smooth.of_source(7, j), solution.step_length(7) * b);
        EXPECT_EQ(singular.of_source(7, j), 1.0);
        EXPECT_EQ(smooth.of_current_step(0.3)[std::size_t(j)], 0.3 * b);
    }
}

} // namespace
