#include "lu_factors.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace quenta_program {

lu_factors::lu_factors(std::span<const double> matrix, std::size_t n)
    : size(n), entries(matrix.begin(), matrix.end()), order(n) {
    std::iota(order.begin(), order.end(), std::size_t{0});
    for (std::size_t k = 0; k < size; ++k) {
        std::size_t pivot = k;
        for (std::size_t row = k + 1; row < size; ++row)
            if (std::abs(at(row, k)) > std::abs(at(pivot, k)))
                pivot = row;
        if (at(pivot, k) == 0.0) {
            singular = true;
            return;
        }
        std::swap(order[k], order[pivot]);
        std::swap_ranges(&at(k, 0), &at(k, 0) + size, &at(pivot, 0));
        for (std::size_t row = k + 1; row < size; ++row) {
            at(row, k) /= at(k, k);
            for (std::size_t column = k + 1; column < size; ++column)
                at(row, column) -= at(row, k) * at(k, column);
        }
    }
}

std::vector<double> lu_factors::solve(std::span<const double> right) const {
    std::vector<double> x(size);
    for (std::size_t row = 0; row < size; ++row) {
        x[row] = right[order[row]];
        for (std::size_t column = 0; column < row; ++column)
            x[row] -= at(row, column) * x[column];
    }
    for (std::size_t row = size; row-- > 0;) {
        for (std::size_t column = row + 1; column < size; ++column)
            x[row] -= at(row, column) * x[column];
        x[row] /= at(row, row);
    }
    return x;
}

} // namespace quenta_program
