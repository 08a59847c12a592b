// Seeded random systems, for identities that hold for any data.
#pragma once

#include "conformance/every_solver.hpp"
#include "support/random_data.hpp"

#include <vector>

namespace quenta_tests {

// Kernel and coefficient are those of `system_samples` plus small random values, so that blocks stay regular.
inline system_samples random_system(random_data& random, int D, int N) {
    system_samples data{D, N};
    data.g = random.uniform(data.g.size());
    data.y0 = random.uniform(data.y0.size());
    for (std::vector<double>* const matrices : {&data.K, &data.a})
        for (double& entry : *matrices)
            entry += random.uniform_value(-0.1, 0.1);
    return data;
}

} // namespace quenta_tests
