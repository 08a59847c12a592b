// The solutions of every solver satisfy their equation at each node, with every integral replaced by the quadrature
// rule of the nodes. The equations are written out directly, without the matrices that the solvers assemble.
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

    // Component a at t_n + s h, and its derivative with respect to s.
    double value(int n, double s, int a) const {
        double sum = 0.0;
        for (int p = powers - 1; p >= 0; --p)
            sum = sum * s + coefficient(n, p, a);
        return sum;
    }
    double derivative(int n, double s, int a) const {
        double sum = 0.0;
        for (int p = powers - 1; p > 0; --p)
            sum = sum * s + p * coefficient(n, p, a);
        return sum;
    }

private:
    double coefficient(int n, int p, int a) const { return coeffs[(n * slots + p) * D + a]; }

    std::span<const double> coeffs;
    int powers, slots, D;
};

// A sum, and the sum of the magnitudes of its terms.
struct sized_sum {
    double value = 0.0, size = 0.0;

    void add(double term) {
        value += term;
        size += std::fabs(term);
    }
};

class every_scheme : public ::testing::TestWithParam<sampled_solver> {
protected:
    // Calls visit(setting, samples, polynomials) for the solutions under all suitable settings.
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
        const std::vector<int>& indices = row.indices;
        const std::vector<double> c = row.nodes();
        std::vector<double> weights;
        for (int j = 0; j < P; ++j)
            weights.push_back(reference::quadrature_weight(reference::lagrange_coefficients(c, std::size_t(j))));
        const auto K = [&](int sample, int a, int b) {
            return data.K[(sample * D + a) * D + b];
        };
        for (int n = 0; n < steps; ++n)
            for (int i = 0; i < P; ++i)
                for (int a = 0; a < D; ++a) {
                    const int sample = n * S + indices[i] * m;
                    sized_sum residual; // the right-hand side minus the left-hand side
                    for (int b = 0; b < D; ++b)
                        for (int q = 0; q < P; ++q) {
                            for (int k = 0; k < n; ++k)
                                residual.add(h * weights[q] * K((n - k) * S + (indices[i] - indices[q]) * m, a, b) *
                                             u.value(k, c[q], b));
                            residual.add(h * c[i] * weights[q] * K(indices[i] * (m - indices[q]), a, b) *
                                         u.value(n, c[i] * c[q], b));
                        }
                    switch (GetParam().kind) {
                    case equation::first_kind:
                        residual.add(-data.g[sample * D + a]);
                        break;
                    case equation::second_kind:
                        residual.add(data.g[sample * D + a]);
                        residual.add(-u.value(n, c[i], a));
                        break;
                    case equation::integro_differential:
                        residual.add(data.g[sample * D + a]);
                        for (int b = 0; b < D; ++b)
                            residual.add(data.a[(sample * D + a) * D + b] * u.value(n, c[i], b));
                        residual.add(-u.derivative(n, c[i], a) / h);
                        break;
                    }
                    EXPECT_NEAR(residual.value, 0.0, 1e-12 * residual.size)
                        << "step " << n << ", node " << i << ", component " << a;
                }
    });
}

TEST_P(every_scheme, is_continuous_and_starts_at_the_initial_value_if_it_carries_a_value) {
    if (!GetParam().carries_value)
        return;
    for_each_solution([](const setting&, const system_samples& data, const piecewise_polynomial& u) {
        for (int a = 0; a < data.D; ++a) {
            EXPECT_NEAR(u.value(0, 0.0, a), data.y0[a], 1e-14 * std::fabs(data.y0[a])) << "component " << a;
            for (int n = 1; n < steps; ++n) {
                const double end = u.value(n - 1, 1.0, a), start = u.value(n, 0.0, a);
                EXPECT_NEAR(end, start, 1e-12 * (1.0 + std::fabs(end))) << "component " << a << ", step " << n;
            }
        }
    });
}

INSTANTIATE_TEST_SUITE_P(solver, every_scheme, ::testing::ValuesIn(every_solver),
                         [](const auto& instance) { return std::string{instance.param.name}; });

} // namespace

} // namespace quenta_tests
