#include "quenta_equations/nodes.hpp"

#include <algorithm>

namespace quenta {

namespace {

// With p_k for the Legendre polynomial of degree k, shifted to 0 .. 1: the zeros of p_P - p_(P-1) (Radau IIA), the
// zeros of p_P (Gauss), and 0, 1 and the extrema of p_(P-1) between them (Lobatto).
constexpr per_node<per_node<double>> radau_nodes{{
    {1.0},
    {0.33333333333333333333, 1.0},
    {0.15505102572168219018, 0.64494897427831780982, 1.0},
    {0.088587959512703947396, 0.40946686444073471086, 0.78765946176084705603, 1.0},
    {0.057104196114517682193, 0.27684301363812382768, 0.58359043236891682006, 0.86024013565621944785, 1.0},
}};
constexpr per_node<per_node<double>> gauss_nodes{{
    {0.5},
    {0.21132486540518711775, 0.78867513459481288225},
    {0.11270166537925831148, 0.5, 0.88729833462074168852},
    {0.069431844202973712388, 0.3300094782075718676, 0.6699905217924281324, 0.93056815579702628761},
    {0.046910077030668003601, 0.23076534494715845448, 0.5, 0.76923465505284154552, 0.9530899229693319964},
}};
constexpr per_node<per_node<double>> lobatto_nodes{{
    {},
    {0.0, 1.0},
    {0.0, 0.5, 1.0},
    {0.0, 0.27639320225002103036, 0.72360679774997896964, 1.0},
    {0.0, 0.1726731646460114281, 0.5, 0.8273268353539885719, 1.0},
}};

} // namespace

bool family_nodes(node_family family, int P, double* nodes) {
    if (P < (family == node_family::lobatto ? 2 : 1) || P > max_nodes)
        return false;
    const auto& table = family == node_family::radau   ? radau_nodes
                        : family == node_family::gauss ? gauss_nodes
                                                       : lobatto_nodes;
    std::copy_n(table[P - 1].data(), P, nodes);
    return true;
}

per_node<double> collocation_nodes::values(double x) const {
    per_node<double> value{};
    for (int j = 0; j < P; ++j) {
        value[j] = 1.0;
        for (int k = 0; k < P; ++k)
            if (k != j)
                value[j] *= (x - c[k]) / (c[j] - c[k]);
    }
    return value;
}

// The rule of Gauss with 3 points is exact for the degree 4 of L_j.
per_node<double> collocation_nodes::integrals(double x) const {
    constexpr std::array weight{5.0 / 18.0, 8.0 / 18.0, 5.0 / 18.0};
    per_node<double> integral_to_x{};
    for (int g = 0; g < 3; ++g) {
        const per_node<double> value = values(gauss_nodes[2][g] * x);
        for (int j = 0; j < P; ++j)
            integral_to_x[j] += weight[g] * x * value[j];
    }
    return integral_to_x;
}

per_node<double> collocation_nodes::derivatives(double x) const {
    per_node<double> slope{};
    for (int j = 0; j < P; ++j)
        for (int omitted = 0; omitted < P; ++omitted) {
            if (omitted == j)
                continue;
            double product = 1.0 / (c[j] - c[omitted]);
            for (int k = 0; k < P; ++k)
                if (k != j && k != omitted)
                    product *= (x - c[k]) / (c[j] - c[k]);
            slope[j] += product;
        }
    return slope;
}

collocation_nodes nodes_with_tables(const double* c, int P) {
    collocation_nodes nodes{};
    nodes.P = P;
    std::copy_n(c, P, nodes.c.data());
    nodes.b = nodes.integrals(1.0);
    for (int i = 0; i < P; ++i) {
        nodes.integral[i] = nodes.integrals(c[i]);
        for (int q = 0; q < P; ++q) {
            nodes.at_point[i][q] = nodes.values(c[i] * c[q]);
            nodes.integral_at_point[i][q] = nodes.integrals(c[i] * c[q]);
        }
    }
    return nodes;
}

} // namespace quenta
