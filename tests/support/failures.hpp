// Catches the fatal failure that an action must end in.
#pragma once

#include <optional>

namespace quenta_tests {

// The failure of this type that `act` raises, or nothing if it ends well. Any other exception travels on, and fails
// the test.
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
