// Catches a failure that a test expects.
#pragma once

#include <optional>

namespace quenta_tests {

// The failure of this type that `act` raises, or nothing if it returns. Other exceptions are not caught and fail the
// test.
template <class failure, class action>
std::optional<failure> failure_of(action&& act) {
    try {
        act();
    } catch (const failure& raised) {
        return raised;
    }
    return std::nullopt;
}

} // namespace quenta_tests
