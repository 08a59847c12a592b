// What the twins of the solvers from samples give back.
#pragma once

#include <vector>

namespace reference {

struct solution {
    int steps = 0;
    bool solved = true;
    std::vector<double> out; // component r at sample i at i * D + r
    // Step n, power j, component r at (n * (P + 1) + j) * D + r. Only the first cells of a step mean something.
    std::vector<double> coefficients;
    int coefficients_of_a_step = 0;
    int meaningful_of_a_step = 0;
};

} // namespace reference
