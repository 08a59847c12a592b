#include "dense_systems.hpp"

#include "quenta_solvers/dense_solve.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

template <int n>
struct fixed_order {
    static void solve(const double* a, const double* b, double* x) {
        quenta::square_matrix<n> factors;
        std::memcpy(&factors, a, sizeof factors);
        std::array<double, n> rhs;
        std::copy_n(b, n, rhs.begin());
        bool regular = false;
        const std::array<double, n> solution = quenta::solve_dense_fixed<n>(factors, rhs, regular);
        std::copy_n(solution.begin(), n, x);
    }
};

} // namespace

dense_solver our_dense_solver(int n) {
    return solver_of_order<fixed_order>(n, dense_orders{});
}
