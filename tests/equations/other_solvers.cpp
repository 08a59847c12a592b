// With equal samples, mesh and nodes the equation solvers agree to rounding with the solvers from samples and from
// blocks.
#include "equations/library_equation.hpp"
#include "quenta_equations.hpp"
#include "quenta_native.h"
#include "reference/equations.hpp"
#include "reference/settings.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

namespace {

void kernel_of_lag(int D, double lag, double* K) {
    for (int a = 0; a < D; ++a)
        for (int b = 0; b < D; ++b)
            K[a * D + b] = (a == b ? 1.0 : 0.25) * std::cos(lag + a) * std::exp(-lag * (b + 1)) + (a == b ? 1.0 : 0.0);
}

void forcing_at(int D, double t, double* g) {
    for (int a = 0; a < D; ++a)
        g[a] = std::sin((a + 1) * t) + 0.1 * t;
}

void coefficient_at(int D, double t, double* a) {
    for (int r = 0; r < D; ++r)
        for (int c = 0; c < D; ++c)
            a[r * D + c] = (r == c ? -1.0 : 0.5) * std::cos(t * c);
}

quenta::equation equation_of_kind(char kind, int D) {
    const auto g = [D](double t, std::span<double> values) {
        forcing_at(D, t, values.data());
    };
    const auto f = [D](double t, std::span<const double> y, std::span<double> values) {
        std::vector<double> a(std::size_t(D * D));
        forcing_at(D, t, values.data());
        coefficient_at(D, t, a.data());
        for (int i = 0; i < D * D; ++i)
            values[std::size_t(i / D)] += a[std::size_t(i)] * y[std::size_t(i % D)];
    };
    const std::vector<double> y0(std::size_t(D), 0.5);
    quenta::equation equation = kind == '1'   ? quenta::first_kind(g, D)
                                : kind == '2' ? quenta::second_kind(g, D)
                                              : quenta::integro_differential(f, y0);
    return equation.lag_memory([D](double lag, std::span<double> K) { kernel_of_lag(D, lag, K.data()); });
}

struct samples {
    samples(int D, int count, double dt) : K(count * D * D), g(count * D), a(count * D * D) {
        for (int i = 0; i < count; ++i) {
            kernel_of_lag(D, i * dt, K.data() + i * D * D);
            forcing_at(D, i * dt, g.data() + i * D);
            coefficient_at(D, i * dt, a.data() + i * D * D);
        }
    }
    std::vector<double> K, g, a;
};

// The coefficients of the solution from samples; empty if the build or the solver does not have the scheme.
std::vector<double> solve_samples(char kind, const reference::setting& scheme, int D, int steps, double dt) {
    const int m = scheme.m, count = steps * m * m + 1, P = int(scheme.indices.size());
    const samples s(D, count, dt);
    std::vector<double> out(std::size_t(count * D)), coefficients(std::size_t((P + 1) * D * steps));
    const std::vector<double> y0(std::size_t(D), 0.5);
    const int* const list = scheme.indices.data();
    int solved_steps = 0, status = QUENTA_SOLVED;
    if (kind == '1')
        status = D == 1 ? quenta_solve_vie1(s.g.data(), s.K.data(), count, 0.0, dt, m, list, P, 1, 0, out.data(),
                                            coefficients.data(), &solved_steps)
                        : quenta_solve_vie1_vec(s.g.data(), s.K.data(), count, D, y0.data(), dt, m, list, P, 1, 0,
                                                out.data(), coefficients.data(), &solved_steps);
    else if (kind == '2')
        status = D == 1 ? quenta_solve_vie2(s.g.data(), s.K.data(), count, dt, m, list, P, 1, out.data(),
                                            coefficients.data(), &solved_steps)
                        : quenta_solve_vie2_vec(s.g.data(), s.K.data(), count, D, dt, m, list, P, 1, out.data(),
                                                coefficients.data(), &solved_steps);
    else
        status = D == 1 ? quenta_solve_vide(s.g.data(), s.K.data(), s.a.data(), count, y0[0], dt, m, list, P, 1,
                                            out.data(), coefficients.data(), &solved_steps)
                        : quenta_solve_vide_vec(s.g.data(), s.K.data(), s.a.data(), count, D, y0.data(), dt, m, list, P,
                                                1, out.data(), coefficients.data(), &solved_steps);
    if (status != QUENTA_SOLVED)
        return {};
    EXPECT_EQ(solved_steps, steps);
    return coefficients;
}

// The largest difference at x in every step, in units of the largest value.
double difference_at(double x, const std::vector<double>& coefficients, int highest_power, int P, int D,
                     const quenta::solution& y) {
    double largest = 0.0, difference = 0.0;
    for (int n = 0; n < y.steps(); ++n) {
        const double start = y.mesh()[std::size_t(n)], h = y.mesh()[std::size_t(n) + 1] - start;
        const std::vector<double> got = y.at(start + x * h);
        for (int a = 0; a < D; ++a) {
            double value = 0.0;
            for (int power = highest_power; power >= 0; --power)
                value = value * x + coefficients[std::size_t((n * (P + 1) + power) * D + a)];
            largest = std::max(largest, std::fabs(value));
            difference = std::max(difference, std::fabs(value - got[std::size_t(a)]));
        }
    }
    return difference / largest;
}

class solvers_from_samples : public testing::TestWithParam<char> {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(quenta_rt_init(), 1); }
};

