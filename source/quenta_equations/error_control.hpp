// Solves an equation to a tolerance, by doubling the number of equal steps.
//
// The error of the solution with 2 N steps is estimated by its difference d from the one with N, divided by 2^p - 1.
// The order p is the observed one: how fast these differences decrease when N is doubled. Where they do not decrease as
// a convergent scheme does, the estimate is not believed.
#pragma once

#include "quenta_equations/march.hpp"

#include <vector>

namespace quenta {

struct tolerance {
    double relative, absolute;
    int max_steps;
};

std::vector<double> equal_steps(double t_end, int steps);

// The status is `tolerance_missed` if no solution meets the tolerance; the result is then the one with the smallest
// estimate.
march_result solve_to_tolerance(const quenta_equation& equation, double t_end, const tolerance& wanted,
                                const collocation_nodes& nodes);

} // namespace quenta
