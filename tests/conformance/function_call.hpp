// A problem for a block solver of any kind, its call, and the answer of the reference implementation.
#pragma once

#include "quenta_native.h"
#include "reference/function_solve.hpp"
#include "support/bits.hpp"
#include "support/fenced_array.hpp"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <limits>
#include <span>
#include <string>
#include <vector>

namespace quenta_tests {

enum class block_kind { vie1, vie1_cont, vie2, vide };
inline constexpr std::array block_kinds{block_kind::vie1, block_kind::vie1_cont, block_kind::vie2, block_kind::vide};

// D = 0: the scalar form.
struct block_problem {
    block_kind kind;
    int N, P, D;
    std::vector<double> A, b, C, E, w, h, y0;
    double rho = 0.0;

    bool carries() const { return kind == block_kind::vie1_cont || kind == block_kind::vide; }
    reference::block_shape shape() const {
        const std::size_t points = std::size_t(P);
        return {std::size_t(N), points, D == 0 ? 1 : std::size_t(D), carries() ? points + 1 : points, D != 0};
    }
    std::size_t entry(int n, int i, int row, int k, int j, int column) const {
        return shape().entry(n, i, row, k, j, column);
    }
    std::string text() const {
        constexpr std::array names{"vie1", "vie1_cont", "vie2", "vide"};
        return std::string("function_solve_") + names[std::size_t(kind)] +
               (D == 0 ? ", scalar" : "_vec, D = " + std::to_string(D)) + ", P = " + std::to_string(P) +
               ", N = " + std::to_string(N);
    }
};

struct block_answer {
    int status;
    fenced_array x, y; // y is empty for the kinds that do not carry a value

