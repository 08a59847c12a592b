#pragma once

#include "utility/failure.hpp"

#include <cstdint>

namespace quenta {

// Bit `position` of `value`.
constexpr bool bit_test(std::uint32_t value, std::uint64_t position) {
    require(position <= 31, "bad bit position");
    return (value >> position & 1u) != 0;
}

} // namespace quenta
