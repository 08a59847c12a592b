#include "quenta_equations/stable_matrix.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace quenta {

namespace {

double largest_row_sum(const std::vector<double>& C, int n) {
    double largest = 0.0;
    for (int i = 0; i < n; ++i) {
        double sum = 0.0;
        for (int j = 0; j < n; ++j)
            sum += std::fabs(C[std::int64_t{i} * n + j]);
        largest = sum <= largest ? largest : sum; // NaN too
    }
    return largest;
}

} // namespace

stable_matrix::stable_matrix(int order)
    : n{order}, J_plus_I{order}, C(std::int64_t{order} * order), squared(C.size()), column(order) {}

void stable_matrix::square() {
    std::fill(squared.begin(), squared.end(), 0.0);
    for (std::int64_t i = 0; i < n; ++i)
        for (std::int64_t k = 0; k < n; ++k) {
            const double factor = C[i * n + k];
            for (std::int64_t j = 0; j < n; ++j)
                squared[i * n + j] += factor * C[k * n + j];
        }
    C.swap(squared);
}

// If x is an eigenvalue of J, then (x - 1) / (x + 1) is one of C = (J - I) (J + I)^-1 = I - 2 (J + I)^-1. It is smaller
// than 1 in magnitude exactly if x has a positive real part. So the powers of C tend to 0 exactly if all x have one: C
// is squared until its norm is below 1, or is large.
bool stable_matrix::eigenvalues_are_positive(const std::vector<double>& J) {
    constexpr int most_squares = 50;
    constexpr double large = 1e100;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            J_plus_I.at(i, j) = J[std::int64_t{i} * n + j] + (i == j ? 1.0 : 0.0);
    if (!J_plus_I.eliminate())
        return false;
    for (std::int64_t j = 0; j < n; ++j) {
        std::fill(column.begin(), column.end(), 0.0);
        column[j] = 1.0;
        J_plus_I.solve(column.data());
        for (std::int64_t i = 0; i < n; ++i)
            C[i * n + j] = (i == j ? 1.0 : 0.0) - 2.0 * column[i];
    }
    for (int squares = 0; squares <= most_squares; ++squares) {
        const double size = largest_row_sum(C, n);
        if (size < 1.0)
            return true;
        if (!(size < large))
            return false;
        square();
    }
    return false;
}

} // namespace quenta
