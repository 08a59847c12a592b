// What the library of equations allocates, when, and what happens if an allocation fails. This program counts all
// allocations, and makes them fail on demand.
#include "equations/polynomial_equation.hpp"
#include "equations/random_history.hpp"
#include "support/bits.hpp"
#include "support/fenced_array.hpp"
#include "support/replaced_new.hpp"

#include <array>
#include <memory>
#include <new>

namespace {

thread_local bool counts = false;
thread_local long allocations = 0, fails_at = -1; // the number of the allocation that fails
long live_blocks = 0;
std::size_t live_bytes = 0, peak_bytes = 0;

} // namespace

void* quenta_tests::allocate_block(std::size_t bytes, std::size_t alignment) {
    if (counts && allocations++ == fails_at)
        throw std::bad_alloc{};
    void* const block = heap_block(bytes, alignment);
    ++live_blocks;
    live_bytes += size_of_heap_block(block);
    peak_bytes = std::max(peak_bytes, live_bytes);
    return block;
}

void quenta_tests::release_block(void* block) noexcept {
    if (block == nullptr)
        return;
    --live_blocks;
    live_bytes -= size_of_heap_block(block);
    release_heap_block(block);
}

namespace quenta_tests {

namespace {

// The status of a call whose allocation with this number fails; with -1 none does.
template <class action>
int status_with_failure(long number, const action& call) {
    allocations = 0;
    fails_at = number;
    counts = true;
    const int status = call();
    counts = false;
    return status;
}

// Each call is repeated, and each of its allocations fails once. `call` may write to an object, which `discard`
// releases and which `untouched` inspects.
template <class action, class inspection, class removal>
void expect_out_of_memory(const action& call, const inspection& untouched, const removal& discard) {
    ASSERT_EQ(status_with_failure(-1, call), QUENTA_EQUATION_SOLVED);
    discard();
    const long made = allocations;
    ASSERT_GT(made, 0);
    for (long number = 0; number < made; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number) + " of " + std::to_string(made));
        const long before = live_blocks;
        const int status = status_with_failure(number, call);
        EXPECT_EQ(live_blocks, before);
        EXPECT_EQ(status, QUENTA_EQUATION_OUT_OF_MEMORY);
        EXPECT_TRUE(untouched());
    }
    EXPECT_EQ(status_with_failure(-1, call), QUENTA_EQUATION_SOLVED);
    discard();
}

template <class object>
struct output {
    object* const mark = reinterpret_cast<object*>(this);
    object* made = mark;

    bool untouched() const { return made == mark; }
    void discard() {
        release{}(made);
        made = mark;
    }
};

template <class object, class action>
void expect_out_of_memory(output<object>& into, const action& call) {
    expect_out_of_memory(
        call, [&] { return into.untouched(); }, [&] { into.discard(); });
}

int zero(void*, int count, const double*, const double*, double* values) {
    std::fill_n(values, count, 0.0);
    return 0;
}

TEST(failing_allocation, in_the_creation_of_an_equation_writes_nothing) {
    output<quenta_equation> created;
    expect_out_of_memory(created, [&] { return quenta_equation_second_kind(1, zero, nullptr, &created.made); });
    expect_out_of_memory(created, [&] { return quenta_equation_first_kind(3, zero, nullptr, &created.made); });
    const std::array<double, 2> y0{};
    expect_out_of_memory(
        created, [&] { return quenta_equation_integro_differential(2, zero, nullptr, y0.data(), &created.made); });
}

TEST(failing_allocation, of_a_new_term_leaves_the_equation_as_it_was) {
    random_data random{2026};
    for (const auto add : {quenta_equation_add_memory, quenta_equation_add_lag_memory}) {
        const polynomial_equation equation{random, {'2', 1, false, false, {{1, true, false, false}}}};
        int before = 0, after = 0;
        const std::vector<double> expected = everything_in(equation.solve(1.0, 4, {}, before).get());
        EXPECT_EQ(status_with_failure(0, [&] { return add(equation.get(), 1, 0.0, zero, nullptr); }),
                  QUENTA_EQUATION_OUT_OF_MEMORY);
        EXPECT_TRUE(equal_bits(expected, everything_in(equation.solve(1.0, 4, {}, after).get())));
        EXPECT_EQ(add(equation.get(), 1, 0.0, zero, nullptr), QUENTA_EQUATION_SOLVED);
    }
}

