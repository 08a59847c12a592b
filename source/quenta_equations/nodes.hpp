// The nodes of a collocation scheme in the unit interval, and the polynomials that they define: L_j of degree P - 1
// with L_j(c_i) = (i == j), and their integrals B_j(x) from 0 to x.
#pragma once

#include <array>

namespace quenta {

inline constexpr int max_nodes = 5;

template <class element>
using per_node = std::array<element, max_nodes>; // the first P elements are used

enum class node_family { radau, gauss, lobatto };

// Writes the P nodes of a family. False: it has no P nodes.
bool family_nodes(node_family family, int P, double* nodes);

struct collocation_nodes {
    int P;
    per_node<double> c;
    per_node<double> b;                                     // B_j(1), the quadrature weights
    per_node<per_node<double>> integral;                    // [i][j]: B_j(c_i)
    per_node<per_node<per_node<double>>> at_point;          // [i][q][j]: L_j(c_i c_q)
    per_node<per_node<per_node<double>>> integral_at_point; // [i][q][j]: B_j(c_i c_q)

    per_node<double> values(double x) const;      // L_j(x)
    per_node<double> integrals(double x) const;   // B_j(x)
    per_node<double> derivatives(double x) const; // L_j'(x)
};

// The nodes c[P], which must increase from at least 0 to at most 1, with their tables.
collocation_nodes nodes_with_tables(const double* c, int P);

} // namespace quenta
