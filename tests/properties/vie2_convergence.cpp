// The error of quenta_solve_vie2 and of quenta_solve_vie2_vec falls with the order that the scheme has, for every row
// and at every kind of place.
//
// Let u be the solution computed with P nodes, omega(s) the product of (s - c_i), and r the order of the quadrature
// rule on the nodes: it integrates powers below r exactly, and r >= P. Three errors meet:
//   - between its nodes, the polynomial of a step differs from y by h^P omega(s) y^(P) / P!;
//   - the history replaces integrals by the rule, which costs h^r;
//   - the present step integrates the polynomial instead of y, which costs h * h^P.
// So the values at the nodes have the order min(r, P + 1). Away from the nodes the order is P. A step boundary reports
// the mean of two one-sided values: if both are nodes it has their order; otherwise the leading errors add up to
// omega(1) + omega(0), and where that is zero (nodes that lie symmetrically, odd in number) the order is theirs too.
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

    // A first node at 0 has no integral in front of it.
    bool starts_exactly() const { return row.indices.front() == 0; }

    // The largest error at each kind of place, or `no_sample` if the row has no such place; y(t, r) is the solution.
    template <class solution>
    std::array<double, 5> errors(const sampled_answer& answer, const solution& y, int D, double dt, int steps) const {
        EXPECT_EQ(answer.status, QUENTA_SOLVED);
        std::array<double, 5> largest;
        largest.fill(no_sample);
        for (int i = 0; i <= steps * S(); ++i)
            for (int r = 0; r < D; ++r) {
                double& error = largest[place_of(i, steps)];
                error = std::max(error, std::fabs(answer.out.values()[i * D + r] - y(i * dt, r)));
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

// Errors of a run: errors(scheme, number of steps). Fails where doubling the number of steps does not divide them as
// the scheme says.
template <class error_function>
void expect_order_of_the_scheme(const error_function& errors) {
    int orders_seen = 0;
    for (std::size_t row = 0; row < reference::settings().size(); ++row) {
        const scheme scheme{reference::settings()[row]};
        // Far enough that the leading error rules, and not so far that rounding does.
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
        for (int i = 0; i < N; ++i) {
            g.push_back(problem.g(i * dt));
            K.push_back(problem.K(i * dt));
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
        const auto y = [&](double t, int r) {
            return problem.y(t, r);
        };
        return scheme.errors(call_vie2_vec(data.g, data.K, data.D, dt, scheme.row), y, data.D, dt, steps);
    });
}

INSTANTIATE_TEST_SUITE_P(dimension, vie2_vec_convergence, ::testing::Values(2, 9));

} // namespace

} // namespace quenta_tests
