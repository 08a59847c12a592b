// The breaking points of an equation with delay terms: the sums of delays, at which the solution may have a jump or a
// kink, because it has one at 0. They divide 0 .. t_end into pieces, and every mesh of the library contains them.
//
// Each delay passes a jump on. In an integro-differential equation it is smoother by one derivative each time, so that
// only sums of up to P + 2 delays matter to a scheme with P nodes.
//
// If all delays are multiples of the shortest one, tau, the pieces are those between the times k tau and t_end - k tau.
// Then equal numbers of steps in pieces of equal length make a mesh whose nodes, minus a delay, are nodes. On such a
// mesh the schemes have their full order at the mesh points (Brunner 2004, chapter 4).
#pragma once

#include "quenta_equations/equation.hpp"

#include <limits>
#include <vector>

namespace quenta {

// At the start, the derivative of y of this order has a jump. The order of a start without one is `no_jump`.
struct mesh_piece {
    double start, end;
    int order;
};
inline constexpr int no_jump = std::numeric_limits<int>::max();

// One piece, if no delay is shorter than t_end. Throws solve_ended if there are more than `most` pieces, or if t_end is
// longer than `most` times the shortest delay.
std::vector<mesh_piece> pieces_between_breaks(const quenta_equation& equation, double t_end, int P, int most);

} // namespace quenta
