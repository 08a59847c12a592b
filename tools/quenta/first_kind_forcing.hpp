// Checks that the forcing of a first-kind equation starts at 0, as the integral does.
#pragma once

#include "equation_samples.hpp"
#include "settings_table.hpp"

#include <optional>
#include <string>
#include <vector>

namespace quenta_program {

// Returns a message if g(0) is not 0, and y starts with a spike of significant height if all samples have this offset.
std::optional<std::string> fault_of_forcing(const equation_samples& equation, const setting& chosen,
                                            const std::vector<double>& y);

} // namespace quenta_program
