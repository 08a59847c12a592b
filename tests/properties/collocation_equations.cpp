// What every solver solves, written down from the mathematics: at each node its polynomials satisfy the equation, with
// every integral replaced by the quadrature rule of the nodes. No table of a step's system is formed here.
#include "conformance/every_solver.hpp"
#include "conformance/sampled_promises.hpp"
#include "reference/lagrange.hpp"

#include <algorithm>
#include <cmath>
#include <span>

namespace quenta_tests {

namespace {

using reference::setting;

constexpr double dt = 0.03;
constexpr int steps = 5;

// The polynomials of a solution.
class piecewise_polynomial {
public:
    piecewise_polynomial(std::span<const double> values, int powers_of_a_step, int slots_of_a_step, int dimension)
        : coeffs{values}, powers{powers_of_a_step}, slots{slots_of_a_step}, D{dimension} {}

    // Component r at t_n + s h, and its derivative by s there.
    double value(int n, double s, int r) const {
        double sum = 0.0;
        for (int q = powers - 1; q >= 0; --q)
            sum = sum * s + coefficient(n, q, r);
        return sum;
    }
    double derivative(int n, double s, int r) const {
        double sum = 0.0;
        for (int q = powers - 1; q > 0; --q)
            sum = sum * s + q * coefficient(n, q, r);
        return sum;
    }

private:
    double coefficient(int n, int q, int r) const { return coeffs[(n * slots + q) * D + r]; }

    std::span<const double> coeffs;
    int powers, slots, D;
};

// A sum, and the size of its terms.
struct sized_sum {
    double value = 0.0, size = 0.0;

    void add(double term) {
        value += term;
        size += std::fabs(term);
    }
};

class every_scheme : public ::testing::TestWithParam<sampled_solver> {
protected:
    // Calls visit(row, samples, polynomials) for the solutions in all settings that suit.
    template <class visitor>
    static void for_each_solution(const visitor& visit) {
        const sampled_solver& solver = GetParam();
        for_each_setting([&](const setting& row) { return solver.suits(row); },
                         [&](const setting& row) {
                             for (const int D : solver.solves_systems ? std::vector{1, 2, 8, 9} : std::vector{1}) {
                                 SCOPED_TRACE("D = " + std::to_string(D));
                                 const system_samples data{D, steps * row.m * row.m + 1};
                                 const sampled_answer answer = solver.solve(data, dt, row, 1);
                                 expect_solved(answer, steps);
                                 visit(row, data,
                                       piecewise_polynomial{answer.coeffs.values(), solver.powers(row),
                                                            int(row.indices.size()) + 1, D});
                             }
                         });
    }
};

TEST_P(every_scheme, satisfies_its_equation_at_every_node) {
    for_each_solution([](const setting& row, const system_samples& data, const piecewise_polynomial& u) {
        const int P = int(row.indices.size()), m = row.m, S = m * m, D = data.D;
        const double h = S * dt;
        const std::vector<int>& k = row.indices;
        const std::vector<double> c = row.nodes();
        std::vector<double> b;
        for (int l = 0; l < P; ++l)
            b.push_back(reference::quadrature_weight(reference::lagrange_coefficients(c, std::size_t(l))));
        const auto K = [&](int lag, int r, int s) {
            return data.K[(lag * D + r) * D + s];
        };
        for (int n = 0; n < steps; ++n)
            for (int i = 0; i < P; ++i)
                for (int r = 0; r < D; ++r) {
                    const int x = n * S + k[i] * m;
                    sized_sum rest; // all of the right-hand side less the left-hand side
                    for (int s = 0; s < D; ++s)
                        for (int l = 0; l < P; ++l) {
                            for (int j = 0; j < n; ++j)
                                rest.add(h * b[l] * K((n - j) * S + (k[i] - k[l]) * m, r, s) * u.value(j, c[l], s));
                            rest.add(h * c[i] * b[l] * K(k[i] * (m - k[l]), r, s) * u.value(n, c[i] * c[l], s));
                        }
                    switch (GetParam().kind) {
                    case equation::first_kind:
                        rest.add(-data.g[x * D + r]);
                        break;
                    case equation::second_kind:
                        rest.add(data.g[x * D + r]);
                        rest.add(-u.value(n, c[i], r));
                        break;
                    case equation::integro_differential:
                        rest.add(data.g[x * D + r]);
                        for (int s = 0; s < D; ++s)
                            rest.add(data.a[(x * D + r) * D + s] * u.value(n, c[i], s));
                        rest.add(-u.derivative(n, c[i], r) / h);
                        break;
                    }
                    EXPECT_NEAR(rest.value, 0.0, 1e-12 * rest.size)
                        << "step " << n << ", node " << i << ", component " << r;
                }
    });
}

TEST_P(every_scheme, starts_at_the_first_value_and_joins_the_steps_if_it_carries_a_value) {
    if (!GetParam().carries_value)
        return;
    for_each_solution([](const setting&, const system_samples& data, const piecewise_polynomial& u) {
        for (int r = 0; r < data.D; ++r) {
            EXPECT_NEAR(u.value(0, 0.0, r), data.y0[r], 1e-14 * std::fabs(data.y0[r])) << "component " << r;
            for (int n = 1; n < steps; ++n) {
                const double end = u.value(n - 1, 1.0, r), start = u.value(n, 0.0, r);
                EXPECT_NEAR(end, start, 1e-12 * (1.0 + std::fabs(end))) << "component " << r << ", step " << n;
            }
        }
    });
}

INSTANTIATE_TEST_SUITE_P(solver, every_scheme, ::testing::ValuesIn(every_solver),
                         [](const auto& instance) { return std::string{instance.param.name}; });

} // namespace

} // namespace quenta_tests
