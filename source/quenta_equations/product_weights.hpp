// Weights for integrals over a step with the factor (t - s)^-alpha, 0 < alpha < 1, which is infinite at s = t:
//
//     W_j = integral over s in [t_k, t_k + h] of (t - s)^-alpha L_j((s - t_k) / h),     t >= t_k + h,
//
// and for the part of the current step before t, of length l, with the points t_n + c_q l:
//
//     w_q = l^(1 - alpha) times the integral over x in [0, 1] of (1 - x)^-alpha L_q(x).
//
// They are right to rounding, relative to the sum of the weights of the step (H. Brunner, Collocation Methods for
// Volterra Integral and Related Functional Differential Equations, Cambridge University Press 2004, section 6.2).
#pragma once

#include "quenta_equations/gauss_rules.hpp"
#include "quenta_equations/nodes.hpp"

#include <array>
#include <vector>

namespace quenta {

class product_weights {
public:
    product_weights(const collocation_nodes& nodes, double alpha);

    // W_j of a finished step of length h that ends `distance` >= 0 before t.
    per_node<double> of_step(double distance, double h) const;

    // w_q.
    per_node<double> of_current_step(double length) const;

private:
    // A rule of Gauss and Legendre: 1 - x, and the weight times L_j(x), for each of its points.
    struct rule_point {
        double to_end;
        per_node<double> weight;
    };
    static constexpr int rules = 8, most_terms = 19;

    per_node<double> near_step(double d) const;
    per_node<double> middle_step(double d) const;
    per_node<double> far_step(double steps_per_lag) const;

    collocation_nodes nodes;
    double alpha;
    std::array<per_node<double>, most_terms> series{};     // of the lag from the middle of a step
    std::array<std::vector<rule_point>, rules> legendre{}; // with more and more points, for shorter distances
    std::array<quadrature_point, 3> linear_power;          // for v^(1 - alpha)
    per_node<double> current{};                            // the integrals in w_q
};

} // namespace quenta
