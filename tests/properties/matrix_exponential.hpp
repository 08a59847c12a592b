// The exponential of a small matrix.
#pragma once

#include <cstddef>
#include <vector>

namespace quenta_tests {

// Row-major.
struct square_matrix {
    std::size_t order;
    std::vector<double> entries;

    double at(std::size_t a, std::size_t b) const { return entries[a * order + b]; }
};

inline square_matrix product(const square_matrix& left, const square_matrix& right) {
    const std::size_t order = left.order;
    square_matrix result{order, std::vector<double>(order * order, 0.0)};
    for (std::size_t a = 0; a < order; ++a)
        for (std::size_t inner = 0; inner < order; ++inner)
            for (std::size_t b = 0; b < order; ++b)
                result.entries[a * order + b] += left.at(a, inner) * right.at(inner, b);
    return result;
}

// exp(t A): the series of exp(2^-12 t A), then 12 squarings.
inline square_matrix exponential(const square_matrix& A, double t) {
    constexpr int squarings = 12, terms = 10;
    square_matrix part = A;
    for (double& entry : part.entries)
        entry *= t / double(1 << squarings);
    const auto add_identity = [](square_matrix& matrix) {
        for (std::size_t a = 0; a < matrix.order; ++a)
            matrix.entries[a * matrix.order + a] += 1.0;
    };
    // exp(X) - 1 = X (1 + X/2 (1 + X/3 (..))), and (1 + E)^2 - 1 = E (2 + E). Computing exp(X) - 1 keeps the digits
    // that adding 1 to small entries would lose.
    square_matrix excess{A.order, std::vector<double>(A.order * A.order, 0.0)};
    for (int term = terms; term > 0; --term) {
        add_identity(excess);
        excess = product(part, excess);
        for (double& entry : excess.entries)
            entry /= term;
    }
    for (int squaring = 0; squaring < squarings; ++squaring) {
        square_matrix factor = excess;
        add_identity(factor);
        add_identity(factor);
        excess = product(excess, factor);
    }
    add_identity(excess);
    return excess;
}

} // namespace quenta_tests
