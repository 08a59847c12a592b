// How the program speaks: one sentence a line on standard error, and an exit code.
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
    exit_unexpected = 1,    // memory, a full disk, a closed pipe, a defect
    exit_bad_input = 2,     // what was given is wrong, and the message says where
    exit_singular_block = 3 // the equation has no solution under this setting
};

// What the user gave is wrong: the sentence to show.
struct bad_input : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The shortest text that reads back as the same double. A NaN has no sign here: readers of CSV rarely take one.
inline void append_number(std::string& text, double value) {
    char digits[32];
    const double shown = std::isnan(value) ? std::abs(value) : value;
    text.append(digits, std::to_chars(digits, digits + sizeof digits, shown).ptr);
}

// For numbers that are only estimates: two digits, or all that stand before the point.
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

// A text of the user's in a message, such as a path: nothing in it controls a terminal or ends the line.
inline std::string printable(std::string_view text) {
    std::string shown;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        shown += byte < 0x20 || byte == 0x7F ? '?' : character;
    }
    return shown;
}

// The same in quotes, and cut to a readable length.
inline std::string in_quotes(std::string_view text) {
    std::size_t length = std::min<std::size_t>(text.size(), 40);
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        --length; // not in the middle of a character
    return sentence("'", printable(text.substr(0, length)), length < text.size() ? "...'" : "'");
}

inline void complain(std::string_view what) {
    std::cerr << "quenta: " << what << '\n';
}

template <class... part>
void note(const part&... parts) {
    complain(sentence("note: ", parts...));
}

template <class... part>
void warning(const part&... parts) {
    complain(sentence("warning: ", parts...));
}

} // namespace quenta_program
