// Rules of Gauss on the unit interval, for smooth integrands and for integrands with a power of x.
#pragma once

#include <array>
#include <vector>

namespace quenta {

struct quadrature_point {
    double x, weight;
};
using quadrature_rule = std::vector<quadrature_point>;

// Exact for polynomials of degree 2 * points - 1. At least 2 points.
quadrature_rule gauss_legendre(int points);

// The integral of x^exponent p(x) over [0, 1], exponent > -1, for polynomials p of degree 5.
std::array<quadrature_point, 3> gauss_jacobi(double exponent);

} // namespace quenta
