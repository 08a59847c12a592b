// Whether the forcing of a first-kind equation starts at 0, as the integral does.
#pragma once

#include "equation_samples.hpp"
#include "settings_table.hpp"

#include <optional>
#include <string>
#include <vector>

namespace quenta_program {

// If g(0) is not 0, and the solution y starts with a spike that shows, what is wrong and the cure.
std::optional<std::string> fault_of_forcing(const equation_samples& posed, const setting& chosen,
                                            const std::vector<double>& y);

} // namespace quenta_program