TEST(failing_allocation, in_a_solve_writes_nothing_and_the_next_solve_works) {
    random_data random{2027};
    const double mesh[] = {0.0, 0.1, 0.3, 0.4, 1.0};
    const std::vector<equation_shape> shapes = every_shape();
    for (std::size_t k = 0; k < shapes.size(); k += 5) { // each kind, and each form of the memory
        const equation_shape& shape = shapes[k];
        SCOPED_TRACE(testing::PrintToString(shape));
        const polynomial_equation equation{random, shape};
        output<quenta_solution> solved;
        expect_out_of_memory(solved,
                             [&] { return quenta_equation_solve(equation.get(), 1.0, 4, nullptr, 0, &solved.made); });
        expect_out_of_memory(
            solved, [&] { return quenta_equation_solve_on_mesh(equation.get(), mesh, 4, nullptr, 2, &solved.made); });
        if (shape.D > 1)
            continue; // to a tolerance the solves take longer
        expect_out_of_memory(solved, [&] {
            return quenta_equation_solve_to_tolerance(equation.get(), 1.0, 5e-2, 5e-2, 64, nullptr, 3, &solved.made);
        });
    }
}

std::unique_ptr<quenta_equation, void (*)(quenta_equation*)> equation_with_delays() {
    const auto function = [](void*, int count, const double* t, const double*, double* values) {
        std::copy_n(t, count, values);
        return at_each_call ? at_each_call() : 0;
    };
    quenta_equation* equation = nullptr;
    EXPECT_EQ(quenta_equation_second_kind(1, function, nullptr, &equation), QUENTA_EQUATION_SOLVED);
    for (const double delay : {0.3, 0.4})
        EXPECT_EQ(quenta_equation_add_delay(equation, 1, delay, function, nullptr), QUENTA_EQUATION_SOLVED);
    EXPECT_EQ(quenta_equation_set_phi(equation, function, nullptr, nullptr), QUENTA_EQUATION_SOLVED);
    EXPECT_EQ(quenta_equation_set_past(equation, function, nullptr), QUENTA_EQUATION_SOLVED);
    EXPECT_EQ(quenta_equation_add_memory(equation, 1, 0.5, function, nullptr), QUENTA_EQUATION_SOLVED);
    return {equation, quenta_equation_destroy};
}

TEST(failing_allocation, with_delay_terms_writes_nothing) {
    const auto equation = equation_with_delays();
    EXPECT_EQ(status_with_failure(0, [&] { return quenta_equation_add_delay(equation.get(), 1, 1.0, zero, nullptr); }),
              QUENTA_EQUATION_OUT_OF_MEMORY);
    output<quenta_solution> solved;
    expect_out_of_memory(solved,
                         [&] { return quenta_equation_solve(equation.get(), 1.0, 9, nullptr, 0, &solved.made); });
    expect_out_of_memory(solved, [&] {
        return quenta_equation_solve_to_tolerance(equation.get(), 1.0, 0.1, 0.1, 128, nullptr, 3, &solved.made);
    });
    ASSERT_EQ(quenta_equation_solve(equation.get(), 1.0, 9, nullptr, 0, &solved.made), QUENTA_EQUATION_SOLVED);
    const double t = 0.9;
    fenced_array y{1};
    const fenced_array unwritten = y;
    expect_out_of_memory([&] { return quenta_solution_iterate(solved.made, equation.get(), 1, &t, y.data()); },
                         [&] { return y.untouched(); }, [&] { y = unwritten; });
    solved.discard();
}

