// Integer arithmetic on the arguments of the exports: they are signed 32-bit numbers of any value.
#pragma once

#include "utility/failure.hpp"
#include "utility/platform.hpp"

#include <cstdint>

namespace quenta {

// Wide enough for every product that is compared with a limit: a product of a few 32-bit numbers cannot overflow.
__extension__ using int128 = __int128;

// Products and sums of 32-bit arguments wrap. They are computed in unsigned arithmetic, where wrapping is defined.
constexpr std::int32_t wrapping_product(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

constexpr std::int32_t wrapping_sum(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// The truncated quotient. A zero divisor ends the process by the platform's arithmetic fault. It is tested for because
// the division would be undefined behaviour, and on some machines does not trap.
inline std::int32_t faulting_quotient(std::int32_t dividend, std::int32_t divisor) {
    if (divisor == 0)
        platform::raise_arithmetic_fault();
    return static_cast<std::int32_t>(std::int64_t{dividend} / divisor);
}

// The length of an array as a 32-bit number.
inline std::int32_t guarded_int(std::uint64_t length, code_position where = code_position::here()) {
    if (length > 0x7FFFFFFF)
        fail_conversion("Conversion positive overflow", where);
    return static_cast<std::int32_t>(length);
}

} // namespace quenta
