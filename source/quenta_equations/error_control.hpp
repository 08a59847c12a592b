// Solves an equation to a tolerance, by doubling the number of steps of its default mesh.
//
// Two things show the error of the solution with 2 N steps. The first is its difference d from the one with N steps:
// with the order p at which these differences decrease when N is doubled, the estimate is 1.25 d / (2^p - 1). Unless
// the differences decrease as those of a convergent scheme, the solution is not accepted. The second are the jumps of
// the polynomials at the mesh points. They are as large as the error between the nodes, and larger if the solution has
// a jump or a kink between the last node of a step and the first of the next, which no difference shows. The larger of
// the two is the estimate.
//
// A solution with few nodes is not accepted, because all of them may miss a narrow feature of the equation.
#pragma once

#include "quenta_equations/march.hpp"

namespace quenta {

struct tolerance {
    double relative, absolute;
    int max_steps;
};

// The status is `tolerance_missed` if no solution meets the tolerance; the result is then the one with the most
// steps, or an earlier one if rounding has made that worse. A solve that cannot succeed ends before it has tried
// `max_steps`: one whose differences decrease too slowly, or no longer because of rounding, and one that fails at the
// same time again and again.
march_result solve_to_tolerance(const quenta_equation& equation, double t_end, const tolerance& wanted,
                                const collocation_nodes& nodes);

} // namespace quenta
