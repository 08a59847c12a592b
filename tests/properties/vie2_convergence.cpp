// The error of quenta_solve_vie2 falls with the order that the scheme has, for every row and at every kind of place.
//
// Let u be the solution computed with P nodes, omega(s) the product of (s - c_i), and r the order of the quadrature
// rule on the nodes: it integrates powers below r exactly, and r >= P. Three errors meet:
//   - between its nodes, the polynomial of a step differs from y by h^P omega(s) y^(P) / P!;
//   - the history replaces integrals by the rule, which costs h^r;
//   - the present step integrates the polynomial instead of y, which costs h * h^P.
// So the values at the nodes have the order min(r, P + 1). Away from the nodes the order is P. A step boundary reports
// the mean of two one-sided values: if both are nodes it has their order; otherwise the leading errors add up to
// omega(1) + omega(0), and where that is zero (nodes that lie symmetrically, odd in number) the order is theirs too.
#include "conformance/vie2_call.hpp"
#include "properties/quadrature_order.hpp"
#include "properties/volterra_problem.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

namespace quenta_tests {

namespace {

enum place { start, step_boundary, end, node, between_nodes };
constexpr std::array place_names{"sample 0", "step boundaries", "the last sample", "nodes", "between nodes"};

constexpr bool is_zero(double x) {
    return std::fabs(x) < 1e-12;
}

constexpr double no_sample = -1.0;

class scheme {
public:
    explicit scheme(const reference::setting& setting) : row{setting}, c{setting.nodes()} {}

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

    // A first node at 0 has no integral in front of it.
    bool starts_exactly() const { return row.indices.front() == 0; }

    // The largest error at each kind of place, or `no_sample` if the row has no such place.
    std::array<double, 5> errors(const volterra_problem& problem, double T, int steps) const {
        const int N = steps * S() + 1;
        const double dt = T / (N - 1);
        std::vector<double> g, K;
        for (int i = 0; i < N; ++i) {
            g.push_back(problem.g(i * dt));
            K.push_back(problem.K(i * dt));
        }
        const sampled_answer answer = call_vie2(g, K, dt, row);
        EXPECT_EQ(answer.status, QUENTA_SOLVED);
        std::array<double, 5> largest;
        largest.fill(no_sample);
        for (int i = 0; i < N; ++i) {
            double& error = largest[place_of(i, steps)];
            error = std::max(error, std::fabs(answer.out.values()[i] - problem.y(i * dt)));
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

    reference::setting row;
    std::vector<double> c;
};

const volterra_problem problems[] = {
    exponential_problem("decaying", -1.2, -2.5),
    exponential_problem("oscillating", {-1.0, 2.8}, {-0.5, 2.0}),
    polynomial_problem("polynomial", {1.0, -0.8, 0.7, -0.6, 0.5, -0.4, 0.3, -0.2, 0.1}, {1.0, -0.5, 0.25, 0.1}),
};

class vie2_convergence : public ::testing::TestWithParam<volterra_problem> {};

TEST_P(vie2_convergence, has_the_order_of_the_scheme_at_every_kind_of_place) {
    constexpr double T = 3.0;
    int orders_seen = 0;
    for (std::size_t row = 0; row < reference::settings().size(); ++row) {
        const scheme scheme{reference::settings()[row]};
        // Far enough that the leading error rules, and not so far that rounding does.
        const int steps = scheme.P() <= 2 ? 256 : scheme.P() <= 4 ? 128 : 32;
        const auto coarse = scheme.errors(GetParam(), T, steps), fine = scheme.errors(GetParam(), T, 2 * steps);
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

INSTANTIATE_TEST_SUITE_P(solutions, vie2_convergence, ::testing::ValuesIn(problems),
                         [](const auto& instance) { return std::string{instance.param.name}; });

} // namespace

} // namespace quenta_tests
