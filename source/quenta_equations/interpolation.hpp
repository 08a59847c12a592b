// Polynomials of degree 21 on the unit interval, through their values at the points of Gauss and Legendre.
#pragma once

#include <array>

namespace quenta {

class interpolation {
public:
    static constexpr int points = 22;
    using values = std::array<double, points>;

    interpolation();

    double point(int a) const { return x[a]; }

    // The values of the polynomials that are 1 at one of the points and 0 at the others.
    values basis(double at) const;

    // How much the two highest Legendre polynomials contribute to the interpolation of a function: the sum of the
    // magnitudes of their coefficients. The function has the values f[0], f[stride], ...
    double last_coefficients(const double* f, int stride) const;

private:
    values x, barycentric;
    values last, before_last; // times the values of a function: its coefficients
};

} // namespace quenta