INSTANTIATE_TEST_SUITE_P(equations, solvers_from_samples, testing::Values('1', '2', 'D'));

TEST_P(solvers_from_samples, give_the_same_solution) {
    const char kind = GetParam();
    constexpr int steps = 20;
    constexpr double dt = 1.0 / 256;
    int compared = 0;
    for (const reference::setting& scheme : reference::settings())
        for (int D = 1; D <= 3; ++D) {
            const std::vector<double> nodes = scheme.nodes();
            const int P = int(nodes.size());
            double growth = 1.0; // of errors, in a first-kind equation
            for (const double c : nodes)
                growth *= (1.0 - c) / c;
            if (kind == '1' && !(growth <= 1.0))
                continue;
            const std::vector<double> coefficients = solve_samples(kind, scheme, D, steps, dt);
            if (coefficients.empty())
                continue;
            quenta::solve_options options = quenta::equal_steps(steps);
            options.own_nodes = nodes;
            const quenta::solution y = equation_of_kind(kind, D).solve(steps * dt * scheme.m * scheme.m, options);
            for (const double x : {0.3, 0.7})
                EXPECT_LT(difference_at(x, coefficients, kind == 'D' ? P : P - 1, P, D, y), kind == '1' ? 1e-10 : 1e-13)
                    << "m = " << scheme.m << ", P = " << P << ", first node " << nodes[0] << ", D = " << D;
            ++compared;
        }
    EXPECT_GT(compared, 0);
}

// ---- Blocks: a kernel of both times on a mesh of any steps
// -----------------------------------------------------------

void kernel_of_both(int D, double t, double s, double* K) {
    for (int a = 0; a < D; ++a)
        for (int b = 0; b < D; ++b)
            K[a * D + b] = (a == b ? 1.0 + s * t : 0.25) * std::cos(t - 2.0 * s + a - b);
}

// The blocks of the scheme, for D components.
struct blocks {
    blocks(char kind, int dimension, const std::vector<double>& mesh, const std::vector<double>& nodes)
        : D{dimension}, P{int(nodes.size())}, N{int(mesh.size()) - 1}, slots{kind == 'D' ? P + 1 : P},
          A(std::size_t(N * P * D) * std::size_t(N * slots * D)) {
        const reference::equation problem{kind, D, {}, {}, {}};
        const reference::collocation scheme(problem, mesh, nodes);
        for (int n = 0; n < N; ++n)
            for (int i = 0; i < P; ++i)
                for (int k = 0; k <= n; ++k)
                    for (int q = 0; q < P; ++q) {
                        const bool present = k == n;
                        const double part = present ? nodes[i] : 1.0, x = part * nodes[q];
                        const double weight = double(scheme.length(k) * part * scheme.basis_integral(q, 1.0L));
                        std::vector<double> K(std::size_t(D * D));
                        kernel_of_both(D, double(scheme.time(n, nodes[i])), double(scheme.time(k, x)), K.data());
                        for (int j = 0; j < P; ++j)
                            add(n, i, k, j,
                                weight * double(kind == 'D' ? scheme.basis_integral(j, x) : scheme.basis(j, x)), K);
                        if (kind == 'D')
                            add(n, i, k, P, weight, K);
                    }
    }

    void add(int n, int i, int k, int slot, double weight, const std::vector<double>& K) {
        double* const block =
            A.data() + (std::size_t((n * P + i) * N + k) * std::size_t(slots) + std::size_t(slot)) * std::size_t(D * D);
        for (int entry = 0; entry < D * D; ++entry)
            block[entry] += weight * K[std::size_t(entry)];
    }

    int D, P, N, slots;
    std::vector<double> A;
};

std::vector<double> radau(int P) {
    std::vector<double> nodes(static_cast<std::size_t>(P));
    EXPECT_EQ(quenta_equation_nodes(QUENTA_RADAU, P, nodes.data()), QUENTA_EQUATION_SOLVED);
    return nodes;
}

quenta::solution solve_on(quenta::equation equation, int D, const std::vector<double>& mesh,
                          const std::vector<double>& nodes) {
    equation.memory([D](double t, double s, std::span<double> K) { kernel_of_both(D, t, s, K.data()); });
    quenta::solve_options options = quenta::on_mesh(mesh);
    options.own_nodes = nodes;
    return equation.solve(mesh.back(), options);
}

