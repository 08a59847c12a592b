// The exponential of a small matrix.
#pragma once

#include <cstddef>
#include <vector>

namespace quenta_tests {

// Row-major, of order n.
struct square_matrix {
    std::size_t n;
    std::vector<double> entries;

    double at(std::size_t r, std::size_t c) const { return entries[r * n + c]; }
};

inline square_matrix product(const square_matrix& a, const square_matrix& b) {
    square_matrix c{a.n, std::vector<double>(a.n * a.n, 0.0)};
    for (std::size_t r = 0; r < a.n; ++r)
        for (std::size_t k = 0; k < a.n; ++k)
            for (std::size_t s = 0; s < a.n; ++s)
                c.entries[r * a.n + s] += a.at(r, k) * b.at(k, s);
    return c;
}

// exp(t A), by the series of the 2^-12th part of it and squaring.
inline square_matrix exponential(const square_matrix& A, double t) {
    constexpr int squarings = 12, terms = 10;
    square_matrix part = A;
    for (double& entry : part.entries)
        entry *= t / double(1 << squarings);
    const auto add_identity = [](square_matrix& a) {
        for (std::size_t r = 0; r < a.n; ++r)
            a.entries[r * a.n + r] += 1.0;
    };
    // exp(X) - 1 = X (1 + X/2 (1 + X/3 (..))), and (1 + E)^2 - 1 = E (2 + E): nothing small is added to 1 before the
    // end.
    square_matrix excess{A.n, std::vector<double>(A.n * A.n, 0.0)};
    for (int k = terms; k > 0; --k) {
        add_identity(excess);
        excess = product(part, excess);
        for (double& entry : excess.entries)
            entry /= k;
    }
    for (int k = 0; k < squarings; ++k) {
        square_matrix factor = excess;
        add_identity(factor);
        add_identity(factor);
        excess = product(excess, factor);
    }
    add_identity(excess);
    return excess;
}

} // namespace quenta_tests
