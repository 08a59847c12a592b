#include "quenta_equations/interpolation.hpp"

#include "quenta_equations/legendre_rules.hpp"

#include <cmath>

namespace quenta {

namespace {

struct two_values {
    double of_degree, of_degree_before;
};

// The Legendre polynomials of a degree and of the degree before, on [-1, 1].
two_values legendre_polynomials(int degree, double x) {
    two_values value{x, 1.0};
    for (int k = 1; k < degree; ++k)
        value = {((2 * k + 1) * x * value.of_degree - k * value.of_degree_before) / (k + 1), value.of_degree};
    return value;
}

} // namespace

// The barycentric weights are those of J.-P. Berrut and L. N. Trefethen, SIAM Review 46, 2004, and of H. Wang and S.
// Xiang, Mathematics of Computation 81, 2012.
interpolation::interpolation() {
    static constexpr auto rule = gauss_legendre<points>();
    constexpr int degree = points - 1;
    for (int a = 0; a < points; ++a) {
        x[a] = rule[a].x;
        const double root = std::sqrt(rule[a].x * (1.0 - rule[a].x) * rule[a].weight);
        barycentric[a] = a % 2 == 0 ? root : -root;
        const two_values value = legendre_polynomials(degree, 2.0 * x[a] - 1.0);
        last[a] = (2 * degree + 1) * rule[a].weight * value.of_degree;
        before_last[a] = (2 * degree - 1) * rule[a].weight * value.of_degree_before;
    }
}

interpolation::values interpolation::basis(double at) const {
    values value{};
    double sum = 0.0;
    for (int a = 0; a < points; ++a) {
        if (at == x[a]) {
            value = {};
            value[a] = 1.0;
            return value;
        }
        value[a] = barycentric[a] / (at - x[a]);
        sum += value[a];
    }
    for (double& of_point : value)
        of_point /= sum;
    return value;
}

double interpolation::last_coefficients(const double* f, int stride) const {
    double a = 0.0, b = 0.0;
    for (int p = 0; p < points; ++p, f += stride) {
        a += last[p] * *f;
        b += before_last[p] * *f;
    }
    return std::fabs(a) + std::fabs(b);
}

} // namespace quenta
