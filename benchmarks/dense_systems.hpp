// The dense solve of a step, one function for each order.
#pragma once

#include <utility>

// Every order P D of a step from 3 up: P from 1 to 5, D from 1 to 8.
using dense_orders =
    std::integer_sequence<int, 3, 4, 5, 6, 7, 8, 9, 10, 12, 14, 15, 16, 18, 20, 21, 24, 25, 28, 30, 32, 35, 40>;

// x = a^-1 b for a row-major a, which is not changed.
using dense_solver = void (*)(const double* a, const double* b, double* x);

// Returns solver<n>::solve for an order of the list.
template <template <int> class solver, int... orders>
dense_solver solver_of_order(int n, std::integer_sequence<int, orders...>) {
    dense_solver found = nullptr;
    ((n == orders ? static_cast<void>(found = solver<orders>::solve) : static_cast<void>(0)), ...);
    return found;
}

// The dense solve of the library, compiled with its options.
dense_solver our_dense_solver(int n);
