// The exports of the history: the online convolution of ToeplitzHistory as an object, with checks and statuses.
#include "quenta_equations/quenta_equations.h"

#include "quenta_equations/export_checks.hpp"
#include "quenta_equations/status.hpp"
#include "toeplitz_history/toeplitz_history.hpp"

#include <algorithm>
#include <cstdint>
#include <memory>

using namespace quenta;

// All blocks are in `kernel` before the first push. The steps done are `count`.
struct quenta_history : ToeplitzHistory {};

namespace {

constexpr int most_rows = 10'000; // and columns, so that the number of elements of a block fits an int

std::unique_ptr<quenta_history> new_history(int rows, int columns, int steps) {
    auto history = std::make_unique<quenta_history>();
    history->init(steps, rows, columns);
    // With a provider, the history keeps rearranged copies of the blocks that are read often. It has nothing to write.
    history->set_kernel_provider(nullptr, [](void*, std::int32_t, ToeplitzHistory&) {});
    return history;
}

void check_sizes(int rows, int columns, int steps) {
    check(std::min(rows, columns) >= 1 && std::max(rows, columns) <= most_rows, equation_status::bad_dimension);
    check_steps(steps);
}

void check_step_left(const quenta_history& history) {
    check(history.count < history.n, equation_status::no_step_left);
}

} // namespace

int quenta_history_from_blocks(int rows, int columns, int steps, const double* blocks, quenta_history** history) {
    return status_of([&] {
        check_pointers(history);
        check_sizes(rows, columns, steps);
        const std::int64_t block = std::int64_t{rows} * columns, count = (steps - 1) * block;
        check(count == 0 || blocks != nullptr, equation_status::null_pointer);
        check(are_finite(blocks, count), equation_status::bad_blocks);
        auto created = new_history(rows, columns, steps);
        std::copy_n(blocks, count, created->kernel.data() + block); // lag 0 is not part of a history
        *history = created.release();
    });
}

int quenta_history_from_function(int rows, int columns, int steps, quenta_block_function function, void* context,
                                 quenta_history** history) {
    return status_of([&] {
        check_pointers(function, history);
        check_sizes(rows, columns, steps);
        auto created = new_history(rows, columns, steps);
        for (int lag = 1; lag < steps; ++lag) {
            const view<double> block = created->kernel_block(lag);
            check(function(context, lag, block.pointer) == 0, equation_status::stopped);
            check(are_finite(block.pointer, std::int64_t{rows} * columns), equation_status::not_finite);
        }
        *history = created.release();
    });
}

void quenta_history_destroy(quenta_history* history) {
    delete history;
}

int quenta_history_steps_done(const quenta_history* history) {
    return history == nullptr ? 0 : history->count;
}

int quenta_history_sum(const quenta_history* history, double* sum) {
    return status_of([&] {
        check_pointers(history, sum);
        check_step_left(*history);
        const double* const present = history->sums.data() + std::int64_t{history->count} * history->p;
        check(are_finite(present, history->p), equation_status::not_finite);
        std::copy_n(present, history->p, sum);
    });
}

int quenta_history_push(quenta_history* history, const double* x) {
    return status_of([&] {
        check_pointers(history, x);
        check_step_left(*history);
        check(are_finite(x, history->q), equation_status::bad_push);
        const int done = history->count;
        try {
            history->push({std::uint64_t(history->q), x});
        } catch (...) { // memory ran out, and no sum has changed
            history->count = done;
            throw;
        }
    });
}
