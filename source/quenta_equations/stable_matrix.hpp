// Whether all eigenvalues of a matrix have a positive real part.
#pragma once

#include <vector>

namespace quenta {

// J has n rows; entry (i, j) is at i*n + j. False also if a real part is 0 to rounding.
bool eigenvalues_are_positive(const std::vector<double>& J, int n);

} // namespace quenta
