// The matrix K(0) of a first-kind equation, and what is relative to it.
#pragma once

#include "equation_samples.hpp"

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace quenta_program {

class kernel_start {
public:
    explicit kernel_start(const equation_samples& equation);
    ~kernel_start();

    // Whether a pivot of K(0) is 0. The other functions need a regular matrix.
    bool is_singular() const;

    // K(0)^-1 x for the D components of x.
    std::vector<double> solve(std::span<const double> x) const;

    // The spectral radius of K(0)^-1 K(t) at a sample, which does not depend on the units of the equations and
    // unknowns. Infinite if K(0)^-1 K(t) is not finite.
    double relative_size(std::size_t sample) const;

private:
    struct factors; // of Eigen, whose headers take long to compile
    const equation_samples& equation;
    std::unique_ptr<const factors> of_start;
};

} // namespace quenta_program
