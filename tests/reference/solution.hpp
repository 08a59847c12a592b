// The result of a reference implementation of a sample-based solver.
#pragma once

#include <vector>

namespace reference {

struct solution {
    int steps = 0;
    bool solved = true;
    // Component a at D * (n * S + e) + a for sample e of step n.
    std::vector<double> out;
    // Component a of power p of step n at D * (n * (P + 1) + p) + a. Only the first values of a step are meaningful.
    std::vector<double> coefficients;
    int coefficients_of_a_step = 0;
    int meaningful_of_a_step = 0;
};

} // namespace reference
