// The Lagrange basis of a list of nodes, by its formulas.
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

namespace reference {

// All subsets of `size` of the positions first .. n-1, in lexicographic order of their sorted positions.
inline std::vector<std::vector<std::size_t>> subsets(std::size_t n, std::size_t size, std::size_t first = 0) {
    if (size == 0)
        return {{}};
    std::vector<std::vector<std::size_t>> all;
    for (std::size_t smallest = first; smallest + size <= n; ++smallest)
        for (const std::vector<std::size_t>& rest : subsets(n, size - 1, smallest + 1)) {
            std::vector<std::size_t> subset{smallest};
            subset.insert(subset.end(), rest.begin(), rest.end());
            all.push_back(subset);
        }
    return all;
}

// r with L_j(s) = sum over k of r[k] * s^k.
inline std::vector<double> lagrange_coefficients(const std::vector<double>& nodes, std::size_t j) {
    const std::size_t n = nodes.size();
    if (n == 1)
        return {1.0};
    std::vector<double> others;
    for (std::size_t i = 0; i < n; ++i)
        if (i != j)
            others.push_back(nodes[i]);

    double denominator = nodes[j] - others[0];
    for (std::size_t i = 1; i < others.size(); ++i)
        denominator = (nodes[j] - others[i]) * denominator;

    std::vector<double> r(n);
    for (std::size_t k = 0; k < n; ++k) {
        double sum = 0.0;
        for (const std::vector<std::size_t>& subset : subsets(others.size(), n - 1 - k)) {
            double product = 1.0;
            for (const std::size_t position : subset)
                product = product * -others[position];
            sum = sum + product;
        }
        r[k] = sum / denominator;
    }
    return r;
}

// x to the power of k: the double next to it, as `pow` gives it for the few bases and exponents of the tables.
inline double power(double x, std::size_t k) {
#if defined(_WIN32)
    // Where `pow` multiplies, and rounds each time, the extended format has the digits.
    long double product = 1.0L;
    for (; k > 0; --k)
        product *= x;
    return double(product);
#else
    volatile double base = x; // the library's function itself, not a compiler's idea of it
    return std::pow(base, double(k));
#endif
}

// The polynomial with the coefficients r, at x.
inline double basis_value(const std::vector<double>& r, double x) {
    double value = 0.0;
    for (std::size_t k = 0; k < r.size(); ++k)
        value = value + r[k] * power(x, k);
    return value;
}

// The same at every one of the points.
inline std::vector<double> basis_values(const std::vector<double>& r, const std::vector<double>& points) {
    std::vector<double> values;
    for (const double x : points)
        values.push_back(basis_value(r, x));
    return values;
}

// The integral of L over [0, 1].
inline double quadrature_weight(const std::vector<double>& r) {
    double weight = 0.0;
    for (std::size_t k = 0; k < r.size(); ++k)
        weight = weight + r[k] / double(k + 1);
    return weight;
}

} // namespace reference
