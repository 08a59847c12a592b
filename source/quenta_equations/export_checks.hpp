// What all exports share: the checks of arguments, and the status of what is thrown.
#pragma once

#include "quenta_equations/finite.hpp"
#include "quenta_equations/status.hpp"
#include "utility/floating_point_mode.hpp"

#include <new>

namespace quenta {

inline constexpr int most_steps = 100'000'000; // of a solve or a history

inline void check(bool condition, equation_status otherwise) {
    if (!condition)
        throw solve_ended{otherwise};
}

template <class... pointers>
void check_pointers(pointers... all) {
    check(((all != nullptr) && ...), equation_status::null_pointer);
}

inline void check_steps(int steps) {
    check(steps >= 1 && steps <= most_steps, equation_status::bad_steps);
}

// Runs the body of an export, and returns the status of what it throws.
template <class body>
int status_of(const body& run) {
    const standard_floating_point_mode mode;
    try {
        run();
        return QUENTA_EQUATION_SOLVED;
    } catch (const solve_ended& end) {
        return static_cast<int>(end.status);
    } catch (const std::bad_alloc&) {
        return QUENTA_EQUATION_OUT_OF_MEMORY;
    }
}

} // namespace quenta
