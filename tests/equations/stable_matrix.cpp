// The signs of the real parts of eigenvalues, compared with the eigenvalues.
#include "quenta_equations/stable_matrix.hpp"

#include <Eigen/Eigenvalues>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

bool positive(const matrix& J) {
    return quenta::stable_matrix(int(J.rows()))
        .eigenvalues_are_positive(std::vector<double>(J.data(), J.data() + J.size()));
}

TEST(stable_matrix, has_eigenvalues_with_positive_real_parts) {
    std::mt19937 generator(5);
    std::normal_distribution<double> normal;
    int found[2] = {0, 0};
    for (int trial = 0; trial < 2000; ++trial) {
        const int n = 1 + trial % 9;
        matrix J(n, n);
        for (int i = 0; i < n * n; ++i)
            J.data()[i] = normal(generator);
        J += matrix::Identity(n, n) * (2.0 * normal(generator));
        const double smallest = Eigen::EigenSolver<matrix>(J).eigenvalues().real().minCoeff();
        if (std::fabs(smallest) < 1e-6)
            continue;
        ++found[smallest > 0.0];
        EXPECT_EQ(positive(J), smallest > 0.0) << "trial " << trial << ": " << smallest;
    }
    EXPECT_GT(found[0], 100);
    EXPECT_GT(found[1], 100);
}

TEST(stable_matrix, may_have_eigenvalues_of_very_different_sizes) {
    for (const double large : {1e3, 1e6, 1e12}) {
        matrix J(3, 3);
        J << 1.0 / 64, 5.0, -3.0, 0.0, large, 100.0, 0.0, 0.0, 1.0;
        EXPECT_TRUE(positive(J)) << large;
        J(0, 0) = -1.0 / 64;
        EXPECT_FALSE(positive(J)) << large;
        J(0, 0) = 1.0;
        J(1, 1) = -large;
        EXPECT_FALSE(positive(J)) << large;
    }
}

TEST(stable_matrix, is_not_singular) {
    EXPECT_FALSE(positive(matrix::Zero(2, 2)));
    EXPECT_FALSE(positive(-matrix::Identity(3, 3)));
    EXPECT_TRUE(positive(matrix::Identity(3, 3)));
    matrix rotation(2, 2);
    rotation << 0.0, -1.0, 1.0, 0.0;
    EXPECT_FALSE(positive(rotation)); // i and -i
    EXPECT_FALSE(positive(matrix::Constant(2, 2, NAN)));
}

} // namespace
