// The named number columns of a CSV text, with the line of every row for the messages that come later.
#pragma once

#include <cstddef>
#include <string>
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

// Reads the columns `names` from the file at `path`, or from standard input if it is "-".
//
// The first line that is neither empty nor a comment (its first character is #) is the header; the order of the
// columns is free, and further columns are passed over with a note. Every following row has as many fields as the
// header, and a number in each column asked for: decimal, or inf or nan. Throws bad_input on anything else.
csv_table read_csv_table(const std::string& path, const std::vector<std::string>& names);

} // namespace quenta_program