TEST(failing_allocation, in_the_fast_sums_for_kernels_of_the_lag_writes_nothing) {
    random_data random{2031};
    // On the mesh for a singularity of 1/2, 275 of 733 steps are equal.
    for (const int steps : {300, 733}) {
        const double alpha = steps == 733 ? 0.5 : 0.0;
        const term_shape lag{1, true, alpha == 0.0, false, alpha}, other{1, false, false, false};
        const polynomial_equation equation{random, {'2', 1, false, false, {lag, other}}};
        output<quenta_solution> solved;
        expect_out_of_memory(
            solved, [&] { return quenta_equation_solve(equation.get(), 1.0, steps, nullptr, 2, &solved.made); });
    }
}

TEST(failing_allocation, in_an_iterated_solution_writes_nothing) {
    random_data random{2028};
    int compared = 0;
    for (const equation_shape& shape : every_shape()) {
        if (shape.kind != '2')
            continue;
        SCOPED_TRACE(testing::PrintToString(shape));
        const polynomial_equation equation{random, shape};
        int status = -1;
        const owned_solution solution = equation.solve(1.0, 4, {}, status);
        ASSERT_EQ(status, QUENTA_EQUATION_SOLVED);
        const double t[] = {0.0, 0.3, 1.0};
        fenced_array y{std::size_t(3 * shape.D)};
        const fenced_array unwritten = y;
        expect_out_of_memory([&] { return quenta_solution_iterate(solution.get(), equation.get(), 3, t, y.data()); },
                             [&] { return y.untouched(); }, [&] { y = unwritten; });
        ++compared;
    }
    EXPECT_EQ(compared, 12);
}

TEST(failing_allocation, in_the_creation_of_a_history_writes_nothing) {
    random_data random{2031};
    const random_history data{random, 2, 3, 200};
    const auto no_entry = [](void*, int, double*) {
        return 0;
    };
    quenta_history* const mark = reinterpret_cast<quenta_history*>(&random);
    quenta_history* created = mark;
    const auto untouched = [&] {
        return created == mark;
    };
    const auto discard = [&] {
        quenta_history_destroy(created);
        created = mark;
    };
    expect_out_of_memory([&] { return quenta_history_from_blocks(2, 3, 200, data.blocks.data(), &created); }, untouched,
                         discard);
    expect_out_of_memory([&] { return quenta_history_from_function(2, 3, 200, no_entry, nullptr, &created); },
                         untouched, discard);
    // The largest sizes are valid. The first allocation is that of the blocks.
    EXPECT_EQ(
        status_with_failure(
            0, [&] { return quenta_history_from_function(10'000, 10'000, 100'000'000, no_entry, nullptr, &created); }),
        QUENTA_EQUATION_OUT_OF_MEMORY);
    EXPECT_TRUE(untouched());
}

TEST(memory, of_a_history_is_allocated_at_its_creation) {
    random_data random{2032};
    for (const auto& [rows, columns] : {std::pair{1, 1}, {2, 3}, {5, 1}}) {
        const random_history data{random, rows, columns, 2100};
        SCOPED_TRACE(testing::PrintToString(data));
        const owned_history history = data.create();
        std::vector<double> sum(std::size_t(rows), 0.0);
        for (int n = 0; n < data.steps; ++n) {
            ASSERT_EQ(status_with_failure(0, [&] { return quenta_history_sum(history.get(), sum.data()); }),
                      QUENTA_EQUATION_SOLVED);
            ASSERT_EQ(allocations, 0);
            ASSERT_EQ(status_with_failure(0, [&] { return quenta_history_push(history.get(), data.value(n)); }),
                      QUENTA_EQUATION_SOLVED);
            ASSERT_EQ(allocations, 0);
        }
    }
}