const std::vector<double> mesh{0.0, 0.1, 0.13, 0.3, 0.35, 0.5, 0.7, 0.72, 1.0};

class solvers_from_blocks : public testing::TestWithParam<int> {
protected:
    const int P = 1 + GetParam() % 5, D = 1 + GetParam() / 5, N = int(mesh.size()) - 1;
    const std::vector<double> nodes = radau(P);

    // The forcing at the nodes.
    std::vector<double> forcing() const {
        std::vector<double> b(std::size_t(N * P * D));
        for (int point = 0; point < N * P; ++point)
            forcing_at(D, node_time(point), b.data() + point * D);
        return b;
    }
    double node_time(int point) const {
        const int n = point / P;
        return nodes[point % P] == 1.0 ? mesh[n + 1] : mesh[n] + nodes[point % P] * (mesh[n + 1] - mesh[n]);
    }
    void expect_values_at_nodes(const quenta::solution& y, const std::vector<double>& x, double tolerance) const {
        for (int point = 0; point < N * P; ++point)
            for (int a = 0; a < D; ++a)
                EXPECT_NEAR(y.at(node_time(point))[std::size_t(a)], x[std::size_t(point * D + a)], tolerance);
    }
};

INSTANTIATE_TEST_SUITE_P(equations, solvers_from_blocks, testing::Range(0, 15));

TEST_P(solvers_from_blocks, of_the_first_kind_give_the_same_solution) {
    blocks assembled('1', D, mesh, nodes);
    const std::vector<double> b = forcing();
    std::vector<double> x(b.size());
    ASSERT_EQ(D == 1 ? function_solve_vie1(assembled.A.data(), b.data(), N, P, x.data())
                     : function_solve_vie1_vec(assembled.A.data(), b.data(), N, P, D, x.data()),
              QUENTA_SOLVED);
    const auto g = [this](double t, std::span<double> values) {
        forcing_at(D, t, values.data());
    };
    expect_values_at_nodes(solve_on(quenta::first_kind(g, D), D, mesh, nodes), x, 2e-11);
}

TEST_P(solvers_from_blocks, of_the_second_kind_give_the_same_solution) {
    blocks assembled('2', D, mesh, nodes);
    const std::vector<double> b = forcing();
    std::vector<double> x(b.size());
    ASSERT_EQ(D == 1 ? function_solve_vie2(assembled.A.data(), b.data(), N, P, x.data())
                     : function_solve_vie2_vec(assembled.A.data(), b.data(), N, P, D, x.data()),
              QUENTA_SOLVED);
    const auto g = [this](double t, std::span<double> values) {
        forcing_at(D, t, values.data());
    };
    expect_values_at_nodes(solve_on(quenta::second_kind(g, D), D, mesh, nodes), x, 2e-14);
}

TEST_P(solvers_from_blocks, of_integro_differential_equations_give_the_same_solution) {
    blocks assembled('D', D, mesh, nodes);
    const std::vector<double> b = forcing(), y0(std::size_t(D), 0.5);
    const reference::equation problem{'D', D, {}, {}, {}};
    const reference::collocation scheme(problem, mesh, nodes);
    std::vector<double> C(std::size_t(N * P * D * D)), E, w, h, x(b.size()), y(std::size_t((N + 1) * D));
    for (int i = 0; i < P; ++i)
        for (int j = 0; j < P; ++j)
            E.push_back(double(scheme.basis_integral(std::size_t(j), nodes[std::size_t(i)])));
    for (int j = 0; j < P; ++j)
        w.push_back(double(scheme.basis_integral(std::size_t(j), 1.0L)));
    for (int n = 0; n < N; ++n)
        h.push_back(double(scheme.length(std::size_t(n))));
    for (int point = 0; point < N * P; ++point)
        coefficient_at(D, node_time(point), C.data() + point * D * D);
    ASSERT_EQ(D == 1 ? function_solve_vide(assembled.A.data(), b.data(), C.data(), E.data(), w.data(), h.data(), y0[0],
                                           N, P, x.data(), y.data())
                     : function_solve_vide_vec(assembled.A.data(), b.data(), C.data(), E.data(), w.data(), h.data(),
                                               y0.data(), N, P, D, x.data(), y.data()),
              QUENTA_SOLVED);
    const auto f = [this](double t, std::span<const double> at, std::span<double> values) {
        std::vector<double> a(std::size_t(D * D));
        forcing_at(D, t, values.data());
        coefficient_at(D, t, a.data());
        for (int i = 0; i < D * D; ++i)
            values[std::size_t(i / D)] += a[std::size_t(i)] * at[std::size_t(i % D)];
    };
    const quenta::solution solution = solve_on(quenta::integro_differential(f, y0), D, mesh, nodes);
    for (std::size_t i = 0; i < y.size(); ++i)
        EXPECT_NEAR(solution.values()[i], y[i], 2e-14);
}

} // namespace
