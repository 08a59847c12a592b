#include "quenta_solvers/dense_solve.hpp"

#include "quenta_solvers/dense_kernels.hpp"
#include "utility/instruction_sets.hpp"

#include <utility>

namespace quenta {

namespace {

// The number of columns that had a pivot.
std::int64_t eliminated_columns(view<double> a, int n, view<int> pivots) {
    if (n < 1)
        return n;
    const std::uint64_t order = n;
    return widest_table<dense_kernels>().eliminate(a.slice(0, order * order).pointer, n,
                                                   pivots.slice(0, order).pointer);
}

} // namespace

bool eliminate_in_place(view<double> a, int n, view<int> pivots) {
    return eliminated_columns(a, n, pivots) == n;
}

void substitute_in_place(view<const double> a, int n, view<const int> pivots, view<double> b) {
    if (n < 1)
        return;
    const std::uint64_t order = n;
    widest_table<dense_kernels>().substitute(a.slice(0, order * order).pointer, n, pivots.slice(0, order).pointer,
                                             b.slice(0, order).pointer);
}

bool solve_dense_in_place(view<double> a, view<double> b, int n, view<int> pivots) {
    if (n >= 1)
        static_cast<void>(b.slice(0, n)); // before anything is overwritten
    const std::int64_t eliminated = eliminated_columns(a, n, pivots);
    if (eliminated != n) {
        for (std::int64_t k = 0; k <= eliminated; ++k)
            std::swap(b.pointer[k], b.pointer[pivots.pointer[k]]);
        return false;
    }
    substitute_in_place(a, n, pivots, b);
    return true;
}

} // namespace quenta
