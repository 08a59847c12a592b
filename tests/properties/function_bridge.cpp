// The block solvers, with blocks that are assembled from a convolution kernel by the formulas of a collocation scheme,
// give the same values at the nodes as the sample-based solvers with that scheme.
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

polynomial integral(const polynomial& integrand) {
    polynomial result{0.0};
    for (std::size_t p = 0; p < integrand.size(); ++p)
        result.push_back(integrand[p] / double(p + 1));
    return result;
}

polynomial derivative(const polynomial& function) {
    polynomial result;
    for (std::size_t p = 1; p < function.size(); ++p)
        result.push_back(function[p] * double(p));
    return result;
}

// D = 0: the scalar forms.
struct convolution_problem {
    convolution_problem(random_data& random, const reference::setting& setting, int dimension)
        : row{setting}, D{dimension},
          components{std::max(D, 1)}, m{row.m}, S{m * m}, P{int(row.indices.size())}, h{S * dt}, c{row.nodes()} {
        const std::size_t N = std::size_t(steps * S + 1), width = std::size_t(components);
        g = random.uniform(N * width);
        K = random.uniform(N * width * width, -0.3 / components, 0.3 / components);
        a = random.uniform(N * width * width);
        y0 = random.uniform(width);
        for (std::size_t at = 0; at < N; ++at)
            for (std::size_t component = 0; component < width; ++component)
                K[at * width * width + component * width + component] += 1.0; // regular in the first kind
        std::vector<double> with_0{0.0};
        with_0.insert(with_0.end(), c.begin(), c.end());
        for (std::size_t j = 0; j < c.size(); ++j)
            basis.push_back(reference::lagrange_coefficients(c, j));
        for (std::size_t j = 0; j < with_0.size(); ++j)
            basis_with_0.push_back(reference::lagrange_coefficients(with_0, j));
        for (const polynomial& L : basis)
            weights.push_back(reference::quadrature_weight(L));
    }

    static constexpr int steps = 7;
    static constexpr double dt = 0.02;

    reference::setting row;
    int D, components, m, S, P;
    double h;
    std::vector<double> c, g, K, a, y0;
    std::vector<polynomial> basis, basis_with_0; // for the nodes; for 0 and the nodes
    std::vector<double> weights;

    // The number of the sample at node i of step n.
    std::size_t sample(int n, int i) const { return std::size_t(n * S + row.indices[std::size_t(i)] * m); }

    // Entry (component, column) of the integral of K(t - u) v((u - t_k) / h) over the part of step k before t, by the
    // quadrature rule, at the node t = t_n + c_i h.
    double convolved(int n, int i, int k, const polynomial& v, int component, int column) const {
        double sum = 0.0;
        for (int q = 0; q < P; ++q) {
            const int k_i = row.indices[std::size_t(i)], k_q = row.indices[std::size_t(q)];
            const double c_i = c[std::size_t(i)], c_q = c[std::size_t(q)];
            const int at = k < n ? (n - k) * S + (k_i - k_q) * m : k_i * (m - k_q);
            const double fraction = k < n ? 1.0 : c_i;
            const std::size_t entry = std::size_t((at * components + component) * components + column);
            sum += K[entry] * fraction * weights[std::size_t(q)] * reference::basis_value(v, fraction * c_q);
        }
        return h * sum;
    }

    // The polynomial on step k that slot j of the step multiplies.
    polynomial polynomial_of_slot(block_kind kind, int n, int k, int j) const {
        const auto node = std::size_t(j);
        switch (kind) {
        case block_kind::vie1_cont: // on previous steps, the rule uses only the values at the nodes
            if (k < n)
                return j == P ? polynomial{0.0} : basis[node];
            return basis_with_0[j == P ? 0 : node + 1];
        case block_kind::vide:
            return j == P ? polynomial{1.0} : integral(basis[node]);
        default:
            return basis[node];
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
                        const polynomial v = polynomial_of_slot(kind, n, k, j);
                        for (int component = 0; component < components; ++component)
                            for (int b = 0; b < components; ++b)
                                problem.A[problem.entry(n, i, component, k, j, b)] =
                                    convolved(n, i, k, v, component, b);
                    }
                const auto sample_of = [&](const std::vector<double>& samples, int length) {
                    const auto first = samples.begin() + std::ptrdiff_t(sample(n, i)) * length;
                    return std::vector(first, first + length);
                };
                for (const double value : sample_of(g, components))
                    problem.b.push_back(value);
                for (const double value : sample_of(a, components * components))
                    problem.C.push_back(value);
            }
        problem.h.assign(steps, h);
        if (kind == block_kind::vie1_cont) {
            problem.rho = reference::basis_value(basis_with_0[0], 1.0);
            for (int j = 0; j < P; ++j)
                problem.w.push_back(reference::basis_value(basis_with_0[std::size_t(j) + 1], 1.0));
        } else
            problem.w = weights;
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

// What the block solver should return, computed from the polynomials of the sample-based solver.
struct node_values {
    std::vector<double> x, y;

    node_values(const convolution_problem& problem, block_kind kind, const sampled_answer& answer) {
        const std::size_t D = std::size_t(problem.components), slots = std::size_t(problem.P) + 1;
        const bool carries = kind == block_kind::vie1_cont || kind == block_kind::vide;
        const auto of_step = [&](std::size_t n, std::size_t a) {
            polynomial solution;
            for (std::size_t p = 0; p < (carries ? slots : slots - 1); ++p)
                solution.push_back(answer.coeffs.values()[(n * slots + p) * D + a]);
            return solution;
        };
        for (std::size_t n = 0; n < std::size_t(problem.steps); ++n) {
            for (const double c_i : problem.c)
                for (std::size_t a = 0; a < D; ++a)
                    x.push_back(kind == block_kind::vide
                                    ? reference::basis_value(derivative(of_step(n, a)), c_i) / problem.h
                                    : reference::basis_value(of_step(n, a), c_i));
            for (std::size_t a = 0; carries && a < D; ++a)
                y.push_back(of_step(n, a)[0]);
        }
        for (std::size_t a = 0; carries && a < D; ++a) // the end of the last step is the last sample
            y.push_back(answer.out.values()[answer.out.values().size() - D + a]);
    }
};

void expect_close(const std::vector<double>& expected, std::span<const double> actual) {
    ASSERT_EQ(expected.size(), actual.size());
    double scale = 1.0;
    for (const double value : expected)
        scale = std::max(scale, std::fabs(value));
    for (std::size_t index = 0; index < expected.size(); ++index)
        ASSERT_TRUE(std::fabs(expected[index] - actual[index]) <= 1e-12 * scale)
            << "at index " << index << ", largest value " << scale << ": "
            << equal_bits(expected[index], actual[index]).message();
}

TEST(function_bridge, assembled_blocks_give_the_node_values_of_the_sample_based_solvers) {
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
                    continue; // 0 would be a node twice, so that there is no basis
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
    // Of the 56 settings, 30 have a node 0, and the first kind refuses 3.
    EXPECT_EQ(singular, 30 * 5);
    EXPECT_EQ(solved, (2 * 56 + 2 * 23) * 5);
}

} // namespace

} // namespace quenta_tests
