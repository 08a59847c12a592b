// Rules of Gauss on the unit interval for integrands with a power of x.
#pragma once

#include <array>

namespace quenta {

struct quadrature_point {
    double x, weight;
};

// The integral of x^exponent p(x) over [0, 1], exponent > -1, for polynomials p of degree 5.
std::array<quadrature_point, 3> gauss_jacobi(double exponent);

} // namespace quenta
