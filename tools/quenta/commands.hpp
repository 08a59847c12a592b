// What the program does, one function a command.
#pragma once

#include <string>

namespace quenta_program {

// Paths are files, or "-" for the standard streams.
struct vie2_request {
    std::string input;
    std::string setting;
    std::string output;
    std::string polynomials; // empty: not asked for
};

// Solves y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds from the samples of the input, and writes t,y at the
// samples of all whole steps. Returns the program's exit code; throws bad_input, or any other exception for what is
// unexpected, and has then written no output file.
int run_vie2(const vie2_request& request);

// Writes the table of the collocation settings to standard output.
int run_settings();

// Writes a text to standard output.
int print(const std::string& text);

} // namespace quenta_program
