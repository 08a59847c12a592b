// The exports of the history: known_kernel_history as an object, with checks and statuses.
#include "quenta_equations/quenta_equations.h"

#include "quenta_equations/export_checks.hpp"
#include "quenta_equations/status.hpp"
#include "toeplitz_history/known_kernel_history.hpp"

#include <algorithm>
#include <cstdint>
#include <vector>

using namespace quenta;

struct quenta_history : known_kernel_history {
    using known_kernel_history::known_kernel_history;
};

namespace {

constexpr int most_rows = 10'000; // and columns, so that the number of elements of a block fits an int

void check_sizes(int rows, int columns, int steps) {
    check(std::min(rows, columns) >= 1 && std::max(rows, columns) <= most_rows, equation_status::bad_dimension);
    check_steps(steps);
}

void check_step_left(const quenta_history& history) {
    check(history.steps_done() < history.steps(), equation_status::no_step_left);
}

} // namespace

int quenta_history_from_blocks(int rows, int columns, int steps, const double* blocks, quenta_history** history) {
    return status_of([&] {
        check_pointers(history);
        check_sizes(rows, columns, steps);
        const std::int64_t count = (steps - 1) * (std::int64_t{rows} * columns);
        check(count == 0 || blocks != nullptr, equation_status::null_pointer);
        check(are_finite(blocks, count), equation_status::bad_blocks);
        *history = new quenta_history(steps, rows, columns, blocks);
    });
}

int quenta_history_from_function(int rows, int columns, int steps, quenta_block_function function, void* context,
                                 quenta_history** history) {
    return status_of([&] {
        check_pointers(function, history);
        check_sizes(rows, columns, steps);
        const std::int64_t block = std::int64_t{rows} * columns;
        std::vector<double> blocks((steps - 1) * block);
        for (int lag = 1; lag < steps; ++lag) {
            double* const of_lag = blocks.data() + (lag - 1) * block;
            check(function(context, lag, of_lag) == 0, equation_status::stopped);
            check(are_finite(of_lag, block), equation_status::not_finite);
        }
        *history = new quenta_history(steps, rows, columns, blocks.data());
    });
}

void quenta_history_destroy(quenta_history* history) {
    delete history;
}

int quenta_history_steps_done(const quenta_history* history) {
    return history == nullptr ? 0 : static_cast<int>(history->steps_done());
}

int quenta_history_sum(const quenta_history* history, double* sum) {
    return status_of([&] {
        check_pointers(history, sum);
        check_step_left(*history);
        check(are_finite(history->sum(), history->rows()), equation_status::not_finite);
        std::copy_n(history->sum(), history->rows(), sum);
    });
}

int quenta_history_push(quenta_history* history, const double* x) {
    return status_of([&] {
        check_pointers(history, x);
        check_step_left(*history);
        check(are_finite(x, history->columns()), equation_status::bad_push);
        history->push(x);
    });
}