TEST(memory, of_a_history_is_what_the_header_says) {
    random_data random{2033};
    double largest_share = 0.0;
    for (const auto& [rows, columns] : {std::pair{1, 1}, {1, 3}, {3, 1}, {2, 5}, {9, 9}})
        for (const int steps : {1, 2, 31, 100, 129, 192, 1000, 1025, 2049, 4097})
            for (const bool from_function : {false, true}) {
                const random_history data{random, rows, columns, steps};
                SCOPED_TRACE(testing::PrintToString(data));
                const auto no_entry = [](void*, int, double*) {
                    return 0;
                };
                quenta_history* created = nullptr;
                const std::size_t before = peak_bytes = live_bytes;
                const int status = from_function
                                       ? quenta_history_from_function(rows, columns, steps, no_entry, nullptr, &created)
                                       : quenta_history_from_blocks(rows, columns, steps, data.blocks.data(), &created);
                const owned_history history{created};
                ASSERT_EQ(status, QUENTA_EQUATION_SOLVED);
                const double per_step = 2.5 * columns * (rows + 1) + rows + columns + 1;
                double documented = steps * per_step + 64.0 * (rows + 2) * (columns + 2) + 2048.0;
                if (from_function)
                    documented += steps * (1.0 * rows * columns);
                largest_share = std::max(largest_share, double(peak_bytes - before) / (8.0 * documented));
                EXPECT_LE(largest_share, 1.0);
            }
    EXPECT_GE(largest_share, 0.8) << "the header says more than is needed";
}

// The steps need no memory: everything is allocated before the first call of a function.
TEST(memory, is_allocated_before_the_first_step) {
    random_data random{2029};
    for (const equation_shape& shape : every_shape())
        for (const int steps : {1, 7, 100}) {
            SCOPED_TRACE(testing::PrintToString(shape) + ", steps: " + std::to_string(steps));
            const polynomial_equation equation{random, shape};
            int status = -1, calls = 0;
            long at_first_call = -1, at_last_call = -1;
            at_each_call = [&] {
                at_last_call = allocations;
                if (calls++ == 0)
                    at_first_call = allocations;
                return 0;
            };
            quenta_solution* solution = nullptr;
            status = status_with_failure(
                -1, [&] { return quenta_equation_solve(equation.get(), 1.0, steps, nullptr, 0, &solution); });
            at_each_call = nullptr;
            EXPECT_EQ(status, QUENTA_EQUATION_SOLVED);
            EXPECT_GT(calls, 0);
            EXPECT_EQ(at_first_call, at_last_call);
            EXPECT_EQ(allocations, at_last_call + 1) << "expected one allocation, of the solution, after the last step";
            quenta_solution_destroy(solution);
        }
    const auto with_delays = equation_with_delays();
    long at_first_call = -1;
    at_each_call = [&] {
        at_first_call = at_first_call < 0 ? allocations : at_first_call;
        return 0;
    };
    quenta_solution* solution = nullptr;
    EXPECT_EQ(status_with_failure(
                  -1, [&] { return quenta_equation_solve(with_delays.get(), 1.0, 40, nullptr, 0, &solution); }),
              QUENTA_EQUATION_SOLVED);
    at_each_call = nullptr;
    EXPECT_EQ(allocations, at_first_call + 1);
    quenta_solution_destroy(solution);
}

TEST(memory, does_not_leak_in_a_solve_that_ends_early) {
    random_data random{2030};
    for (const equation_shape& shape : every_shape()) {
        SCOPED_TRACE(testing::PrintToString(shape));
        const polynomial_equation equation{random, shape};
        for (int last = 1; last < 40; last += 3) {
            int calls = 0, status = -1;
            at_each_call = [&] {
                return ++calls == last ? -7 : 0;
            };
            const long before = live_blocks;
            {
                const owned_solution partial = equation.solve(1.0, 9, {}, status);
                ASSERT_NE(partial, nullptr);
                EXPECT_EQ(status == QUENTA_EQUATION_STOPPED, calls >= last);
                EXPECT_LE(quenta_solution_steps(partial.get()), 9);
            }
            EXPECT_EQ(live_blocks, before);
            at_each_call = nullptr;
        }
    }
}

} // namespace

} // namespace quenta_tests
