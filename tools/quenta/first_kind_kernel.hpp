// Whether the kernel of a first-kind equation is one that the scheme can solve: K(0) must not be 0, or small against
// the kernel that follows.
#pragma once

#include "equation_samples.hpp"
#include "settings_table.hpp"

#include <optional>
#include <string>

namespace quenta_program {

// K(0) is 0, or so small that errors grow from step to step. The solution is then a second derivative of g, and the
// schemes are made for first derivatives.
struct kernel_fault {
    std::string start;  // what is wrong with K(0)
    std::string effect; // what becomes of errors
    std::string cure;
};

// Nothing if all is well, or if samples of the first step are not finite. Needs the library to be started.
std::optional<kernel_fault> fault_of_kernel(const equation_samples& posed, const setting& chosen);

} // namespace quenta_program
