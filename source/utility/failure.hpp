// Fatal failures: contradictory arguments, or a mistake in the library.
//
// They are exceptions that nothing inside the library catches. They leave through the export, and memory is released on
// the way. A host may catch them as std::exception; otherwise they end it.
#pragma once

#include <cstdint>
#include <exception>

namespace quenta {

// A place in the source. The default argument of a check is evaluated where the check is called.
struct code_position {
    const char* file;
    int line;

    static constexpr code_position here(const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
        return {file, line};
    }
};

class fatal_failure : public std::exception {
public:
    fatal_failure(const char* text, code_position position) noexcept : where{position}, message{text} {}
    const char* what() const noexcept override { return message; }

    code_position where;

private:
    const char* message;
};

// An access outside a view of `length` elements: `index` is the first missing one.
class index_failure final : public fatal_failure {
public:
    index_failure(std::uint64_t at, std::uint64_t of, code_position position) noexcept;
    const char* what() const noexcept override { return text; }

    std::uint64_t index;
    std::uint64_t length;

private:
    char text[160];
};

// A number that does not fit the type to which it is converted.
class conversion_failure final : public fatal_failure {
public:
    using fatal_failure::fatal_failure;
};

// A condition that only a mistake in the code can break.
class assertion_failure final : public fatal_failure {
public:
    using fatal_failure::fatal_failure;
};

// These are not inlined, so that a check costs its caller a comparison and a jump.
[[noreturn]] void fail_index(std::uint64_t index, std::uint64_t length, code_position where);
[[noreturn]] void fail_conversion(const char* message, code_position where);
[[noreturn]] void fail_assertion(const char* message, code_position where);

constexpr void require(bool condition, const char* message = "", code_position where = code_position::here()) {
    if (!condition)
        fail_assertion(message, where);
}

} // namespace quenta
