// Tests that take long draw fewer random cases unless QUENTA_LONG_TESTS=1 is set, as in scripts/check --all.
#pragma once

#include <cstdlib>
#include <string_view>

namespace quenta_tests {

inline bool long_tests() {
    const char* const chosen = std::getenv("QUENTA_LONG_TESTS");
    return chosen != nullptr && std::string_view(chosen) == "1";
}

} // namespace quenta_tests
