// Powers and logarithms that have the same bits on every processor. Those of the C library may use fused
// multiplications where the processor has them, and then differ in the last bit.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

namespace quenta {

// A number as the sum of two; the second is small.
struct sum_of_two {
    double hi, lo;
};

// Keeps 26 bits, so that the product of two such numbers is exact.
inline double upper_half(double x) {
    return std::bit_cast<double>(std::bit_cast<std::uint64_t>(x) & ~((std::uint64_t{1} << 27) - 1));
}

// log2(x) for x > 0, with an error of 2^-60 of its fractional part. With x = 2^k m, m about 1, and s = (m - 1) / (m +
// 1) it is k + 2 (s + s^3 / 3 + s^5 / 5 + ..) / log(2).
inline sum_of_two log2_of(double x) {
    constexpr double smallest_normal = 0x1p-1022, log2_e = 0x1.71547652b82fep0, log2_e_hi = 0x1.715476p0,
                     log2_e_lo = 0x1.4ae0bf85ddf44p-26;
    double k = -1023.0;
    if (x < smallest_normal) {
        x *= 0x1p54;
        k -= 54.0;
    }
    // The bits of x minus those of sqrt(1/2), so that m is between sqrt(1/2) and sqrt(2).
    constexpr std::uint64_t offset = 0x3ff0000000000000u - 0x3fe6a09e667f3bcdu;
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(x) + offset;
    k += double(std::int64_t(bits >> 52));
    const double m = std::bit_cast<double>((bits & 0xfffffffffffffu) + 0x3fe6a09e667f3bcdu), f = m - 1.0;
    const double sum = m + 1.0, reciprocal = 1.0 / sum, s = f * reciprocal;
    const double s_hi = upper_half(s), sum_hi = upper_half(sum), sum_lo = (2.0 - sum_hi) + f;
    const double s_lo = ((f - s_hi * sum_hi) - s_hi * sum_lo) * reciprocal;
    const double z = s * s, z2 = z * z, z4 = z2 * z2;
    const double series = ((1.0 / 3 + z * (1.0 / 5)) + z2 * (1.0 / 7 + z * (1.0 / 9))) +
                          z4 * (((1.0 / 11 + z * (1.0 / 13)) + z2 * (1.0 / 15 + z * (1.0 / 17))) +
                                z4 * ((1.0 / 19 + z * (1.0 / 21)) + z2 * (1.0 / 23 + z * (1.0 / 25))));
    const double product = 2.0 * s_hi * log2_e_hi; // exact
    const double hi = k + product;
    return {hi, (product - (hi - k)) + 2.0 * (s_hi * log2_e_lo + (s_lo + s * (z * series)) * log2_e)};
}

inline double natural_log(double x) {
    const sum_of_two log2_x = log2_of(x);
    return 0x1.62e42fefa39efp-1 * (log2_x.hi + log2_x.lo);
}

// pow(x, exponent) for x > 0 and exponents up to 100, to two units in the last place. A result below the smallest
// normal number is 0.
inline double power(double x, double exponent) {
    const sum_of_two log2_x = log2_of(x);
    const double log_hi = upper_half(log2_x.hi), exponent_hi = upper_half(exponent);
    const double hi = exponent_hi * log_hi; // exact
    const double lo = (exponent - exponent_hi) * log_hi + exponent * ((log2_x.hi - log_hi) + log2_x.lo);
    constexpr double shift = 0x1.8p52; // rounds to an integer
    const double n = ((hi + lo) + shift) - shift;
    const double y = 0x1.62e42fefa39efp-1 * ((hi - n) + lo); // from -log(2) / 2 to log(2) / 2
    const double y2 = y * y, y4 = y2 * y2, y8 = y4 * y4;
    const double rest = ((1.0 / 2 + y * (1.0 / 6)) + y2 * (1.0 / 24 + y * (1.0 / 120))) +
                        y4 * ((1.0 / 720 + y * (1.0 / 5040)) + y2 * (1.0 / 40320 + y * (1.0 / 362880))) +
                        y8 * ((1.0 / 3628800 + y * (1.0 / 39916800)) + y2 * (1.0 / 479001600));
    const double scale = std::bit_cast<double>(std::uint64_t(std::clamp(n, -1023.0, 1024.0) + 1023.0) << 52);
    return scale * (1.0 + (y + y2 * rest));
}

} // namespace quenta
