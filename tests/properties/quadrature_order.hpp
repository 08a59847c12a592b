// The order of the quadrature rule on a row's nodes.
#pragma once

#include "reference/lagrange.hpp"
#include "reference/settings.hpp"

#include <cmath>
#include <cstddef>
#include <vector>

namespace quenta_tests {

// The rule integrates s^j over [0, 1] exactly for all j below its order.
inline int quadrature_order(const reference::setting& row) {
    const std::vector<double> c = row.nodes();
    for (int j = 0;; ++j) {
        double integral = 0.0;
        for (std::size_t l = 0; l < c.size(); ++l)
            integral += reference::quadrature_weight(reference::lagrange_coefficients(c, l)) * std::pow(c[l], j);
        if (std::fabs(integral - 1.0 / (j + 1)) > 1e-12)
            return j;
    }
}

} // namespace quenta_tests
