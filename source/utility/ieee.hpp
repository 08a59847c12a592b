// IEEE arithmetic that also works at build time.
//
// A compiler rounds ordinary sums and products of doubles at build time as at run time, but it rejects an operation
// that raises an IEEE exception (0/0, 1/0, inf*0, inf-inf). A list with a repeated node needs exactly these results, so
// they are written out here. All NaNs are considered equal: their sign and payload are implementation-defined.
#pragma once

#include <limits>
#include <type_traits>

namespace quenta::ieee {

inline constexpr double infinity = std::numeric_limits<double>::infinity();
inline constexpr double quiet_nan = std::numeric_limits<double>::quiet_NaN();

constexpr bool is_nan(double x) {
    return x != x;
}

constexpr bool is_infinite(double x) {
    return x == infinity || x == -infinity;
}

constexpr bool is_negative(double x) {
    return __builtin_copysign(1.0, x) < 0;
}

// For build time, when an invalid operation or a division by zero would be an error.
namespace spelled_out {

constexpr double quotient(double a, double b) {
    if (is_nan(a) || is_nan(b) || (a == 0 && b == 0) || (is_infinite(a) && is_infinite(b)))
        return quiet_nan;
    if (b == 0)
        return is_negative(a) == is_negative(b) ? infinity : -infinity;
    return a / b;
}

constexpr double product(double a, double b) {
    if (is_nan(a) || is_nan(b) || (is_infinite(a) && b == 0) || (a == 0 && is_infinite(b)))
        return quiet_nan;
    return a * b;
}

constexpr double sum(double a, double b) {
    if (is_nan(a) || is_nan(b) || (is_infinite(a) && is_infinite(b) && a != b))
        return quiet_nan;
    return a + b;
}

} // namespace spelled_out

// GCOVR_EXCL_BR_START: constants are evaluated at build time, where nothing is counted
constexpr double quotient(double a, double b) {
    return std::is_constant_evaluated() ? spelled_out::quotient(a, b) : a / b;
}

constexpr double product(double a, double b) {
    return std::is_constant_evaluated() ? spelled_out::product(a, b) : a * b;
}

constexpr double sum(double a, double b) {
    return std::is_constant_evaluated() ? spelled_out::sum(a, b) : a + b;
}
// GCOVR_EXCL_BR_STOP

} // namespace quenta::ieee
