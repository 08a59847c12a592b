// Blocks that are assembled for a convolution kernel, by the formulas of the collocation schemes, give the block
// solvers the same systems that the solvers from samples have, so that both find the same values at the nodes.
#include "conformance/function_call.hpp"
#include "conformance/vide_call.hpp"
#include "conformance/vie1_call.hpp"
#include "conformance/vie2_call.hpp"
#include "reference/lagrange.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace quenta_tests {

namespace {

using polynomial = std::vector<double>;

polynomial integral(const polynomial& p) {
    polynomial result{0.0};
    for (std::size_t q = 0; q < p.size(); ++q)
        result.push_back(p[q] / double(q + 1));
    return result;
}

polynomial derivative(const polynomial& p) {
    polynomial result;
    for (std::size_t q = 1; q < p.size(); ++q)
        result.push_back(p[q] * double(q));
    return result;
}

// D = 0 stands for the scalar forms.
struct convolution_problem {
    convolution_problem(random_data& random, const reference::setting& of_row, int dimension)
        : row{of_row}, D{dimension},
          components{std::max(D, 1)}, m{row.m}, S{m * m}, P{int(row.indices.size())}, h{S * dt}, c{row.nodes()} {
        const std::size_t N = std::size_t(steps * S + 1), d = std::size_t(components);
        g = random.uniform(N * d);
        K = random.uniform(N * d * d, -0.3 / components, 0.3 / components);
        a = random.uniform(N * d * d);
        y0 = random.uniform(d);
        for (std::size_t v = 0; v < N; ++v)
            for (std::size_t r = 0; r < d; ++r)
                K[v * d * d + r * d + r] += 1.0; // for the first kind
        std::vector<double> with_0{0.0};
        with_0.insert(with_0.end(), c.begin(), c.end());
        for (std::size_t j = 0; j < c.size(); ++j)
            basis.push_back(reference::lagrange_coefficients(c, j));
        for (std::size_t j = 0; j < with_0.size(); ++j)
            basis_with_0.push_back(reference::lagrange_coefficients(with_0, j));
        for (const polynomial& L : basis)
            weight.push_back(reference::quadrature_weight(L));
    }

    static constexpr int steps = 7;
    static constexpr double dt = 0.02;

    reference::setting row;
    int D, components, m, S, P;
    double h;
    std::vector<double> c, g, K, a, y0;
    std::vector<polynomial> basis, basis_with_0; // on the nodes; on 0 and the nodes
    std::vector<double> weight;

    // The sample at node i of step n.
    std::size_t sample(int n, int i) const { return std::size_t(n * S + row.indices[std::size_t(i)] * m); }

    // The sum that the rule makes of the integral of K(t - s) p((s - t_k) / h) over step k, or over what of it is
    // behind t, for the node t = t_n + c_i h: the entry (r, c) of the matrix.
    double convolved(int n, int i, int k, const polynomial& p, int r, int column) const {
        double sum = 0.0;
        for (int q = 0; q < P; ++q) {
            const int k_i = row.indices[std::size_t(i)], k_q = row.indices[std::size_t(q)];
            const double c_i = c[std::size_t(i)], c_q = c[std::size_t(q)];
            const int lag = k < n ? (n - k) * S + (k_i - k_q) * m : k_i * (m - k_q);
            const double fraction = k < n ? 1.0 : c_i;
            const std::size_t entry = std::size_t((lag * components + r) * components + column);
            sum += K[entry] * fraction * weight[std::size_t(q)] * reference::basis_value(p, fraction * c_q);
        }
        return h * sum;
    }

    // What the slot j of step k means: the polynomial on the step that has 1 there and 0 in the other slots.
    polynomial meaning(block_kind kind, int n, int k, int j) const {
        const auto at = std::size_t(j);
        switch (kind) {
        case block_kind::vie1_cont: // the rule on steps that are over looks at the nodes alone
            if (k < n)
                return j == P ? polynomial{0.0} : basis[at];
            return basis_with_0[j == P ? 0 : at + 1];
        case block_kind::vide:
            return j == P ? polynomial{1.0} : integral(basis[at]);
        default:
            return basis[at];
        }
    }

    block_problem assembled(block_kind kind) const {
        block_problem problem{kind, steps, P, D, {}, {}, {}, {}, {}, {}, y0};
        problem.A.assign(problem.shape().matrix_length(), std::numeric_limits<double>::quiet_NaN());
        const int slots = int(problem.shape().slots);
        for (int n = 0; n < steps; ++n)
            for (int i = 0; i < P; ++i) {
                for (int k = 0; k <= n; ++k)
                    for (int j = 0; j < slots; ++j) {
                        const polynomial p = meaning(kind, n, k, j);
                        for (int r = 0; r < components; ++r)
                            for (int column = 0; column < components; ++column)
                                problem.A[problem.entry(n, i, r, k, j, column)] = convolved(n, i, k, p, r, column);
                    }
                const auto of_sample = [&](const std::vector<double>& samples, int length) {
                    const auto first = samples.begin() + std::ptrdiff_t(sample(n, i)) * length;
                    return std::vector(first, first + length);
                };
                for (const double value : of_sample(g, components))
                    problem.b.push_back(value);
                for (const double value : of_sample(a, components * components))
                    problem.C.push_back(value);
            }
        problem.h.assign(steps, h);
        if (kind == block_kind::vie1_cont) {
            problem.rho = reference::basis_value(basis_with_0[0], 1.0);
            for (int j = 0; j < P; ++j)
                problem.w.push_back(reference::basis_value(basis_with_0[std::size_t(j) + 1], 1.0));
        } else
            problem.w = weight;
        for (const double c_i : c)
            for (const polynomial& L : basis)
                problem.E.push_back(reference::basis_value(integral(L), c_i));
        return problem;
    }

