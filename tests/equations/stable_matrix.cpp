// The signs of the real parts of eigenvalues, for matrices that are made from their eigenvalues.
#include "quenta_equations/stable_matrix.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace {

struct matrix {
    int n;
    std::vector<double> entries = std::vector<double>(std::size_t(n * n)); // by rows

    double& operator()(int i, int j) { return entries[std::size_t(i * n + j)]; }
};

bool positive(const matrix& J) {
    return quenta::stable_matrix(J.n).eigenvalues_are_positive(J.entries);
}

class random_matrices {
public:
    // An orthogonal matrix changes the basis of a triangular one, whose diagonal blocks have the eigenvalues. The real
    // parts of the eigenvalues are at least `smallest`, which is one of them.
    matrix with_smallest_real_part(double smallest, int n) {
        matrix T{n};
        for (int i = 0; i < n; ++i)
            for (int j = i + 1; j < n; ++j)
                T(i, j) = normal(generator);
        const int first = int(generator() % unsigned(n));
        for (int i = 0; i < n; ++i)
            T(i, i) = smallest + (i == first ? 0.0 : 2 * std::fabs(normal(generator)));
        for (int i = 0; i + 1 < n; i += 2)
            if (generator() % 2 == 0) { // a pair of conjugate eigenvalues
                T(i, i) = T(i + 1, i + 1) = std::min(T(i, i), T(i + 1, i + 1));
                T(i + 1, i) = -T(i, i + 1);
            }
        for (int k = 0; k < n; ++k)
            reflect(T);
        return T;
    }

private:
    // Multiplies by I - 2 v v^T / (v^T v) from both sides.
    void reflect(matrix& A) {
        std::vector<double> v(std::size_t(A.n));
        double square = 0.0;
        for (double& component : v) {
            component = normal(generator);
            square += component * component;
        }
        const auto reflect_vector = [&](const auto& entry) {
            double product = 0.0;
            for (int i = 0; i < A.n; ++i)
                product += entry(i) * v[std::size_t(i)];
            for (int i = 0; i < A.n; ++i)
                entry(i) -= 2 * product / square * v[std::size_t(i)];
        };
        for (int i = 0; i < A.n; ++i)
            reflect_vector([&](int j) -> double& { return A(i, j); });
        for (int j = 0; j < A.n; ++j)
            reflect_vector([&](int i) -> double& { return A(i, j); });
    }

    std::mt19937 generator{5};
    std::normal_distribution<double> normal;
};

TEST(stable_matrix, has_eigenvalues_with_positive_real_parts) {
    random_matrices random;
    for (int trial = 0; trial < 2000; ++trial)
        for (const double smallest : {0.5, 0.01, -0.01, -0.5})
            EXPECT_EQ(positive(random.with_smallest_real_part(smallest, 1 + trial % 9)), smallest > 0.0)
                << "trial " << trial << ": " << smallest;
}

TEST(stable_matrix, may_have_eigenvalues_of_very_different_sizes) {
    for (const double large : {1e3, 1e6, 1e12}) {
        matrix J{3, {1.0 / 64, 5.0, -3.0, 0.0, large, 100.0, 0.0, 0.0, 1.0}};
        EXPECT_TRUE(positive(J)) << large;
        J(0, 0) = -1.0 / 64;
        EXPECT_FALSE(positive(J)) << large;
        J(0, 0) = 1.0;
        J(1, 1) = -large;
        EXPECT_FALSE(positive(J)) << large;
    }
}

TEST(stable_matrix, is_not_singular) {
    EXPECT_FALSE(positive({2, {0.0, 0.0, 0.0, 0.0}}));
    EXPECT_FALSE(positive({2, {-1.0, 0.0, 0.0, -1.0}}));
    EXPECT_TRUE(positive({2, {1.0, 0.0, 0.0, 1.0}}));
    EXPECT_FALSE(positive({2, {0.0, -1.0, 1.0, 0.0}})); // i and -i
    EXPECT_FALSE(positive({2, {NAN, NAN, NAN, NAN}}));
}

} // namespace
