// The constants of a row of the settings table, computed at build time.
//
// row_tables, continuous_tables and integrated_tables compute them. scheme_of_row has them as values in a form whose
// type depends on the number of nodes only. The solvers take this form, so that all rows with the same number of nodes
// share their code.
#pragma once

#include "quenta_solvers/collocation_settings.hpp"
#include "quenta_solvers/lagrange.hpp"

#include <array>
#include <cstddef>

namespace quenta {

// The quadrature rule on the part [0, c_i] of a step, with the points c_i * c_q.
template <int P>
struct partial_rule {
    std::array<double, P> weight;               // [q]: c_i * b_q
    std::array<std::array<double, P>, P> value; // [q][j]: L_j(c_i * c_q)
    std::array<int, P> lag;                     // [q]: samples from the point c_i * c_q to c_i
};

template <int row>
struct row_tables {
    static constexpr collocation_setting setting = supported_settings[row];
    static constexpr int m = setting.m();
    static constexpr int P = setting.count(); // nodes of a step
    static constexpr int S = m * m;           // samples in a step: every point of the scheme is a sample

    template <class element>
    using per_node = std::array<element, P>;

    static constexpr per_node<int> k = [] {
        per_node<int> indices{};
        for (int i = 0; i < P; ++i)
            indices[i] = setting.node_index(i);
        return indices;
    }();
    static constexpr node_list<P> c = [] {
        node_list<P> nodes{};
        for (std::size_t i = 0; i < P; ++i)
            nodes[i] = double(k[i]) / double(m);
        return nodes;
    }();

    // lambda[l][p]: the coefficient of s^p of L_l.
    static constexpr per_node<std::array<double, P>> lambda = lagrange_basis(c);

    // b[l]: the quadrature weight of node l on [0, 1].
    static constexpr per_node<double> b = [] {
        per_node<double> weights{};
        for (std::size_t l = 0; l < P; ++l)
            weights[l] = quadrature_weight(lambda[l]);
        return weights;
    }();

    static constexpr per_node<partial_rule<P>> present = [] {
        per_node<partial_rule<P>> rules{};
        for (std::size_t i = 0; i < P; ++i)
            for (std::size_t q = 0; q < P; ++q) {
                rules[i].weight[q] = c[i] * b[q];
                rules[i].lag[q] = k[i] * (m - k[q]);
                for (std::size_t l = 0; l < P; ++l)
                    rules[i].value[q][l] = basis_value(lambda[l], c[i] * c[q]);
            }
        return rules;
    }();

    // The number of kernel samples that the current step reads.
    static constexpr int present_samples = [] {
        int largest = 0;
        for (const partial_rule<P>& rule : present)
            for (const int lag : rule.lag)
                largest = lag > largest ? lag : largest;
        return largest + 1;
    }();

    // sample_value[e][l]: L_l at sample e of a step, e / S.
    static constexpr std::array<per_node<double>, S + 1> sample_value = [] {
        std::array<per_node<double>, S + 1> values{};
        for (std::size_t e = 0; e <= S; ++e)
            for (std::size_t l = 0; l < P; ++l)
                values[e][l] = basis_value(lambda[l], double(e) / double(S));
        return values;
    }();
};

// For the polynomial of a step that also passes through a value carried over from the previous step, at the added node
// 0: the basis on 0, c_1 .. c_P, in this order. If the first node of the row is 0, this node is repeated. There is then
// no basis, and the tables hold the results of the formulas: infinities and NaN.
template <int row>
struct continuous_tables {
    using tables = row_tables<row>;
    static constexpr int P = tables::P;
    using per_basis = std::array<double, P + 1>; // [0]: the added node, [l + 1]: node l

    static constexpr node_list<P + 1> nodes = [] {
        node_list<P + 1> list{};
        for (int i = 0; i < P; ++i)
            list[i + 1] = tables::c[i];
        return list;
    }();
    static constexpr std::array<per_basis, P + 1> lambda = lagrange_basis(nodes);

    static constexpr per_basis values_at(double v) {
        per_basis values{};
        for (int l = 0; l <= P; ++l)
            values[l] = basis_value(lambda[l], v);
        return values;
    }

    // [i][q]: at the point c_i * c_q of the partial rule.
    static constexpr auto present = [] {
        std::array<std::array<per_basis, P>, P> values{};
        for (int i = 0; i < P; ++i)
            for (int q = 0; q < P; ++q)
                values[i][q] = values_at(tables::c[i] * tables::c[q]);
        return values;
    }();

    // [e]: at sample e of a step. The reciprocal is rounded first.
    static constexpr auto sample_value = [] {
        std::array<per_basis, tables::S + 1> values{};
        for (int e = 0; e <= tables::S; ++e)
            values[e] = values_at(double(e) * (1.0 / double(tables::S)));
        return values;
    }();

    // At the end of the step: the value that is carried to the next step.
    static constexpr per_basis end_value = values_at(1.0);
};

// The integrals B_j(v) of L_j from 0 to v: the basis of a polynomial whose derivative is known at the nodes. B_j(1) and
// the weight b_j are the same number, rounded in two ways; neither may replace the other.
template <int row>
struct integrated_tables {
    using tables = row_tables<row>;
    static constexpr int P = tables::P;
    using per_basis = std::array<double, P>;

