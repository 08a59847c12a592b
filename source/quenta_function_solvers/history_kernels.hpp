// The loops over the history of a block solver, once for each instruction set.
//
// Reading the blocks is all the work, and the order of the additions to a sum is fixed, so that many sums have to
// advance together through the same columns.
#pragma once

#include <array>
#include <cstdint>

namespace quenta {

inline constexpr int max_points = 5;
inline constexpr int max_dimension = 8;

// The steps whose contributions are added, and their arrays. Each row point has a row of slots, with the same number of
// slots for every step. A slot is a D by D matrix, row-major. The points come first, then the carried value if there is
// one.
struct known_steps {
    const double* blocks; // slot 0 of step 0, for the first row point of the sums
    std::int64_t row;     // doubles from one row point to the next
    std::int64_t first, end;
    int points;      // per step
    const double* x; // D values for every point
    const double* y; // carried values, D for every step; may be null
    const double* h; // step lengths; may be null
};

// Adds the history of component a of row point i to sums[i*D + a], for the first `count` of these. `sums` has room for
// `max_sums`; the elements from `count` on are scratch.
using add_history_function = void (*)(double* sums, int count, const known_steps& known);

// A solver passes the rows of several small steps, up to this number, or those of one large step.
inline constexpr int sums_together = 16;
inline constexpr int max_sums = max_points * max_dimension + sums_together;

struct history_kernels {
    template <class instruction_set>
    static const history_kernels& of();

    // Number 0 is the scalar form, number D the vector form.
    using of_kind = std::array<add_history_function, 1 + max_dimension>;

    const char* name;
    of_kind first_kind, continuous_first_kind, second_kind, integro_differential;
};

} // namespace quenta
