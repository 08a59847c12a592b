// Every array of a call of the library of equations, of the caller and of the library, lies next to pages that cannot
// be accessed. The functions of the equations read all points that they get, and write all values.
#include "equations/polynomial_equation.hpp"
#include "equations/random_history.hpp"
#include "support/bits.hpp"
#include "support/guarded_blocks.hpp"

#include <csignal>

namespace quenta_tests {

namespace {

class equation_guard_pages : public testing::TestWithParam<place> {
protected:
#if defined(__clang__)
    equation_guard_pages() {
        arrays_end_at_the_page = false;
    } // it copies objects in aligned parts of 16 bytes
#endif
};

INSTANTIATE_TEST_SUITE_P(arrays, equation_guard_pages, testing::Values(place::before_the_page, place::after_the_page),
                         [](const auto& instance) {
                             return instance.param == place::before_the_page ? "before_the_page" : "after_the_page";
                         });

// All calls that read or write an array, for one equation; the arrays of the results, one after another.
std::vector<double> results_of_all_calls(random_data random, const equation_shape& shape, int P) {
    const polynomial_equation equation{random, shape};
    const std::vector<double> guess = random.uniform(std::size_t(shape.D));
    EXPECT_EQ(quenta_equation_set_first_guess(equation.get(), guess.data()), 0);
    fenced_array nodes{std::size_t(P)};
    EXPECT_EQ(quenta_equation_nodes(QUENTA_RADAU, P, nodes.data()), 0);
    const std::vector<double> mesh{0.0, 0.1, 0.3, 0.4, 0.6, 1.0};

    int status[3];
    quenta_solution* solutions[3] = {};
    status[0] = quenta_equation_solve(equation.get(), 1.0, 23, nodes.data(), P, &solutions[0]);
    status[1] = quenta_equation_solve_on_mesh(equation.get(), mesh.data(), 5, nodes.data(), P, &solutions[1]);
    status[2] = quenta_equation_solve_to_tolerance(equation.get(), 1.0, 1e-2, 1e-2, 64, nodes.data(), P, &solutions[2]);
    std::vector<double> all;
    for (int k = 0; k < 3; ++k) {
        const owned_solution solution{solutions[k]};
        EXPECT_TRUE(status[k] == QUENTA_EQUATION_SOLVED || status[k] == QUENTA_EQUATION_TOLERANCE_MISSED) << status[k];
        const std::vector<double> numbers = everything_in(solution.get());
        all.insert(all.end(), numbers.begin(), numbers.end());
        if (shape.kind != '2')
            continue;
        const std::vector<double> t{0.0, 0.3, 0.99, 1.0};
        fenced_array y{std::size_t(4 * shape.D)};
        EXPECT_EQ(quenta_solution_iterate(solution.get(), equation.get(), 4, t.data(), y.data()), 0);
        all.insert(all.end(), y.values().begin(), y.values().end());
    }
    return all;
}

TEST_P(equation_guard_pages, stop_a_write_outside_the_values_of_a_function) {
    const auto too_many = [](void*, int count, const double*, const double*, double* values) {
        values[GetParam() == place::before_the_page ? count : -1] = 1.0;
        return 0;
    };
    quenta_equation* equation = nullptr;
    quenta_solution* solution = nullptr;
    ASSERT_EQ(quenta_equation_second_kind(1, too_many, nullptr, &equation), 0);
    EXPECT_EXIT(
        {
            const blocks_guarded scope{GetParam()};
            quenta_equation_solve(equation, 1.0, 4, nullptr, 0, &solution);
        },
        testing::KilledBySignal(SIGSEGV), "");
    quenta_equation_destroy(equation);
}

TEST_P(equation_guard_pages, are_not_accessed) {
    int solved = 0;
    const auto guarded = [](const equation_shape& shape, int P) {
        const blocks_guarded scope{GetParam()};
        return results_of_all_calls(random_data{20267}, shape, P);
    };
    for (const equation_shape& shape : every_shape())
        for (const int P : {1, 2, 5}) {
            SCOPED_TRACE(testing::PrintToString(shape) + ", P = " + std::to_string(P));
            EXPECT_TRUE(equal_bits(results_of_all_calls(random_data{20267}, shape, P), guarded(shape, P)));
            ++solved;
        }
    EXPECT_GT(blocks_made, 100 * solved);
}

// With transforms, with a tree, and with both.
TEST_P(equation_guard_pages, are_not_accessed_by_the_fast_sums) {
    const auto solve = [](int D, int E, double alpha, int steps) {
        random_data random{20274};
        const term_shape lag{E, true, E != D, false, alpha};
        const polynomial_equation equation{random, {'2', D, false, false, {lag}}, 0.3};
        const std::vector<double> nodes{0.3, 0.7};
        int status = -1;
        const owned_solution solution = equation.solve(1.0, steps, nodes, status);
        EXPECT_EQ(status, QUENTA_EQUATION_SOLVED);
        return everything_in(solution.get());
    };
    const auto guarded = [&](int D, int E, double alpha, int steps) {
        const blocks_guarded scope{GetParam()};
        return solve(D, E, alpha, steps);
    };
    for (const auto& [D, E] : {std::pair{1, 1}, {2, 3}})
        for (const auto& [alpha, steps] : {std::pair{0.0, 300}, {0.5, 301}, {0.5, 733}})
            EXPECT_TRUE(equal_bits(solve(D, E, alpha, steps), guarded(D, E, alpha, steps)));
}

TEST_P(equation_guard_pages, are_not_accessed_by_histories) {
    const auto sums = [](const int rows, const int columns, const int steps) {
        random_data random{20273};
        const random_history data{random, rows, columns, steps};
        const owned_history history = data.create();
        std::vector<double> all;
        for (int n = 0; n < steps; ++n) {
            fenced_array sum{std::size_t(rows)};
            EXPECT_EQ(quenta_history_sum(history.get(), sum.data()), QUENTA_EQUATION_SOLVED);
            all.insert(all.end(), sum.values().begin(), sum.values().end());
            const std::vector<double> x(data.value(n), data.value(n) + columns);
            EXPECT_EQ(quenta_history_push(history.get(), x.data()), QUENTA_EQUATION_SOLVED);
        }
        return all;
    };
    const auto guarded = [&](int rows, int columns, int steps) {
        const blocks_guarded scope{GetParam()};
        return sums(rows, columns, steps);
    };
    for (const auto& [rows, columns] : {std::pair{1, 1}, {1, 2}, {3, 1}, {5, 7}})
        for (const int steps : {1, 2, 40, 130})
            EXPECT_TRUE(equal_bits(sums(rows, columns, steps), guarded(rows, columns, steps)))
                << rows << " rows, " << columns << " columns, " << steps << " steps";
}

} // namespace

} // namespace quenta_tests
