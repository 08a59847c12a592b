#include "quenta_equations/scaled_system.hpp"

#include "quenta_solvers/dense_solve.hpp"

#include <algorithm>
#include <cmath>

namespace quenta {

namespace {

// The power of two that brings a finite x to 1 <= x < 2, or 1 if x is 0.
double scale_to_one(double x) {
    return x > 0.0 ? std::ldexp(1.0, std::clamp(-std::ilogb(x), -1022, 1022)) : 1.0;
}

} // namespace

scaled_system::scaled_system(int order)
    : n{order}, matrix(std::int64_t{order} * order), row_scale(order), column_scale(order), pivots(order) {}

bool scaled_system::eliminate() {
    std::fill(row_scale.begin(), row_scale.end(), 0.0);
    for (int column = 0; column < n; ++column)
        for (int row = 0; row < n; ++row)
            row_scale[row] = std::max(row_scale[row], std::fabs(at(row, column)));
    std::transform(row_scale.begin(), row_scale.end(), row_scale.begin(), scale_to_one);
    for (int column = 0; column < n; ++column) {
        double largest = 0.0;
        for (int row = 0; row < n; ++row) {
            at(row, column) *= row_scale[row];
            largest = std::max(largest, std::fabs(at(row, column)));
        }
        column_scale[column] = scale_to_one(largest);
        for (int row = 0; row < n; ++row)
            at(row, column) *= column_scale[column];
    }
    return eliminate_in_place(whole(matrix), n, whole(pivots));
}

void scaled_system::solve(double* b) {
    for (int row = 0; row < n; ++row)
        b[row] *= row_scale[row];
    substitute_in_place(whole(matrix), n, whole(pivots), {std::uint64_t(n), b});
    for (int column = 0; column < n; ++column)
        b[column] *= column_scale[column];
}

bool scaled_system::determinant_is_positive() const {
    bool positive = true;
    for (int k = 0; k < n; ++k) {
        const bool swapped = pivots[k] != k;
        positive ^= swapped ^ (matrix[std::int64_t{k} * n + k] < 0.0);
    }
    return positive;
}

} // namespace quenta
