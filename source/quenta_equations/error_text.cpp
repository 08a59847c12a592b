// What each status means, in a sentence.
#include "quenta_equations/quenta_equations.h"

#include <algorithm>
#include <iterator>

namespace {

struct text {
    int status;
    const char* sentence;
};

constexpr text texts[] = {
    {QUENTA_EQUATION_SOLVED, "solved"},
    {QUENTA_EQUATION_STOPPED, "a function of the caller stopped the solve"},
    {QUENTA_EQUATION_NOT_FINITE, "a function of the caller gave NaN or infinity, or a sum overflowed"},
    {QUENTA_EQUATION_NO_CONVERGENCE,
     "Newton's method did not converge in a step: the step is too long, or the solution ends there"},
    {QUENTA_EQUATION_SINGULAR_STEP, "the linear system of a step is singular to rounding"},
    {QUENTA_EQUATION_TOLERANCE_MISSED,
     "the tolerance was not reached: it needs more steps than allowed, or is below the rounding errors"},
    {QUENTA_EQUATION_OUT_OF_MEMORY, "memory ran out"},
    {QUENTA_EQUATION_NULL_POINTER, "expected a pointer that is not null"},
    {QUENTA_EQUATION_BAD_DIMENSION,
     "expected dimensions D and E from 1 to 1000, and rows and columns of a history from 1 to 10000"},
    {QUENTA_EQUATION_BAD_STEPS, "expected at least 1 step, at most 100000000, and max_steps 0 or at least 64"},
    {QUENTA_EQUATION_BAD_MESH,
     "expected a mesh that starts at 0, increases by at least 2.3e-308 from point to point, is finite, and "
     "ends at t_end if there is one"},
    {QUENTA_EQUATION_BAD_END, "expected a finite t_end above 0, such that no step is shorter than 2.3e-308"},
    {QUENTA_EQUATION_BAD_NODES, "expected 1 to 5 increasing nodes from 0 to 1, or a family that has so many nodes"},
    {QUENTA_EQUATION_UNSTABLE_NODES,
     "expected nodes with which a first-kind equation converges: all above 0, and the product of (1 - c) / c "
     "at most 1"},
    {QUENTA_EQUATION_BAD_SINGULARITY, "expected a singularity of at least 0 and below 1"},
    {QUENTA_EQUATION_BAD_TOLERANCE, "expected finite rtol and atol, at least 0 and not both 0"},
    {QUENTA_EQUATION_NO_TERM, "expected a memory term; a first-kind equation needs one that is an integral"},
    {QUENTA_EQUATION_COLUMNS_NEED_PHI,
     "expected E = D for a memory term without phi, and for a delay term without phi or weight"},
    {QUENTA_EQUATION_WRONG_KIND,
     "expected an equation of the kind that the function is for, with the dimension of the solution"},
    {QUENTA_EQUATION_BAD_TIME, "expected times from 0 to the last mesh point of the solution"},
    {QUENTA_EQUATION_BAD_START, "expected finite start values, one for each component"},
    {QUENTA_EQUATION_BAD_COUNT, "expected a count of at least 0"},
    {QUENTA_EQUATION_BAD_BLOCKS,
     "expected finite blocks of rows * columns numbers, one for each lag from 1 to steps - 1"},
    {QUENTA_EQUATION_BAD_PUSH, "expected finite numbers to push, one for each column of the history"},
    {QUENTA_EQUATION_NO_STEP_LEFT, "expected a history with a step left: all its steps are done"},
    {QUENTA_EQUATION_BAD_DELAY, "expected a finite delay above 0"},
    {QUENTA_EQUATION_STEPS_ABOVE_DELAY, "expected steps at most as long as the shortest delay; without a mesh, "
                                        "100000000 of them must be enough, or max_steps / 8 to a tolerance"},
};

} // namespace

const char* quenta_equations_error_text(int status) {
    const auto* const found =
        std::find_if(std::begin(texts), std::end(texts), [&](const text& of) { return of.status == status; });
    return found == std::end(texts) ? "unknown status" : found->sentence;
}
