// The trapezoidal rule for  y(t) = g(t) + integral from 0 to t of K(t, s) phi(y(s)) ds  on equal steps, as textbooks
// have it: one sum over all previous points for every point, and Newton's method for the value at the new point.
#pragma once

#include <cmath>
#include <vector>

template <class forcing, class kernel, class nonlinearity, class slope>
std::vector<double> textbook_trapezoid(const forcing& g, const kernel& K, const nonlinearity& phi,
                                       const slope& phi_derivative, double h, int steps) {
    std::vector<double> y(steps + 1), phi_of_y(steps + 1);
    y[0] = g(0.0);
    phi_of_y[0] = phi(y[0]);
    for (int n = 1; n <= steps; ++n) {
        const double t = n * h;
        double sum = K(t, 0.0) * phi_of_y[0] / 2.0;
        for (int j = 1; j < n; ++j)
            sum += K(t, j * h) * phi_of_y[j];
        const double known = g(t) + h * sum, weight = h / 2.0 * K(t, t);
        y[n] = y[n - 1];
        for (double change = 1.0; std::fabs(change) > 1e-14 * (1.0 + std::fabs(y[n])); y[n] -= change)
            change = (y[n] - known - weight * phi(y[n])) / (1.0 - weight * phi_derivative(y[n]));
        phi_of_y[n] = phi(y[n]);
    }
    return y;
}
