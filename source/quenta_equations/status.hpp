// How a call ends early: an exception that carries the status. It is thrown where the reason is found, and the export
// returns its status. `march` catches it first, so that the steps before it are kept.
#pragma once

#include "quenta_equations/quenta_equations.h"

namespace quenta {

enum class equation_status {
    solved = QUENTA_EQUATION_SOLVED,
    stopped = QUENTA_EQUATION_STOPPED,
    not_finite = QUENTA_EQUATION_NOT_FINITE,
    no_convergence = QUENTA_EQUATION_NO_CONVERGENCE,
    singular_step = QUENTA_EQUATION_SINGULAR_STEP,
    tolerance_missed = QUENTA_EQUATION_TOLERANCE_MISSED,
    out_of_memory = QUENTA_EQUATION_OUT_OF_MEMORY,
    null_pointer = QUENTA_EQUATION_NULL_POINTER,
    bad_dimension = QUENTA_EQUATION_BAD_DIMENSION,
    bad_steps = QUENTA_EQUATION_BAD_STEPS,
    bad_mesh = QUENTA_EQUATION_BAD_MESH,
    bad_end = QUENTA_EQUATION_BAD_END,
    bad_nodes = QUENTA_EQUATION_BAD_NODES,
    unstable_nodes = QUENTA_EQUATION_UNSTABLE_NODES,
    bad_singularity = QUENTA_EQUATION_BAD_SINGULARITY,
    bad_tolerance = QUENTA_EQUATION_BAD_TOLERANCE,
    no_term = QUENTA_EQUATION_NO_TERM,
    columns_need_phi = QUENTA_EQUATION_COLUMNS_NEED_PHI,
    wrong_kind = QUENTA_EQUATION_WRONG_KIND,
    bad_time = QUENTA_EQUATION_BAD_TIME,
    bad_start = QUENTA_EQUATION_BAD_START,
    bad_count = QUENTA_EQUATION_BAD_COUNT,
    bad_blocks = QUENTA_EQUATION_BAD_BLOCKS,
    bad_push = QUENTA_EQUATION_BAD_PUSH,
    no_step_left = QUENTA_EQUATION_NO_STEP_LEFT,
    bad_delay = QUENTA_EQUATION_BAD_DELAY,
    steps_above_delay = QUENTA_EQUATION_STEPS_ABOVE_DELAY,
};

struct solve_ended {
    equation_status status;
};

} // namespace quenta
