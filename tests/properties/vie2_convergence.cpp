// quenta_solve_vie2 and quenta_solve_vie2_vec converge with the order of the scheme, for every setting: at nodes,
// between nodes, at step boundaries, at the first sample and at the last.
//
// Let omega(s) be the product of (s - c_i) over the P nodes, and r the order of the quadrature rule on them: it
// integrates powers below r exactly, and r >= P. There are three errors:
//   - between its nodes, the polynomial of a step differs from y by h^P omega(s) y^(P) / P!;
//   - the history replaces integrals by the rule, with an error of order h^r;
//   - the current step integrates the polynomial instead of y, with an error of order h * h^P.
// So the order is min(r, P + 1) at the nodes, and P away from them. The solution at a step boundary is the mean of two
// one-sided values, with the leading error omega(1) + omega(0). If that is zero, the order is the one at the nodes.
// This is the case if both ends are nodes, and for an odd number of nodes that lie symmetrically.
#include "properties/quadrature_order.hpp"
#include "properties/system_problem.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

namespace quenta_tests {

namespace {

enum place { start, step_boundary, end, node, between_nodes };
constexpr std::array place_names{"sample 0", "step boundaries", "the last sample", "nodes", "between nodes"};

constexpr bool is_zero(double x) {
    return -1e-12 < x && x < 1e-12;
}

constexpr double no_sample = -1.0;

class scheme {
public:
    explicit scheme(const reference::setting& setting) : row{setting}, c{setting.nodes()} {}

    reference::setting row;

    int P() const { return int(c.size()); }
    int S() const { return row.m * row.m; }

    place place_of(int sample, int steps) const {
        const int e = sample % S();
        if (e == 0)
            return sample == 0 ? start : sample == steps * S() ? end : step_boundary;
        return is_zero(omega(double(e) / S())) ? node : between_nodes;
    }

    int order_at(place where) const {
        const int at_nodes = std::min(quadrature_order(row), P() + 1);
        const auto order = [&](double leading_error) {
            return is_zero(leading_error) ? at_nodes : P();
        };
        switch (where) {
        case start:
            return order(omega(0.0));
        case end:
            return order(omega(1.0));
        case step_boundary:
            return order(omega(0.0) + omega(1.0));
        case node:
            return at_nodes;
        case between_nodes:
            return P();
        }
        return 0;
    }

    // If the first node is 0, the equation there contains no integral at t = 0.
    bool starts_exactly() const { return row.indices.front() == 0; }

    // The largest error at each kind of place, or `no_sample` if there is no such place. y(t, a) is the solution.
    template <class solution>
    std::array<double, 5> errors(const sampled_answer& answer, const solution& y, int D, double dt, int steps) const {
        EXPECT_EQ(answer.status, QUENTA_SOLVED);
        std::array<double, 5> largest;
        largest.fill(no_sample);
        for (int sample = 0; sample <= steps * S(); ++sample)
            for (int a = 0; a < D; ++a) {
                double& error = largest[place_of(sample, steps)];
                error = std::max(error, std::fabs(answer.out.values()[sample * D + a] - y(sample * dt, a)));
            }
        return largest;
    }

private:
    double omega(double s) const {
        double product = 1.0;
        for (const double node : c)
            product *= s - node;
        return product;
    }

    std::vector<double> c;
};

const volterra_problem problems[] = {
    exponential_problem("decaying", -1.2, -2.5),
    exponential_problem("oscillating", {-1.0, 2.8}, {-0.5, 2.0}),
    polynomial_problem("polynomial", {1.0, -0.8, 0.7, -0.6, 0.5, -0.4, 0.3, -0.2, 0.1}, {1.0, -0.5, 0.25, 0.1}),
};

// errors(scheme, number of steps) solves and returns the errors. Fails unless doubling the number of steps divides them
// by the power of 2 that the order of the scheme predicts.
template <class error_function>
void expect_order_of_the_scheme(const error_function& errors) {
    int orders_seen = 0;
    for (std::size_t row = 0; row < reference::settings().size(); ++row) {
        const scheme scheme{reference::settings()[row]};
        // Enough steps that the leading error term dominates, but not rounding.
        const int steps = scheme.P() <= 2 ? 256 : scheme.P() <= 4 ? 128 : 32;
        const auto coarse = errors(scheme, steps), fine = errors(scheme, 2 * steps);
        for (const place where : {start, step_boundary, end, node, between_nodes}) {
            SCOPED_TRACE("row " + std::to_string(row) + ", " + place_names[where] + ", " + std::to_string(steps) +
                         " steps");
            if (coarse[where] == no_sample)
                continue;
            ++orders_seen;
            if (where == start && scheme.starts_exactly()) {
                EXPECT_EQ(coarse[where], 0.0);
                continue;
            }
            EXPECT_NEAR(std::log2(coarse[where] / fine[where]), scheme.order_at(where), 0.25)
                << "errors " << coarse[where] << " and " << fine[where];
        }
    }
    EXPECT_GT(orders_seen, 200);
}

class vie2_convergence : public ::testing::TestWithParam<volterra_problem> {};

TEST_P(vie2_convergence, has_the_order_of_the_scheme_at_every_kind_of_place) {
    const volterra_problem& problem = GetParam();
    expect_order_of_the_scheme([&](const scheme& scheme, int steps) {
        const int N = steps * scheme.S() + 1;
        const double dt = 3.0 / (N - 1);
        std::vector<double> g, K;
        for (int sample = 0; sample < N; ++sample) {
            g.push_back(problem.g(sample * dt));
            K.push_back(problem.K(sample * dt));
        }
        const auto y = [&](double t, int) {
            return problem.y(t);
        };
        return scheme.errors(call_vie2(g, K, dt, scheme.row), y, 1, dt, steps);
    });
}

INSTANTIATE_TEST_SUITE_P(solutions, vie2_convergence, ::testing::ValuesIn(problems),
                         [](const auto& instance) { return std::string{instance.param.name}; });

class vie2_vec_convergence : public ::testing::TestWithParam<int> {};

TEST_P(vie2_vec_convergence, has_the_order_of_the_scheme_at_every_kind_of_place) {
    const system_problem problem{GetParam(), equation::second_kind};
    expect_order_of_the_scheme([&](const scheme& scheme, int steps) {
        const int N = steps * scheme.S() + 1;
        const double length = 3.0, dt = length / (N - 1);
        const system_samples& data = problem.sampled(N, length);
        const auto y = [&](double t, int a) {
            return problem.y(t, a);
        };
        return scheme.errors(call_vie2_vec(data.g, data.K, data.D, dt, scheme.row), y, data.D, dt, steps);
    });
}

INSTANTIATE_TEST_SUITE_P(dimension, vie2_vec_convergence, ::testing::Values(2, 9));

} // namespace

} // namespace quenta_tests
