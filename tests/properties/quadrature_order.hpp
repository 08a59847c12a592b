// The order of the quadrature rule on the nodes of a setting.
#pragma once

#include "reference/lagrange.hpp"
#include "reference/settings.hpp"

#include <cmath>
#include <cstddef>
#include <vector>

namespace quenta_tests {

// The rule integrates s^p over [0, 1] exactly for all p below its order.
inline int quadrature_order(const reference::setting& row) {
    const std::vector<double> c = row.nodes();
    for (int p = 0;; ++p) {
        double integral = 0.0;
        for (std::size_t j = 0; j < c.size(); ++j)
            integral += reference::quadrature_weight(reference::lagrange_coefficients(c, j)) * std::pow(c[j], p);
        if (std::fabs(integral - 1.0 / (p + 1)) > 1e-12)
            return p;
    }
}

} // namespace quenta_tests
