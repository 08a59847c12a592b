#include "quenta_solvers/dense_solve.hpp"

namespace quenta {

bool solve_dense_in_place(view<double> a, view<double> b, int n, view<int> pivots) {
    if (n < 1)
        return true;
    const std::int64_t order = n;
    const auto size = static_cast<std::uint64_t>(order);
    double* const matrix = a.slice(0, size * size).pointer;
    double* const x = b.slice(0, size).pointer;
    int* const swapped = pivots.slice(0, size).pointer;
    const auto column = [&](std::int64_t j) {
        return matrix + j * order;
    };

    const double tolerance = double(n) * eps;
    double biggest = 0.0;
    for (std::int64_t k = 0; k < order; ++k) {
        double* const pivot_column = column(k);
        std::int64_t row = k;
        double best = std::fabs(pivot_column[k]);
        for (std::int64_t i = k + 1; i < order; ++i)
            if (std::fabs(pivot_column[i]) > best) { // strict: the first of equals wins
                best = std::fabs(pivot_column[i]);
                row = i;
            }
        swapped[k] = static_cast<int>(row);
        if (row != k) {
            for (std::int64_t j = 0; j < order; ++j)
                std::swap(column(j)[k], column(j)[row]);
            std::swap(x[k], x[row]);
        }
        if (best > biggest)
            biggest = best;
        if (tolerance * biggest >= best)
            return false;
        const double pivot = pivot_column[k];
        for (std::int64_t i = k + 1; i < order; ++i)
            pivot_column[i] /= pivot;
        // By columns, which is how the matrix lies; every element is still touched once for this k.
        for (std::int64_t j = k + 1; j < order; ++j) {
            double* const updated = column(j);
            const double factor = updated[k];
            for (std::int64_t i = k + 1; i < order; ++i)
                updated[i] -= pivot_column[i] * factor;
        }
    }
    // Both substitutions run by columns: row i still receives its products in ascending order of j.
    for (std::int64_t j = 0; j < order; ++j)
        for (std::int64_t i = j + 1; i < order; ++i)
            x[i] -= column(j)[i] * x[j];
    for (std::int64_t i = order - 1; i >= 0; --i) {
        for (std::int64_t j = i + 1; j < order; ++j)
            x[i] -= column(j)[i] * x[j];
        x[i] /= column(i)[i];
    }
    return true;
}

} // namespace quenta
