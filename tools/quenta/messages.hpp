// Messages, one sentence per line on standard error, and exit codes.
#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace quenta_program {

enum exit_code {
    exit_solved = 0,
    exit_unexpected = 1,    // out of memory, a failed write, an internal error
    exit_bad_input = 2,     // wrong arguments or samples
    exit_singular_block = 3 // the linear system of a step is singular
};

// Wrong arguments or samples. what() is the message for the user.
struct bad_input : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The shortest text that reads back as the same double. NaN has no sign, because most CSV readers do not accept one.
inline void append_number(std::string& text, double value) {
    char digits[32];
    const double unsigned_nan = std::isnan(value) ? std::abs(value) : value;
    text.append(digits, std::to_chars(digits, digits + sizeof digits, unsigned_nan).ptr);
}

// For estimates: two significant digits, or all digits of the integer part.
inline std::string two_digits(double value) {
    char digits[32];
    const bool is_whole = std::abs(value) >= 9.95 && std::abs(value) < 1e6;
    std::snprintf(digits, sizeof digits, is_whole ? "%.0f" : "%.2g", value);
    return digits;
}

inline void append_part(std::string& text, double value) {
    append_number(text, value);
}
inline void append_part(std::string& text, std::integral auto value) {
    text += std::to_string(value);
}
inline void append_part(std::string& text, std::string_view part) {
    text += part;
}

template <class... part>
std::string sentence(const part&... parts) {
    std::string text;
    (append_part(text, parts), ...);
    return text;
}

// User text in a message, such as a path, with control characters replaced.
inline std::string printable(std::string_view text) {
    std::string shown;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        shown += byte < 0x20 || byte == 0x7F ? '?' : character;
    }
    return shown;
}

// The same in quotes, shortened to 40 bytes.
inline std::string in_quotes(std::string_view text) {
    std::size_t length = std::min<std::size_t>(text.size(), 40);
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        --length; // do not cut inside a UTF-8 character
    return sentence("'", printable(text.substr(0, length)), length < text.size() ? "...'" : "'");
}

inline void print_message(std::string_view text) {
    std::cerr << "quenta: " << text << '\n';
}

template <class... part>
void note(const part&... parts) {
    print_message(sentence("note: ", parts...));
}

template <class... part>
void warning(const part&... parts) {
    print_message(sentence("warning: ", parts...));
}

} // namespace quenta_program
