// What the program does, one function a command.
#pragma once

#include <optional>
#include <string>

namespace quenta_program {

// Paths are files, or "-" for the standard streams.
struct solve_request {
    std::string input;
    std::string setting;
    std::string output;
    std::optional<std::string> polynomials; // written if asked for
};

struct vide_request : solve_request {
    std::string y0; // "v1,v2,.."
};

struct vie1_request : solve_request {
    std::optional<std::string> y0; // "v1,v2,..": asks for the continuous form
};

// All solve an equation, or a system, from the samples of the input, and write t,y, or t,y1,y2,.. of a system, at the
// samples of all whole steps. They return the program's exit code; they throw bad_input, or any other exception for
// what is unexpected, and have then written no output file.

// integral from 0 to t of K(t - s) y(s) ds = g(t).
int run_vie1(const vie1_request& request);

// y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.
int run_vie2(const solve_request& request);

// y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds, from y(0) = y0 on.
int run_vide(const vide_request& request);

// Writes the table of the collocation settings to standard output.
int run_settings();

// Writes a text to standard output.
int print(const std::string& text);

} // namespace quenta_program
