// Whether all eigenvalues of a matrix have a positive real part: then every solution of x' = -J x decays.
#pragma once

#include "quenta_equations/scaled_system.hpp"

#include <vector>

namespace quenta {

class stable_matrix {
public:
    explicit stable_matrix(int order);

    // J has n rows; entry (i, j) is at i*n + j. False also if a real part is 0 to rounding.
    bool eigenvalues_are_positive(const std::vector<double>& J);

private:
    void square(); // replaces C by C^2

    int n;
    scaled_system J_plus_I;
    std::vector<double> C, squared, column;
};

} // namespace quenta
