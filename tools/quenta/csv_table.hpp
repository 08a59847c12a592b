// Reads named columns of numbers from a CSV file. The line of each row is kept for messages.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quenta_program {

struct csv_table {
    std::string source;                       // for messages: the path, or "standard input"
    std::vector<std::string> names;           // of the columns that were read
    std::vector<std::vector<double>> columns; // in the order of the names
    std::vector<std::size_t> lines;           // the line of each row, counted from 1
    std::string first_fields;                 // the first column as written, each field followed by a line end

    std::size_t rows() const { return lines.size(); }
    const std::vector<double>& column(const std::string& name) const;
    // "samples.csv, line 7: ", the beginning of a message about a row.
    std::string place(std::size_t row) const;
    // The field of a row in the first column that was read, as written.
    std::string first_field(std::size_t row) const;
};

// Parses a number with optional spaces and tabs around it. A number above the largest double is refused or infinite;
// one below the smallest double is 0.
enum class out_of_range { is_refused, is_infinite };
std::optional<double> read_number(std::string_view text, out_of_range treatment = out_of_range::is_refused);

// Returns the columns to read, given the header. For an empty header it returns the columns that messages ask for.
using column_choice = std::function<std::vector<std::string>(const std::vector<std::string>& header)>;

// Reads the chosen columns from the file at `path`, or from standard input if it is "-".
//
// Lines that start with # are comments. The first line that is neither empty nor a comment is the header. Its separator
// (comma, semicolon or tab) separates all fields. Columns may be in any order; a note names those that are not read.
// Each row must have as many fields as the header, and a decimal number, inf or nan in each column that is read. Throws
// bad_input otherwise.
csv_table read_csv_table(const std::string& path, const column_choice& choose);

} // namespace quenta_program
