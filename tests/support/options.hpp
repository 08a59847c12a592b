// Options of a test program, in addition to those of the test framework.
#pragma once

#include <string>
#include <string_view>

namespace quenta_tests {

// Whether the argument is NAME=VALUE. `name` includes the `=`.
inline bool value_of(std::string_view name, std::string_view argument, std::string& value) {
    const bool named = argument.starts_with(name);
    if (named)
        value = argument.substr(name.size());
    return named;
}

} // namespace quenta_tests
