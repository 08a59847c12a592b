// The mesh of a solve that is given a number of steps. The steps are equal unless a memory term is singular. Then the
// solution behaves like t^beta near 0, beta < 1, and the first half of the steps are graded, or more if beta is small:
//
//     t_j = T (j / J)^r for j = 0 .. J,     r = P / beta,
//
// the others are equal, of length h, and T = J h / r, so that the last graded step is about as long. The error between
// the nodes then decreases like N^-P. A mesh with twice as many steps contains all points of the mesh.
//
// For smooth functions, beta = 1 - alpha in the second kind and of the derivative of integro-differential equations,
// and beta = alpha in the first kind, where alpha is the largest singularity (Brunner 2004, chapters 6 and 7).
#pragma once

#include "quenta_equations/equation.hpp"

#include <vector>

namespace quenta {

class default_mesh {
public:
    // For up to most_steps steps with P nodes.
    default_mesh(const quenta_equation& equation, double t_end, int P, int most_steps);

    std::vector<double> of(int steps) const;

    bool is_graded() const { return grading > 1.0; }
    int equal_steps(int steps) const { return is_graded() ? steps - graded_steps(steps) : steps; }

private:
    int graded_steps(int steps) const; // J

    double t_end, beta;
    double grading = 1.0; // r
};

} // namespace quenta
