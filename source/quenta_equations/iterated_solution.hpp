// The iterated solution of a second-kind equation: g(t) + M(t), with the polynomials of the solution in M.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/solution.hpp"

#include <cstdint>

namespace quenta {

// y at `count` times in the solution, D components each. Throws solve_ended if a function of the caller stops it or
// gives a value that is not finite.
void iterate_solution(const quenta_solution& solution, const quenta_equation& equation, std::int64_t count,
                      const double* t, double* y);

} // namespace quenta