    bool untouched() const { return x.untouched() && y.untouched(); }
};

// Takes A from the given address instead of from the problem.
inline int call_block_solver(const block_problem& problem, const double* A, double* x, double* y) {
    const auto& [kind, N, P, D, unused, b, C, E, w, h, y0, rho] = problem;
    switch (kind) {
    case block_kind::vie1:
        return D == 0 ? function_solve_vie1(A, b.data(), N, P, x) : function_solve_vie1_vec(A, b.data(), N, P, D, x);
    case block_kind::vie1_cont:
        return D == 0 ? function_solve_vie1_cont(A, b.data(), N, P, w.data(), rho, y0.at(0), x, y)
                      : function_solve_vie1_cont_vec(A, b.data(), N, P, D, w.data(), rho, y0.data(), x, y);
    case block_kind::vie2:
        return D == 0 ? function_solve_vie2(A, b.data(), N, P, x) : function_solve_vie2_vec(A, b.data(), N, P, D, x);
    case block_kind::vide:
        return D == 0 ? function_solve_vide(A, b.data(), C.data(), E.data(), w.data(), h.data(), y0.at(0), N, P, x, y)
                      : function_solve_vide_vec(A, b.data(), C.data(), E.data(), w.data(), h.data(), y0.data(), N, P, D,
                                                x, y);
    }
    return -1;
}

inline block_answer call_block_solver(const block_problem& problem, const double* A) {
    const reference::block_shape shape = problem.shape();
    block_answer answer{-1, fenced_array{shape.N * shape.n_sys()},
                        fenced_array{problem.carries() ? (shape.N + 1) * shape.D : 0}};
    answer.status = call_block_solver(problem, A, answer.x.data(), answer.y.data());
    return answer;
}

inline block_answer call_block_solver(const block_problem& problem) {
    return call_block_solver(problem, problem.A.data());
}

inline reference::block_solution block_reference(const block_problem& problem) {
    const auto [N, P, D, slots, vector_form] = problem.shape();
    const reference::vide_blocks vide{problem.A, problem.b, problem.C, problem.E, problem.w, problem.h, problem.y0};
    switch (problem.kind) {
    case block_kind::vie1:
        return reference::function_solve_vie1(N, P, D, vector_form, problem.A, problem.b);
    case block_kind::vie1_cont:
        return reference::function_solve_vie1_cont(N, P, D, vector_form, problem.A, problem.b, problem.w, problem.rho,
                                                   problem.y0);
    case block_kind::vie2:
        return reference::function_solve_vie2(N, P, D, vector_form, problem.A, problem.b);
    case block_kind::vide:
        return vector_form ? reference::function_solve_vide_vec(N, P, D, vide)
                           : reference::function_solve_vide(N, P, vide);
    }
    return {};
}

// The cells that the reference implementation writes are equal, the others are untouched.
inline ::testing::AssertionResult cells_match_reference(const std::vector<double>& expected,
                                                        const fenced_array& actual) {
    if (!actual.fences_hold())
        return ::testing::AssertionFailure() << "the solver wrote outside the array";
    const std::span<const double> cells = actual.values();
    if (cells.size() < expected.size())
        return ::testing::AssertionFailure() << "expected " << expected.size() << " values, got " << cells.size();
    for (std::size_t index = expected.size(); index < cells.size(); ++index)
        if (!is_marked(cells[index]))
            return ::testing::AssertionFailure() << "the solver wrote index " << index << ", past the last solved step";
    return equal_bits(expected, cells.first(expected.size()));
}

inline ::testing::AssertionResult matches_reference(const block_problem& problem, const block_answer& actual,
                                                    const reference::block_solution& expected) {
    const int status = expected.solved ? QUENTA_SOLVED : QUENTA_SINGULAR_BLOCK;
    if (actual.status != status)
        return ::testing::AssertionFailure()
               << problem.text() << ": expected status " << status << ", got " << actual.status;
    for (const auto& [name, values, cells] :
         {std::tuple{"x", &expected.x, &actual.x}, std::tuple{"y", &expected.y, &actual.y}})
        if (const ::testing::AssertionResult equal = cells_match_reference(*values, *cells); !equal)
            return ::testing::AssertionFailure() << problem.text() << ", " << name << ": " << equal.message();
    return ::testing::AssertionSuccess();
}

// The blocks are regular and the solution stays bounded. Entries of A that no solver may read are NaN.
inline block_problem random_blocks(random_data& random, block_kind kind, int N, int P, int D) {
    block_problem problem{kind, N, P, D, {}, {}, {}, {}, {}, {}, {}};
    const reference::block_shape shape = problem.shape();
    const std::size_t points = shape.N * shape.P, slots = shape.N * shape.slots, square = shape.D * shape.D;
    const double size = 2.0 / double(slots * shape.D);
    problem.A.assign(shape.matrix_length(), std::numeric_limits<double>::quiet_NaN());
    for (std::size_t point = 0; point < points; ++point)
        for (std::size_t slot = 0; slot < (point / shape.P + 1) * shape.slots; ++slot)
            for (std::size_t entry = 0; entry < square; ++entry)
                problem.A[(point * slots + slot) * square + entry] = random.uniform_value(-size, size);
    if (kind == block_kind::vie1 || kind == block_kind::vie1_cont)
        for (int n = 0; n < N; ++n)
            for (int i = 0; i < P; ++i)
                for (int a = 0; a < int(shape.D); ++a)
                    problem.A[problem.entry(n, i, a, n, i, a)] += 1.5;
    problem.b = random.uniform(points * shape.D);
    if (problem.carries()) {
        problem.w = random.uniform(shape.P, 0.0, 0.5 / P);
        problem.y0 = random.uniform(shape.D);
        problem.rho = random.uniform_value(0.0, 0.9);
    }
    if (kind == block_kind::vide) {
        problem.C = random.uniform(points * square, -0.5, 0.5);
        problem.E = random.uniform(shape.P * shape.P, -0.5, 0.5);
        problem.h = random.uniform(shape.N, 0.01, 0.4);
    }
    return problem;
}

// Calls visit(kind, P, D) for every variant. D = 0 is the scalar form.
template <class visitor>
void for_each_variant(const visitor& visit) {
    for (const block_kind kind : block_kinds)
        for (int P = 1; P <= 5; ++P)
            for (int D = 0; D <= 8; ++D)
                if (!::testing::Test::HasFatalFailure())
                    visit(kind, P, D);
}

} // namespace quenta_tests
