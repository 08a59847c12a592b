// The commands of the program.
#pragma once

#include <optional>
#include <string>

namespace quenta_program {

// A path of "-" is a standard stream.
struct solve_request {
    std::string input;
    std::string setting;
    std::string output;
    std::optional<std::string> polynomials; // not written if absent
};

struct vide_request : solve_request {
    std::string y0; // "v1,v2,.."
};

struct vie1_request : solve_request {
    std::optional<std::string> y0; // "v1,v2,.." in the continuous form, absent in the discontinuous form
};

// The first three commands solve an equation or a system from the samples of the input, and write t,y, or t,y1,y2,..
// for a system, at the samples of all whole steps. All commands return the exit code. They throw bad_input, or another
// exception on other errors; then no output file has been written.

// Solves integral from 0 to t of K(t - s) y(s) ds = g(t).
int run_vie1(const vie1_request& request);

// Solves y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.
int run_vie2(const solve_request& request);

// Solves y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds with y(0) = y0.
int run_vide(const vide_request& request);

// Writes the table of the collocation settings to standard output.
int run_settings();

// Writes a text to standard output.
int print(const std::string& text);

} // namespace quenta_program
