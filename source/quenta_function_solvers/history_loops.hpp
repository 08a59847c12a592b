// The loops over the history of a block solver, for one instruction set.
#pragma once

#include "quenta_function_solvers/history_sums.hpp"
#include "utility/instruction_sets.hpp"

#include <utility>

namespace quenta {

template <class instruction_set>
struct history_loops {
    static constexpr int width = instruction_set::width;

    // Rows of different registers share cache lines, so all registers process a tile of slots before the next tile.
    static constexpr std::int64_t doubles_in_a_tile = 8192;

    template <class history, int D>
    static void add_history(double* sums, int count, const known_steps& known) {
        constexpr int together = D == 1 ? sums_together : width;
        const double* rows[max_sums];
        int q = 0;
        for (const double* point = known.blocks; q < count; point += known.row)
            for (int r = 0; r < D; ++r)
                rows[q++] = point + r * D;
        for (; q % together != 0; ++q) // fill the last register with copies of the last row
            rows[q] = rows[q - 1];

        if constexpr (D == 1 && history::has_carried_value) {
            // The few rows of one step: latency of the additions is the limit, so lanes would not help.
            add_to_rows<history, 1>(sums, count, rows, known);
        } else if constexpr (D == 1) {
            add_steps<history, D, width, together / width>(sums, rows, known); // count is at most `together`
        } else {
            const std::int64_t doubles_in_a_step = std::int64_t(count) * D * known.points;
            const std::int64_t steps = doubles_in_a_tile / doubles_in_a_step + 1;
            known_steps tile = known;
            for (; tile.first < known.end; tile.first = tile.end) {
                tile.end = known.end - tile.first < steps ? known.end : tile.first + steps;
                add_to_registers<history, D, width>(sums, count, rows, tile);
            }
        }
    }

    // `count` is also the number of points.
    template <class history, int constant_count>
    static void add_to_rows(double* sums, int count, const double* const* rows, const known_steps& known) {
        if constexpr (constant_count <= max_points) {
            if (count == constant_count)
                add_steps<history, 1, 1, constant_count, constant_count>(sums, rows, known);
            else
                add_to_rows<history, constant_count + 1>(sums, count, rows, known);
        }
    }

    // Two registers at a time read more streams at once, which does not pay if the loop over a step is long. The last
    // sums use a narrower register if they fit in it.
    template <class history, int D, int lanes_here, int groups = history::has_carried_value ? 1 : 2>
    static void add_to_registers(double* sums, int count, const double* const* rows, const known_steps& known) {
        constexpr int together = groups * lanes_here;
        for (; count >= together; count -= together, sums += together, rows += together)
            add_steps<history, D, lanes_here, groups>(sums, rows, known);
        if constexpr (groups > 1)
            add_to_registers<history, D, lanes_here, 1>(sums, count, rows, known);
        else if constexpr (lanes_here > 2) {
            if (count <= lanes_here / 2)
                add_to_registers<history, D, lanes_here / 2, 1>(sums, count, rows, known);
            else
                add_steps<history, D, lanes_here, 1>(sums, rows, known);
        } else if (count > 0)
            add_steps<history, D, lanes_here, 1>(sums, rows, known);
    }

    template <template <form> class history>
    static consteval history_kernels::of_kind all_forms() {
        return forms_of<history>(std::make_integer_sequence<int, max_dimension>{});
    }
    template <template <form> class history, int... D>
    static consteval history_kernels::of_kind forms_of(std::integer_sequence<int, D...>) {
        return {add_history<history<form::scalar>, 1>, add_history<history<form::vector>, 1 + D>...};
    }
};

template <class instruction_set>
const history_kernels& history_kernels::of() {
    using loops = history_loops<instruction_set>;
    static constexpr history_kernels table{instruction_set::name, loops::template all_forms<first_kind_history>(),
                                           loops::template all_forms<continuous_first_kind_history>(),
                                           loops::template all_forms<second_kind_history>(),
                                           loops::template all_forms<integro_differential_history>()};
    return table;
}

} // namespace quenta
