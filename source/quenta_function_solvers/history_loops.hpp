// The loops over the history of a block solver, for an instruction set.
#pragma once

#include "quenta_function_solvers/history_sums.hpp"

#include <utility>

namespace quenta {

template <class set>
struct history_loops {
    // Eight lanes pay where squares of eight columns can be read.
    template <int D>
    static constexpr int width_for = D == 1 || set::width < 4 ? set::width : 4;

    // Several sums read the same cache lines: all of them take a tile of the slots before any takes the next.
    static constexpr std::int64_t doubles_in_a_tile = 2048;

    template <class history, int D>
    static void add_history(double* sums, int count, const known_steps& known) {
        constexpr int width = width_for<D>;
        constexpr int together = D == 1 ? sums_together : width;
        const double* rows[most_sums];
        int q = 0;
        for (const double* point = known.blocks; q < count; point += known.row)
            for (int r = 0; r < D; ++r)
                rows[q++] = point + r * D;
        for (; q % together != 0; ++q) // registers that are not full repeat the last row
            rows[q] = rows[q - 1];

        if constexpr (D == 1 && history::has_carried_value) {
            // The few rows of one step: a sum waits for its last addition all the time, and lanes would change nothing.
            add_to_rows<history, 1>(sums, count, rows, known);
        } else if constexpr (D == 1) {
            for (q = 0; q < count; q += together)
                add_steps<history, D, width, together / width>(sums + q, rows + q, known);
        } else {
            const std::int64_t doubles_in_a_step = std::int64_t(count) * D * known.points;
            std::int64_t steps = doubles_in_a_tile / doubles_in_a_step;
            if (steps < 1)
                steps = 1;
            known_steps tile = known;
            for (; tile.first < known.end; tile.first = tile.end) {
                tile.end = known.end - tile.first < steps ? known.end : tile.first + steps;
                for (q = 0; q < count; q += together)
                    add_steps<history, D, width, 1>(sums + q, rows + q, tile);
            }
        }
    }

    template <class history, int count_here>
    static void add_to_rows(double* sums, int count, const double* const* rows, const known_steps& known) {
        if constexpr (count_here <= most_points) {
            if (count == count_here)
                add_steps<history, 1, 1, count_here>(sums, rows, known);
            else
                add_to_rows<history, count_here + 1>(sums, count, rows, known);
        }
    }

    template <template <form> class history>
    static constexpr history_kernels::of_kind all_forms() {
        return []<int... D>(std::integer_sequence<int, D...>) {
            return history_kernels::of_kind{add_history<history<form::scalar>, 1>,
                                            add_history<history<form::vector>, 1 + D>...};
        }
        (std::make_integer_sequence<int, most_dimensions>{});
    }
};

} // namespace quenta
