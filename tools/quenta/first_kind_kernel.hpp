// Checks that K(0) of a first-kind equation is not 0, nor small relative to K within the first step.
#pragma once

#include "equation_samples.hpp"
#include "settings_table.hpp"

#include <optional>
#include <string>

namespace quenta_program {

// K(0) is 0, or so small that errors grow from step to step: the solution is then in effect a second derivative of g,
// and the schemes are stable for first derivatives.
struct kernel_fault {
    std::string start;  // what is wrong with K(0)
    std::string effect; // how errors grow
    std::string cure;
};

// Returns nothing if K(0) is regular and large enough, or if samples of the first step are not finite. Call
// quenta_rt_init first.
std::optional<kernel_fault> fault_of_kernel(const equation_samples& equation, const setting& chosen);

} // namespace quenta_program
