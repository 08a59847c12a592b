// The Lagrange basis of a list of nodes, computed from its formulas.
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

namespace reference {

// All subsets of the positions first .. count - 1 that have `size` elements, in lexicographic order of their sorted
// positions.
inline std::vector<std::vector<std::size_t>> subsets(std::size_t count, std::size_t size, std::size_t first = 0) {
    if (size == 0)
        return {{}};
    std::vector<std::vector<std::size_t>> all;
    for (std::size_t smallest = first; smallest + size <= count; ++smallest)
        for (const std::vector<std::size_t>& rest : subsets(count, size - 1, smallest + 1)) {
            std::vector<std::size_t> subset{smallest};
            subset.insert(subset.end(), rest.begin(), rest.end());
            all.push_back(subset);
        }
    return all;
}

// The coefficients r of L_j(s) = sum over p of r[p] s^p.
inline std::vector<double> lagrange_coefficients(const std::vector<double>& nodes, std::size_t j) {
    if (nodes.size() == 1)
        return {1.0};
    std::vector<double> others;
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (i != j)
            others.push_back(nodes[i]);

    double denominator = nodes[j] - others[0];
    for (std::size_t i = 1; i < others.size(); ++i)
        denominator = (nodes[j] - others[i]) * denominator;

    std::vector<double> r(nodes.size());
    for (std::size_t p = 0; p < r.size(); ++p) {
        double sum = 0.0;
        for (const std::vector<std::size_t>& subset : subsets(others.size(), others.size() - p)) {
            double product = 1.0;
            for (const std::size_t position : subset)
                product = product * -others[position];
            sum = sum + product;
        }
        r[p] = sum / denominator;
    }
    return r;
}

// The double nearest to x^p. `pow` returns it for all bases and exponents of the tables.
inline double power(double x, std::size_t p) {
#if defined(_WIN32)
    // `pow` multiplies doubles here and rounds every product. The extended format has enough digits.
    long double product = 1.0L;
    for (; p > 0; --p)
        product *= x;
    return double(product);
#else
    volatile double base = x; // calls the function of the C library: the compiler cannot evaluate it
    return std::pow(base, double(p));
#endif
}

// The polynomial with the coefficients r at x.
inline double basis_value(const std::vector<double>& r, double x) {
    double value = 0.0;
    for (std::size_t p = 0; p < r.size(); ++p)
        value = value + r[p] * power(x, p);
    return value;
}

// The polynomial with the coefficients r at every point.
inline std::vector<double> basis_values(const std::vector<double>& r, const std::vector<double>& points) {
    std::vector<double> values;
    for (const double x : points)
        values.push_back(basis_value(r, x));
    return values;
}

// The integral of the polynomial with the coefficients r over [0, 1].
inline double quadrature_weight(const std::vector<double>& r) {
    double weight = 0.0;
    for (std::size_t p = 0; p < r.size(); ++p)
        weight = weight + r[p] / double(p + 1);
    return weight;
}

} // namespace reference
