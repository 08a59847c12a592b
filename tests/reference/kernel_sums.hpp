// The sums of kernel values times weighted values of phi, in the order that the library documents.
#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace reference {

// Product p is added to the partial sum number p mod 16. The partial sums are added pairwise: the second half to the
// first, until one is left.
inline double kernel_sum(std::span<const double> values, std::span<const double> weighted) {
    std::array<double, 16> partial{};
    for (std::size_t p = 0; p < values.size(); ++p)
        partial[p % 16] = partial[p % 16] + values[p] * weighted[p];
    for (std::size_t half = 8; half > 0; half /= 2)
        for (std::size_t i = 0; i < half; ++i)
            partial[i] = partial[i] + partial[i + half];
    return partial[0];
}

// sum[a] + the sum over points p, ascending, of the products of row a of block p with the E values of point p.
inline double block_kernel_sum(double sum, std::span<const double> blocks, std::span<const double> weighted,
                               std::size_t D, std::size_t E, std::size_t a) {
    for (std::size_t p = 0; p * E < weighted.size(); ++p) {
        double product = 0.0;
        for (std::size_t c = 0; c < E; ++c)
            product = product + blocks[(p * D + a) * E + c] * weighted[p * E + c];
        sum = sum + product;
    }
    return sum;
}

} // namespace reference
