// Weights for integrals over a step with the factor (t - s)^-alpha, 0 <= alpha < 1, which is infinite at s = t:
//
//     W_j = integral over s in [t_k, t_k + h] of (t - s)^-alpha L_j((s - t_k) / h),     t >= t_k + h,
//
// and for the part [t_n, t_n + c_i h] of the current step, with the points t_n + c_i c_q h:
//
//     w_iq = (c_i h)^(1 - alpha) times the integral over x in [0, 1] of (1 - x)^-alpha L_q(x).
//
// They are right to rounding, relative to the sum of the weights of the step (H. Brunner, Collocation Methods for
// Volterra Integral and Related Functional Differential Equations, Cambridge University Press 2004, section 6.2).
#pragma once

#include "quenta_equations/gauss_rules.hpp"
#include "quenta_equations/nodes.hpp"

#include <array>

namespace quenta {

class product_weights {
public:
    product_weights(const collocation_nodes& nodes, double alpha);

    // W_j of a finished step of length h that ends `distance` >= 0 before t.
    per_node<double> of_step(double distance, double h) const;

    // w_iq for q = 0 .. P - 1.
    per_node<double> of_current_step(int i, double h) const;

private:
    per_node<double> near_step(double d) const;
    per_node<double> far_step(double d) const;

    collocation_nodes nodes;
    double alpha;
    std::array<quadrature_rule, 11> legendre;     // with more and more points, for shorter and shorter distances
    std::array<quadrature_point, 3> linear_power; // for v^(1 - alpha)
    per_node<double> current{};                   // the integrals in w_iq
};

} // namespace quenta
