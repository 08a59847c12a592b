#include "utility/failure.hpp"

#include <cstdio>

namespace quenta {

index_failure::index_failure(std::uint64_t at, std::uint64_t of, code_position position) noexcept
    : fatal_failure{"", position}, index{at}, length{of} {
    // Formatted here because what() must not allocate.
    std::snprintf(text, sizeof text, "index %llu, length %llu, at %s:%d", static_cast<unsigned long long>(index),
                  static_cast<unsigned long long>(length), position.file, position.line);
}

void fail_index(std::uint64_t index, std::uint64_t length, code_position where) {
    throw index_failure{index, length, where};
}

void fail_conversion(const char* message, code_position where) {
    throw conversion_failure{message, where};
}

void fail_assertion(const char* message, code_position where) {
    throw assertion_failure{message, where};
}

} // namespace quenta