    sampled_answer from_samples(block_kind kind) const {
        switch (kind) {
        case block_kind::vie2:
            return D == 0 ? call_vie2(g, K, dt, row) : call_vie2_vec(g, K, D, dt, row);
        case block_kind::vide:
            return D == 0 ? call_vide(g, K, a, y0[0], dt, row) : call_vide_vec(g, K, a, D, y0, dt, row);
        default:
            const int continuous = kind == block_kind::vie1_cont;
            return D == 0 ? call_vie1(g, K, y0[0], dt, row, continuous)
                          : call_vie1_vec(g, K, D, y0, dt, row, continuous);
        }
    }
};

// What the block solver should find, from the polynomials of the steps.
struct node_values {
    std::vector<double> x, y;

    node_values(const convolution_problem& problem, block_kind kind, const sampled_answer& answer) {
        const std::size_t D = std::size_t(problem.components), slots = std::size_t(problem.P) + 1;
        const bool carries = kind == block_kind::vie1_cont || kind == block_kind::vide;
        const auto of_step = [&](std::size_t n, std::size_t component) {
            polynomial p;
            for (std::size_t q = 0; q < (carries ? slots : slots - 1); ++q)
                p.push_back(answer.coeffs.values()[(n * slots + q) * D + component]);
            return p;
        };
        for (std::size_t n = 0; n < std::size_t(problem.steps); ++n) {
            for (const double c_i : problem.c)
                for (std::size_t r = 0; r < D; ++r)
                    x.push_back(kind == block_kind::vide
                                    ? reference::basis_value(derivative(of_step(n, r)), c_i) / problem.h
                                    : reference::basis_value(of_step(n, r), c_i));
            for (std::size_t r = 0; carries && r < D; ++r)
                y.push_back(of_step(n, r)[0]);
        }
        for (std::size_t r = 0; carries && r < D; ++r) // the last step's end is a sample with one value
            y.push_back(answer.out.values()[answer.out.values().size() - D + r]);
    }
};

void expect_close(const std::vector<double>& expected, std::span<const double> actual) {
    ASSERT_EQ(expected.size(), actual.size());
    double scale = 1.0;
    for (const double value : expected)
        scale = std::max(scale, std::fabs(value));
    for (std::size_t at = 0; at < expected.size(); ++at)
        ASSERT_TRUE(std::fabs(expected[at] - actual[at]) <= 1e-12 * scale)
            << "at index " << at << ", largest value " << scale << ": "
            << equal_bits(expected[at], actual[at]).message();
}

TEST(function_bridge, assembled_blocks_give_the_node_values_of_the_solvers_from_samples) {
    random_data random{20260361};
    int solved = 0, singular = 0;
    for (const reference::setting& row : reference::settings())
        for (const int D : {0, 1, 2, 3, 8}) {
            const convolution_problem problem(random, row, D);
            for (const block_kind kind : block_kinds) {
                const bool first_kind = kind == block_kind::vie1 || kind == block_kind::vie1_cont;
                if (first_kind && refused_by_vie1(row))
                    continue;
                if (kind == block_kind::vie1_cont && has_node_0(row))
                    continue; // a node twice: no basis
                const block_problem blocks = problem.assembled(kind);
                SCOPED_TRACE(blocks.text() + ", m = " + std::to_string(row.m));
                const sampled_answer from_samples = problem.from_samples(kind);
                const block_answer from_blocks = call_block_solver(blocks);
                ASSERT_EQ(from_blocks.status, from_samples.status);
                if (from_blocks.status == QUENTA_SINGULAR_BLOCK) {
                    ASSERT_TRUE(kind == block_kind::vie1 && has_node_0(row));
                    ++singular;
                    continue;
                }
                const node_values expected(problem, kind, from_samples);
                expect_close(expected.x, from_blocks.x.values());
                expect_close(expected.y, from_blocks.y.values());
                if (HasFatalFailure())
                    return;
                ++solved;
            }
        }
    // Of 56 settings, 30 have the node 0, and 3 are refused by the first kind.
    EXPECT_EQ(singular, 30 * 5);
    EXPECT_EQ(solved, (2 * 56 + 2 * 23) * 5);
}

} // namespace

} // namespace quenta_tests
