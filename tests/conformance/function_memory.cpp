// What the block solvers read of A: nothing outside it, nothing of the steps above the diagonal, and all the rest even
// where A has more than 2^31 elements. Pages that must not be touched cannot be.
#include "conformance/function_call.hpp"
#include "support/mapped_doubles.hpp"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace quenta_tests {

namespace {

const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE)) / sizeof(double); // in doubles

// Puts the problem's A in front of, or behind, a forbidden page, and forbids every page that no step may read.
void expect_same_answer_with_forbidden_pages(const block_problem& problem, bool at_the_end, int& forbidden) {
    const reference::block_shape shape = problem.shape();
    const std::size_t length = problem.A.size(), pages = (length + page - 1) / page + 2;
    const std::size_t first = page + (at_the_end ? (pages - 2) * page - length : 0);
    const mapped_doubles memory{pages * page};
    ASSERT_NE(memory.start, nullptr);
    std::copy(problem.A.begin(), problem.A.end(), memory.start + first);

    std::vector<bool> needed(pages);
    const std::size_t row = shape.N * shape.slots * shape.D * shape.D;
    for (std::size_t R = 0; R < shape.N * shape.P; ++R) {
        const std::size_t begin = first + R * row;
        const std::size_t end = begin + (R / shape.P + 1) * shape.slots * shape.D * shape.D;
        std::fill(needed.begin() + std::ptrdiff_t(begin / page), needed.begin() + std::ptrdiff_t((end - 1) / page + 1),
                  true);
    }
    for (std::size_t number = 0; number < pages; ++number)
        if (!needed[number]) {
            ASSERT_EQ(mprotect(memory.start + number * page, page * sizeof(double), PROT_NONE), 0);
            ++forbidden;
        }
    ASSERT_TRUE(answers_as_the_twin(problem, call_block_solver(problem, memory.start + first), block_twin(problem)));
}

TEST(function_memory, nothing_outside_the_blocks_up_to_the_diagonal_is_read) {
    random_data random{20260331};
    int forbidden = 0, problems = 0;
    for_each_variant([&](block_kind kind, int P, int D) {
        const int M = P * std::max(D, 1);
        for (const int N : {1, 2, 150 / M + 1, 600 / M + 1})
            for (const bool at_the_end : {false, true}) {
                expect_same_answer_with_forbidden_pages(random_blocks(random, kind, N, P, D), at_the_end, forbidden);
                ++problems;
            }
    });
    EXPECT_EQ(problems, 4 * 45 * 8);
    EXPECT_GT(forbidden, 2 * problems) << "no page inside A was forbidden";
}

// Zero blocks but for a few entries far away from each other, each of which changes the solution: an index that does
// not fit 32 bits would find another.
void expect_large_problem_solved(block_kind kind, int P, int D) {
    const std::size_t M = std::size_t(P * std::max(D, 1));
    block_problem problem{kind, int(46500 / M), P, D, {}, {}, {}, {}, {}, {}, {}};
    SCOPED_TRACE(problem.text());
    const reference::block_shape shape = problem.shape();
    ASSERT_GT(shape.matrix_length(), std::size_t(1) << 31);
    // Large pages are read sooner; where every row has an element that is written, they would take memory.
    const bool has_diagonal = kind == block_kind::vie1 || kind == block_kind::vie1_cont;
    const mapped_doubles A{shape.matrix_length(), has_diagonal ? page_size::small : page_size::large};
    if (A.start == nullptr)
        GTEST_SKIP() << "no address space for A";
    const int N = problem.N, components = int(shape.D);
    if (has_diagonal)
        for (int n = 0; n < N; ++n)
            for (int i = 0; i < P; ++i)
                for (int r = 0; r < components; ++r)
                    A.start[problem.entry(n, i, r, n, i, r)] = 1.0;
    problem.b.assign(shape.N * M, 1.0);
    problem.w.assign(shape.P, 0.0);
    problem.E.assign(shape.P * shape.P, 0.0);
    problem.h.assign(shape.N, 1.0);
    problem.y0.assign(shape.D, 1.0);
    problem.rho = 1.0;
    if (kind == block_kind::vide)
        problem.C.assign(shape.N * shape.P * shape.D * shape.D, 0.0);

    std::vector<double> x = problem.b, y(problem.carries() ? (shape.N + 1) * shape.D : 0, 1.0);
    const double sign = has_diagonal ? -1.0 : 1.0;
    const auto couple = [&](int n, int k, double weight) {
        const int i = P - 1, r = components - 1, j = P / 2, c = components / 2;
        A.start[problem.entry(n, i, r, k, j, c)] = weight;
        x[std::size_t((n * P + i) * components + r)] += sign * weight * x[std::size_t((k * P + j) * components + c)];
        if (problem.carries()) {
            A.start[problem.entry(n, i, r, k, P, c)] = weight;
            x[std::size_t((n * P + i) * components + r)] += sign * weight;
        }
    };
    couple(N / 2, N / 4, 2.0);
    couple(N - 2, 0, 3.0);
    couple(N - 2, N - 3, 5.0);
    couple(N - 1, N / 2, 7.0);
    couple(N - 1, N - 2, 11.0);

    const block_answer answer = call_block_solver(problem, A.start);
    ASSERT_EQ(answer.status, QUENTA_SOLVED);
    EXPECT_TRUE(equal_bits(x, answer.x.values()));
    EXPECT_TRUE(equal_bits(y, answer.y.values()));
}

TEST(function_memory, more_than_2_31_elements) {
    expect_large_problem_solved(block_kind::vie1, 5, 8);
    expect_large_problem_solved(block_kind::vie2, 1, 0);
    expect_large_problem_solved(block_kind::vie1_cont, 4, 8);
    expect_large_problem_solved(block_kind::vide, 5, 7);
}

TEST(function_memory, more_than_2_31_elements_in_scalar_solvers) {
    expect_large_problem_solved(block_kind::vie1, 1, 0);
    expect_large_problem_solved(block_kind::vie1_cont, 4, 0);
    expect_large_problem_solved(block_kind::vide, 5, 0);
}

} // namespace

} // namespace quenta_tests
