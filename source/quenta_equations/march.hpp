// The time stepping: solves an equation step by step on a mesh.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/solution.hpp"

#include <vector>

namespace quenta {

// The solution is complete if the status is `solved`; otherwise it contains the steps before the one that failed.
struct march_result {
    quenta_solution solution;
    equation_status status;
};

march_result march(const quenta_equation& equation, std::vector<double> mesh, const collocation_nodes& nodes);

} // namespace quenta
