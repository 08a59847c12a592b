// The exports that solve from samples.
#include "quenta_solvers/quenta_native.h"
#include "quenta_solvers/sampled_entry.hpp"
#include "quenta_solvers/variant_dispatch.hpp"
#include "quenta_solvers/vie2_scalar.hpp"

using namespace quenta;

int quenta_solve_vie2(const double* g, const double* K, int N, double dt, int m, const int* list, int count,
                      int want_coeffs, double* out, double* coeffs, int* n_steps) {
    const sampled_request request{N, 1, m, list, count};
    return run_sampled_solver(request, accept_all_rows, n_steps, [&](const sampled_sizes& sizes, int* steps) {
        return dispatch_row(sizes.row, [&]<int row>() {
            return solve_vie2_impl<row>({sizes.vectors, g}, {sizes.vectors, K}, dt, want_coeffs != 0,
                                        {sizes.vectors, out}, coefficient_view(coeffs, sizes), steps);
        });
    });
}
