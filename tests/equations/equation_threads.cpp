// Many threads solve at once: the same equation, and equations of their own.
#include "equations/polynomial_equation.hpp"
#include "equations/random_history.hpp"
#include "quenta_equations.hpp"
#include "support/bits.hpp"
#include "support/latch.hpp"

#include <cmath>
#include <thread>

namespace quenta_tests {

namespace {

constexpr int thread_count = 8;

// Runs act(number of the thread) on all threads at the same time.
template <class action>
void on_all_threads(const action& act) {
    latch all_ready{thread_count};
    std::vector<std::thread> threads;
    for (int number = 0; number < thread_count; ++number)
        threads.emplace_back([&, number] {
            all_ready.arrive_and_wait();
            act(number);
        });
    for (std::thread& thread : threads)
        thread.join();
}

// The first test, so that its solves are the first in the process.
TEST(threads, solve_the_same_equation_at_once_with_the_same_bits) {
    quenta_tests::random_data random{20265};
    std::deque<polynomial_equation> equations;
    for (const equation_shape& shape : every_shape())
        equations.emplace_back(random, shape);
    std::vector<std::vector<std::vector<double>>> results(thread_count);
    on_all_threads([&](int number) {
        for (const polynomial_equation& equation : equations) {
            int status = -1;
            results[std::size_t(number)].push_back(everything_in(equation.solve(1.0, 30, {}, status).get()));
            EXPECT_EQ(status, QUENTA_EQUATION_SOLVED);
        }
    });
    for (std::size_t number = 1; number < thread_count; ++number)
        for (std::size_t k = 0; k < equations.size(); ++k)
            EXPECT_TRUE(equal_bits(results[0][k], results[number][k])) << testing::PrintToString(equations[k].shape);
}

TEST(threads, have_histories_with_the_same_bits_at_once) {
    random_data random{20271};
    const random_history scalar{random, 1, 1, 1000}, matrix{random, 3, 2, 300};
    std::vector<std::vector<double>> results(thread_count);
    on_all_threads([&](int number) {
        for (const random_history* const data : {&scalar, &matrix}) {
            const std::vector<double> sums = data->sums_of(data->create().get());
            std::vector<double>& mine = results[std::size_t(number)];
            mine.insert(mine.end(), sums.begin(), sums.end());
        }
    });
    for (const std::vector<double>& result : results)
        EXPECT_TRUE(equal_bits(results[0], result));
}

TEST(threads, may_read_one_history_at_once) {
    random_data random{20272};
    const random_history data{random, 2, 3, 300};
    const owned_history shared = data.create();
    for (int n = 0; n < 100; ++n)
        ASSERT_EQ(quenta_history_push(shared.get(), data.value(n)), QUENTA_EQUATION_SOLVED);
    double expected[2];
    ASSERT_EQ(quenta_history_sum(shared.get(), expected), QUENTA_EQUATION_SOLVED);
    on_all_threads([&](int) {
        double sum[2];
        EXPECT_EQ(quenta_history_sum(shared.get(), sum), QUENTA_EQUATION_SOLVED);
        EXPECT_TRUE(equal_bits(expected, sum));
        EXPECT_EQ(quenta_history_steps_done(shared.get()), 100);
    });
}

TEST(threads, solve_and_read_while_others_are_stopped) {
    quenta_tests::random_data random{20266};
    std::deque<polynomial_equation> equations;
    for (const equation_shape& shape : every_shape())
        equations.emplace_back(random, shape);
    on_all_threads([&](int number) {
        int calls = 0;
        at_each_call = [&] {
            return number % 2 == 1 && ++calls % 7 == 0 ? 1 : 0;
        };
        for (const polynomial_equation& equation : equations) {
            int status = -1;
            const owned_solution solution = equation.solve(1.0, 20, {}, status);
            EXPECT_TRUE(status == QUENTA_EQUATION_SOLVED || (number % 2 == 1 && status == QUENTA_EQUATION_STOPPED));
            EXPECT_EQ(quenta_solution_steps(solution.get()) == 20, status == QUENTA_EQUATION_SOLVED);
        }
        at_each_call = nullptr;
    });
}

TEST(threads, share_a_const_equation_of_cpp_and_each_gets_its_own_exception) {
    static thread_local int thrown_by_this_thread;
    const quenta::equation shared =
        quenta::second_kind([](double t) {
            return t > 0.9 && thrown_by_this_thread >= 0 ? throw thrown_by_this_thread : std::exp(-t) - t * t;
        }).memory([](double t, double s) { return t * std::exp(s); });
    on_all_threads([&](int number) {
        for (int repetition = 0; repetition < 20; ++repetition) {
            thrown_by_this_thread = number;
            EXPECT_THROW(
                {
                    try {
                        shared.solve(1.0, quenta::equal_steps(20));
                    } catch (const int failure) {
                        EXPECT_EQ(failure, number);
                        throw;
                    }
                },
                int);
            thrown_by_this_thread = -1;
            EXPECT_NEAR(shared.solve(1.0, quenta::to_tolerance(1e-6))(0.5), std::exp(-0.5), 1e-6);
        }
    });
}

} // namespace

} // namespace quenta_tests
