// The mesh of a solve that is given a number of steps. The steps are equal unless a memory term is singular. Then the
// solution behaves like t^beta near 0, beta < 1, and the first half of the steps are graded, or more if beta is small:
//
//     t_j = T (j / J)^r for j = 0 .. J,     r = P / beta,
//
// the others are equal, of length h, and T = J h / r, so that the last graded step is about as long. The error between
// the nodes then decreases like N^-P.
//
// For smooth functions, beta = 1 - alpha in the second kind and of the derivative of integro-differential equations,
// and beta = alpha in the first kind, where alpha is the largest singularity (Brunner 2004, chapters 6 and 7).
//
// With delay terms, this is the mesh of each piece between two breaking points (breaking_points.hpp). A piece has as
// many steps as its length asks for, at least one, so that the mesh may have more steps than were asked for. beta is
// larger by the order of the derivative that has a jump at the breaking point. The time of a breaking point has
// rounding errors, so the steps after it are not arbitrarily short: x^r is replaced by ((k + (1 - k) x)^r - k^r) / (1 -
// k^r), with a small k.
//
// A mesh can be doubled: its steps are halved or, where they are graded, divided in the same way.
#pragma once

#include "quenta_equations/breaking_points.hpp"
#include "quenta_equations/equation.hpp"

#include <vector>

namespace quenta {

class default_mesh {
public:
    // For `steps` steps with P nodes, to be doubled so many times at most. Throws solve_ended if the delays are so
    // short that the mesh has more than most_steps steps.
    default_mesh(const quenta_equation& equation, double t_end, int P, int steps, int doublings, int most_steps);

    std::vector<double> doubled(int doublings) const;

    bool is_graded() const;
    // Of so many steps, those that are not graded.
    int equal_steps(int steps) const { return is_graded() ? steps - graded_steps(steps) : steps; }

private:
    struct piece {
        double start, end;
        int steps, graded;           // J
        double grading;              // r
        double offset, offset_power; // k, k^r
    };

    int graded_steps(int steps) const;
    void set_grading(piece& of, double r, int doublings) const;
    void append(const piece& of, int doublings, std::vector<double>& mesh) const;

    double beta;
    double shortest_step; // with delay terms: shorter steps after 0 cannot be told from rounding
    std::vector<piece> pieces;
};

} // namespace quenta
