// Which collocation settings first-kind equations can be solved under, and where errors grow: found out by trying.
#pragma once

#include "settings_table.hpp"

namespace quenta_program {

enum class first_kind_verdict {
    solvable,
    refused,      // the library does not offer the setting for first-kind equations
    singular,     // a node's equation holds no unknown
    without_basis // a node occurs twice, so that nothing finite comes out
};

struct first_kind_trial {
    first_kind_verdict verdict;
    double growth; // of an error from one step to the next, if solvable

    // A trial cannot tell a factor of 1 from errors that add up evenly over the steps, which lie below this; the
    // growing settings of the table lie above 1.6.
    bool grows() const { return growth > 1.1; }
};

// Solves the integral of y over 0 .. t = g with a g that is zero but for the first step, and looks at what becomes of
// that step's values: every error meets the same fate. Needs the library to be started.
first_kind_trial try_first_kind(const setting& chosen, bool continuous);

// Throws bad_input with settings that do work if the setting does not.
void require_first_kind(const setting& chosen, bool continuous);

// Warns if errors grow under the setting.
void warn_of_growth(const setting& chosen, bool continuous);

} // namespace quenta_program
