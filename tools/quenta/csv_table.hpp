// The named number columns of a CSV text, with the line of every row for the messages that come later.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quenta_program {

struct csv_table {
    std::string source;                       // as messages call it: the path, or "standard input"
    std::vector<std::string> names;           // the columns asked for
    std::vector<std::vector<double>> columns; // their values, in the same order
    std::vector<std::size_t> lines;           // row i stands on line lines[i], counted from 1

    std::size_t rows() const { return lines.size(); }
    const std::vector<double>& column(const std::string& name) const;
    // "samples.csv, line 7: ", the head of a message about row i.
    std::string place(std::size_t row) const;
};

// A number in the text of a field, with nothing around it but spaces. One above the largest double is refused, or
// infinite.
enum class out_of_range { is_refused, is_infinite };
std::optional<double> read_number(std::string_view text, out_of_range treatment = out_of_range::is_refused);

// The columns to read, once the header is known; those of an empty header are what a message asks for.
using column_choice = std::function<std::vector<std::string>(const std::vector<std::string>& header)>;

// Reads the chosen columns from the file at `path`, or from standard input if it is "-".
//
// The first line that is neither empty nor a comment (its first character is #) is the header; the order of the
// columns is free, and further columns are passed over with a note. What separates the names in it, commas, semicolons
// or tabs, separates all fields. Every following row has as many fields as the
// header, and a number in each column asked for: decimal, or inf or nan. Throws bad_input on anything else.
csv_table read_csv_table(const std::string& path, const column_choice& choose);

} // namespace quenta_program