    // beta[l][p]: the coefficient of v^p of B_l, p = 0 .. P. The reciprocal of p is rounded first.
    static constexpr std::array<std::array<double, P + 1>, P> beta = [] {
        std::array<std::array<double, P + 1>, P> coefficients{};
        for (int l = 0; l < P; ++l)
            for (int p = 1; p <= P; ++p)
                coefficients[l][p] = tables::lambda[l][p - 1] * (1.0 / double(p));
        return coefficients;
    }();

    static constexpr per_basis values_at(double v) {
        per_basis values{};
        for (int l = 0; l < P; ++l)
            values[l] = basis_value(beta[l], v);
        return values;
    }

    // [i]: at node i. All B_j(0) are +0.0 and need not be subtracted.
    static constexpr std::array<per_basis, P> node_value = [] {
        std::array<per_basis, P> values{};
        for (int i = 0; i < P; ++i)
            values[i] = values_at(tables::c[i]);
        return values;
    }();

    // [i][q]: at the point c_i * c_q of the partial rule.
    static constexpr std::array<std::array<per_basis, P>, P> present = [] {
        std::array<std::array<per_basis, P>, P> values{};
        for (int i = 0; i < P; ++i)
            for (int q = 0; q < P; ++q)
                values[i][q] = values_at(tables::c[i] * tables::c[q]);
        return values;
    }();

    // [e]: at sample e of a step, e / S; the last is the end of the step.
    static constexpr std::array<per_basis, tables::S + 1> sample_value = [] {
        std::array<per_basis, tables::S + 1> values{};
        for (int e = 0; e <= tables::S; ++e)
            values[e] = values_at(double(e) / double(tables::S));
        return values;
    }();
};

// A basis of `size` polynomials with `powers` coefficients each, as values.
template <int P, int size_, int powers_>
struct basis_table {
    static constexpr int points = P, size = size_, powers = powers_;

    std::array<std::array<double, powers>, size> coefficients;       // [j][p]
    std::array<std::array<std::array<double, size>, P>, P> at_point; // [i][q][j]: at c_i * c_q
    const std::array<double, size>* sample_value;                    // [e][j]: at sample e of a step, e = 0 .. S
};

// The constants of a row as values.
template <int P_>
struct collocation_scheme {
    static constexpr int P = P_;

    int S, present_samples;
    std::array<int, P> node_sample;                    // [i]: m * k_i, the sample of a step at node i
    std::array<std::array<int, P>, P> sample_distance; // [i][j]: m * (k_i - k_j)
    std::array<double, P> c, b;
    std::array<partial_rule<P>, P> present;
    basis_table<P, P, P> nodes;                            // of a polynomial given by its values at the nodes
    basis_table<P, P + 1, P + 1> continuous;               // by a carried value too, which comes first
    std::array<double, P + 1> carried_weight;              // of `continuous`: its values at the end of a step
    basis_table<P, P, P + 1> integrated;                   // by its derivatives at the nodes
    std::array<std::array<double, P>, P> integral_at_node; // [i][j]: B_j(c_i)
    std::array<double, P> integral_at_end;                 // [j]: B_j(1), by its coefficients
};

template <int row>
inline constexpr collocation_scheme<row_tables<row>::P> scheme_of_row = [] {
    using tables = row_tables<row>;
    using continuous = continuous_tables<row>;
    using integrated = integrated_tables<row>;
    collocation_scheme<tables::P> scheme{};
    scheme.S = tables::S;
    scheme.present_samples = tables::present_samples;
    for (int i = 0; i < tables::P; ++i) {
        scheme.node_sample[i] = tables::m * tables::k[i];
        for (int j = 0; j < tables::P; ++j) {
            scheme.sample_distance[i][j] = tables::m * (tables::k[i] - tables::k[j]);
            scheme.nodes.at_point[i][j] = tables::present[i].value[j];
        }
    }
    scheme.c = tables::c;
    scheme.b = tables::b;
    scheme.present = tables::present;
    scheme.nodes.coefficients = tables::lambda;
    scheme.nodes.sample_value = tables::sample_value.data();
    scheme.continuous = {continuous::lambda, continuous::present, continuous::sample_value.data()};
    scheme.carried_weight = continuous::end_value;
    scheme.integrated = {integrated::beta, integrated::present, integrated::sample_value.data()};
    scheme.integral_at_node = integrated::node_value;
    scheme.integral_at_end = integrated::sample_value[tables::S];
    return scheme;
}();

// Values that can be checked by hand: the trapezoidal rule, and Simpson's rule, whose weights are rounded sums of
// rounded terms and therefore not the doubles nearest to 1/6 and 2/3.
static_assert(row_tables<2>::b == std::array{0.5, 0.5});
static_assert(row_tables<9>::b[0] - 1.0 / 6.0 < 1e-16 && 1.0 / 6.0 - row_tables<9>::b[0] < 1e-16);
static_assert(row_tables<9>::present[2].lag == std::array{4, 2, 0});

} // namespace quenta
