// Every array of a call, of the caller and of the library, lies next to pages that cannot be accessed: directly before
// such a page in one run, and directly after one in the other.
#include "conformance/function_call.hpp"
#include "conformance/sampled_bits.hpp"
#include "support/guarded_blocks.hpp"
#include "support/long_tests.hpp"

#include <gtest/gtest.h>

#include <csignal>

namespace quenta_tests {

namespace {

class guard_pages : public ::testing::TestWithParam<place> {
protected:
    // The result of solve for a copy of the problem. All blocks that are allocated meanwhile are guarded.
    template <class problem_type, class solver_type>
    auto guarded(const problem_type& problem, const solver_type& solve) {
        const blocks_guarded scope{GetParam()};
        const problem_type copy = problem;
        return solve(copy);
    }
    void SetUp() override { blocks_made = 0; }
};

TEST_P(guard_pages, stop_a_read_outside_an_array) {
    const auto read_outside = [](const auto& array) {
        const volatile auto* const data = array.data();
        return GetParam() == place::before_the_page ? data[array.size()] : *(data - 1);
    };
    for (const std::size_t length : {1, 2, 3, 512, 1000}) {
        EXPECT_EXIT(guarded(std::vector<double>(length), read_outside), ::testing::KilledBySignal(SIGSEGV), "");
        EXPECT_EXIT(guarded(std::vector<int>(length), read_outside), ::testing::KilledBySignal(SIGSEGV), "");
    }
}

TEST_P(guard_pages, are_not_accessed_by_the_sample_based_solvers) {
    random_data random{20260371};
    std::vector<int> dimensions{3, 9, 1, 8}; // some of them fixed at build time
    dimensions.resize(long_tests() ? 4 : 2);
    int solved = 0;
    for (const sampled_solver& solver : every_solver)
        for (const int D : solver.solves_systems ? dimensions : std::vector{1})
            for (const int steps : {1, 66})
                for_each_row(steps, [&](std::size_t row, std::size_t N) {
                    const sampled_problem problem = random_problem(random, row, D, N);
                    if (!solver.accepts(problem.row()))
                        return;
                    SCOPED_TRACE(std::string{solver.name} + ", " + problem.text());
                    const sampled_answer answer = guarded(problem, [&](const sampled_problem& copy) {
                        const reference::setting with_its_list = copy.row();
                        return solver.solve(copy.data, copy.dt, with_its_list, 1);
                    });
                    expect_equal(reference_of(solver, problem), answer, true);
                    ++solved;
                });
    const int of_systems = int(dimensions.size());
    EXPECT_EQ(solved, 2 * ((4 * of_systems + 4) * 56 - (2 * of_systems + 2) * 3));
    EXPECT_GT(blocks_made, 10 * solved);
}

TEST_P(guard_pages, are_not_accessed_by_the_block_solvers) {
    random_data random{20260372};
    int solved = 0;
    for_each_variant([&](block_kind kind, int P, int D) {
        for (const int N : {1, 2, 7, 18}) {
            const block_problem problem = random_blocks(random, kind, N, P, D);
            const block_answer answer =
                guarded(problem, [](const block_problem& copy) { return call_block_solver(copy); });
            ASSERT_TRUE(matches_reference(problem, answer, block_reference(problem)));
            ++solved;
        }
    });
    EXPECT_EQ(solved, 4 * 5 * 9 * 4);
    EXPECT_GT(blocks_made, 4 * solved);
}

TEST_P(guard_pages, are_not_accessed_by_the_list_of_settings) {
    const std::vector<int> settings = guarded(std::vector<int>(336), [](std::vector<int> room) {
        quenta_get_supported_settings(room.data());
        return room;
    });
    EXPECT_EQ(settings[335], 4);
}

INSTANTIATE_TEST_SUITE_P(arrays, guard_pages, ::testing::Values(place::before_the_page, place::after_the_page),
                         [](const auto& instance) {
                             return instance.param == place::before_the_page ? "before_the_page" : "after_the_page";
                         });

} // namespace

} // namespace quenta_tests
