// Which elements of A the block solvers read: none outside it, none above the block diagonal, and all others even if A
// has more than 2^31 elements. Pages that must not be read are protected, so that an access ends the test.
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

// Places A directly before or after a protected page, and protects every page that no step may read.
void expect_same_answer_with_protected_pages(const block_problem& problem, bool at_the_end, int& protected_pages) {
    const reference::block_shape shape = problem.shape();
    const std::size_t length = problem.A.size(), pages = (length + page - 1) / page + 2;
    const std::size_t first = page + (at_the_end ? (pages - 2) * page - length : 0);
    const mapped_doubles memory{pages * page};
    ASSERT_NE(memory.start, nullptr);
    std::copy(problem.A.begin(), problem.A.end(), memory.start + first);

    std::vector<bool> needed(pages);
    const std::size_t row_length = shape.N * shape.slots * shape.D * shape.D;
    for (std::size_t point = 0; point < shape.N * shape.P; ++point) {
        const std::size_t begin = first + point * row_length;
        const std::size_t end = begin + (point / shape.P + 1) * shape.slots * shape.D * shape.D;
        std::fill(needed.begin() + std::ptrdiff_t(begin / page), needed.begin() + std::ptrdiff_t((end - 1) / page + 1),
                  true);
    }
    for (std::size_t number = 0; number < pages; ++number)
        if (!needed[number]) {
            ASSERT_EQ(mprotect(memory.start + number * page, page * sizeof(double), PROT_NONE), 0);
            ++protected_pages;
        }
    ASSERT_TRUE(matches_reference(problem, call_block_solver(problem, memory.start + first), block_reference(problem)));
}

TEST(function_memory, only_blocks_on_and_below_the_diagonal_are_read) {
    random_data random{20260331};
    int protected_pages = 0, problems = 0;
    for_each_variant([&](block_kind kind, int P, int D) {
        const int n_sys = P * std::max(D, 1);
        for (const int N : {1, 2, 150 / n_sys + 1, 600 / n_sys + 1})
            for (const bool at_the_end : {false, true}) {
                expect_same_answer_with_protected_pages(random_blocks(random, kind, N, P, D), at_the_end,
                                                        protected_pages);
                ++problems;
            }
    });
    EXPECT_EQ(problems, 4 * 45 * 8);
    EXPECT_GT(protected_pages, 2 * problems) << "expected protected pages inside A";
}

// All blocks are zero except for a few entries far from each other. Each of them changes the solution, so an index that
// overflows 32 bits changes it too.
void expect_large_problem_solved(block_kind kind, int P, int D) {
    const std::size_t n_sys = std::size_t(P * std::max(D, 1));
    block_problem problem{kind, int(46500 / n_sys), P, D, {}, {}, {}, {}, {}, {}, {}};
    SCOPED_TRACE(problem.text());
    const reference::block_shape shape = problem.shape();
    ASSERT_GT(shape.matrix_length(), std::size_t(1) << 31);
    // Large pages are faster to read. If an element of every row is written, they would take too much memory.
    const bool has_diagonal = kind == block_kind::vie1 || kind == block_kind::vie1_cont;
    const mapped_doubles A{shape.matrix_length(), has_diagonal ? page_size::small : page_size::large};
    if (A.start == nullptr)
        GTEST_SKIP() << "not enough address space for A";
    const int N = problem.N, components = int(shape.D);
    if (has_diagonal)
        for (int n = 0; n < N; ++n)
            for (int i = 0; i < P; ++i)
                for (int a = 0; a < components; ++a)
                    A.start[problem.entry(n, i, a, n, i, a)] = 1.0;
    problem.b.assign(shape.N * n_sys, 1.0);
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
        const int i = P - 1, a = components - 1, j = P / 2, b = components / 2;
        A.start[problem.entry(n, i, a, k, j, b)] = weight;
        x[std::size_t((n * P + i) * components + a)] += sign * weight * x[std::size_t((k * P + j) * components + b)];
        if (problem.carries()) {
            A.start[problem.entry(n, i, a, k, P, b)] = weight;
            x[std::size_t((n * P + i) * components + a)] += sign * weight;
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

TEST(function_memory, more_than_2_31_elements_are_addressed_correctly) {
    expect_large_problem_solved(block_kind::vie1, 5, 8);
    expect_large_problem_solved(block_kind::vie2, 1, 0);
    expect_large_problem_solved(block_kind::vie1_cont, 4, 8);
    expect_large_problem_solved(block_kind::vide, 5, 7);
}

TEST(function_memory, more_than_2_31_elements_are_addressed_correctly_by_the_scalar_forms) {
    expect_large_problem_solved(block_kind::vie1, 1, 0);
    expect_large_problem_solved(block_kind::vie1_cont, 4, 0);
    expect_large_problem_solved(block_kind::vide, 5, 0);
}

} // namespace

} // namespace quenta_tests
