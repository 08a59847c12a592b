// Solves a small first-kind equation to find out whether a setting works for it, and whether errors grow.
#pragma once

#include "settings_table.hpp"

namespace quenta_program {

enum class first_kind_verdict {
    solvable,
    refused,      // the library does not support the setting for first-kind equations
    singular,     // the node 0: its equation contains no unknown of the step
    without_basis // the node 0 in the continuous form: the node occurs twice, and the solution is not finite
};

struct first_kind_trial {
    first_kind_verdict verdict;
    double growth; // factor of errors per step, if solvable

    // Errors that grow linearly also give factors above 1, but below this limit. Settings with exponential growth have
    // factors above 1.6.
    bool grows() const { return growth > 1.1; }
};

// Solves integral from 0 to t of y(s) ds = g(t) with a g that is 0 after the first step. The solution then grows as
// errors do. Call quenta_rt_init first.
first_kind_trial try_first_kind(const setting& chosen, bool continuous);

// Throws bad_input if the setting does not work. The message names settings that do.
void require_first_kind(const setting& chosen, bool continuous);

// Warns if errors grow with the setting.
void warn_of_growth(const setting& chosen, bool continuous);

} // namespace quenta_program
