// Random equations of every kind, compared with the reference implementation: the solution, and the residual of every
// step that was accepted.
#include "equations/library_equation.hpp"
#include "quenta_equations.hpp"
#include "reference/equations.hpp"
#include "support/long_tests.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace {

using quenta_test::library_equation;

constexpr unsigned seeds_of_smooth_problems = 150, seeds = 330;
const unsigned stride = quenta_tests::long_tests() ? 1 : 5; // not divisible by the numbers that select a kind

class random_problem {
public:
    explicit random_problem(unsigned seed) : generator(seed) {
        const bool singular = seed >= seeds_of_smooth_problems;
        equation.kind = "12D"[seed % 3];
        equation.D = 1 + integer(3);
        const int D = equation.D;
        for (int a = 0; a < D; ++a)
            equation.start.push_back(number());
        const bool nonlinear = seed % 2 == 0;
        equation.terms.push_back(first_term(nonlinear));
        for (int more = integer(3); more > 0; --more)
            equation.terms.push_back(another_term(nonlinear));
        set_forcing();
        mesh.push_back(0.0);
        const int steps = 1 + integer(9);
        for (int n = 0; n < steps; ++n)
            mesh.push_back(mesh.back() + 0.12 * std::exp2(2.0 * number()));
        choose_nodes();
        if (singular)
            make_singular();
    }

    reference::equation equation;
    std::vector<double> mesh, nodes;

private:
    int integer(int below) { return int(generator() % unsigned(below)); }
    double number() { return std::uniform_real_distribution<double>(-1.0, 1.0)(generator); }

    std::vector<double> numbers(std::size_t count) {
        std::vector<double> all(count);
        for (double& x : all)
            x = number();
        return all;
    }

    // Smooth functions of both times.
    auto kernel(int E, double diagonal, double others) {
        const std::vector<double> a = numbers(std::size_t(equation.D * E)), w = numbers(3);
        const double sign = number() < 0.0 ? -1.0 : 1.0;
        return [=, D = equation.D](double t, double s, double* K) {
            for (int r = 0; r < D; ++r)
                for (int c = 0; c < E; ++c)
                    K[r * E + c] = others * a[std::size_t(r * E + c)] * std::cos(w[0] * t + 2.0 * w[1] * s + r) +
                                   (r == c ? sign * diagonal * std::exp(w[2] * (t - s)) : 0.0);
        };
    }

    // For the first kind the matrix of this term determines y.
    reference::equation_term first_term(bool nonlinear) {
        const int D = equation.D;
        reference::equation_term term{D, kernel(D, 1.0, 0.2), {}};
        if (nonlinear)
            term.phi = [D, p = number()](double s, const double* y, double* values) {
                for (int c = 0; c < D; ++c)
                    values[c] = y[c] + 0.3 * std::sin(y[(c + 1) % D] + p * s);
            };
        return term;
    }

    reference::equation_term another_term(bool nonlinear) {
        const int D = equation.D;
        if (!nonlinear)
            return {D, kernel(D, 0.0, 0.1), {}};
        const int E = 1 + integer(3);
        return {E, kernel(E, 0.0, 0.1), [=, p = numbers(4)](double s, const double* y, double* values) {
                    for (int c = 0; c < E; ++c)
                        values[c] = std::sin(p[std::size_t(c)] * s) + y[c % D] * y[D - 1] / (1.0 + y[0] * y[0]);
                }};
    }

    void set_forcing() {
        const std::vector<double> p = numbers(6);
        equation.forcing = [=, kind = equation.kind, D = equation.D](double t, const double* y, double* values) {
            for (int a = 0; a < D; ++a)
                values[a] = kind == '1' ? p[0] * t + p[1] * std::sin(t + a) - p[1] * std::sin(a)
                            : kind == '2'
                                ? p[0] + std::cos(p[1] * t + a)
                                : p[2] * std::sin(t) - 0.5 * y[a] + p[3] * y[(a + 1) % D] + p[4] * std::sin(y[a]);
        };
    }

    void choose_nodes() {
        nodes.resize(5);
        const int P = 1 + integer(5);
        const int family = equation.kind == '1' ? QUENTA_RADAU : P == 1 ? integer(2) : integer(4);
        if (family <= QUENTA_LOBATTO) {
            EXPECT_EQ(quenta_equation_nodes(family, P, nodes.data()), QUENTA_EQUATION_SOLVED);
            nodes.resize(std::size_t(P));
            return;
        }
        nodes.assign(std::size_t(P), 0.0);
        for (int i = 0; i < P; ++i)
            nodes[std::size_t(i)] = (i + 0.5 + 0.4 * number()) / P;
    }

    // Every term gets its singularity, the first one the largest. The integral of (t - s)^-alpha is
    // h^(1 - alpha) / (1 - alpha), so the kernels are multiplied by 1 - alpha. Some meshes have equal steps, others
    // steps of very different lengths.
    void make_singular() {
        double alpha = 0.99 * std::fabs(number());
        for (reference::equation_term& term : equation.terms) {
            term.alpha = alpha;
            term.kernel = [smooth = term.kernel, factor = (equation.kind == '1' ? 1.0 : 0.4) * (1.0 - alpha),
                           entries = equation.D * term.E](double t, double s, double* K) {
                smooth(t, s, K);
                for (int i = 0; i < entries; ++i)
                    K[i] *= factor;
            };
            alpha = integer(3) == 0 ? 0.0 : alpha * std::fabs(number());
        }
        const int kind = integer(3);
        const std::size_t equal_from = mesh.size() / 3;
        for (std::size_t n = equal_from + 1; kind == 1 && n < mesh.size(); ++n)
            mesh[n] = mesh[n - 1] + 0.08;
        if (kind == 2)
            for (double& t : mesh)
                t *= t * t;
    }

    std::mt19937 generator;
};

quenta::solution solve(const random_problem& problem) {
    quenta::solve_options options = quenta::on_mesh(problem.mesh);
    options.own_nodes = problem.nodes;
    return library_equation(problem.equation).solve(problem.mesh.back(), options);
}

double eps_of(const random_problem& problem) {
    // An equation of the first kind is differentiated: rounding grows by the number of steps over the shortest of them.
    return problem.equation.kind == '1' ? 2e-12 : problem.equation.terms[0].alpha > 0.0 ? 1e-13 : 3e-14;
}

TEST(equation_solver, agrees_with_the_reference_implementation) {
    for (unsigned seed = 0; seed < seeds; seed += stride) {
        const random_problem problem(seed);
        const quenta::solution y = solve(problem);
        const reference::collocation expected(problem.equation, problem.mesh, problem.nodes);
        const std::vector<reference::real_vector> X = expected.solve();
        double scale = 0.0, difference = 0.0;
        for (std::size_t n = 0; n < expected.steps(); ++n)
            for (const double x : {0.1, 0.45, 0.8, 1.0}) {
                const double t = double(expected.time(n, x));
                const reference::real_vector right = expected.value(X, n, x);
                const std::vector<double> got = y.at(t);
                for (int a = 0; a < problem.equation.D; ++a) {
                    scale = std::max(scale, std::fabs(double(right(a))));
                    difference = std::max(difference, std::fabs(got[std::size_t(a)] - double(right(a))));
                }
            }
        EXPECT_LE(difference, eps_of(problem) * scale) << "seed " << seed;
    }
}

TEST(equation_solver, accepts_a_step_only_with_a_residual_of_rounding) {
    for (unsigned seed = 0; seed < seeds; seed += stride) {
        const random_problem problem(seed);
        if (problem.nodes[0] == 0.0)
            continue; // there the value at the node cannot be read: at a mesh point the step before counts
        const quenta::solution y = solve(problem);
        const reference::collocation scheme(problem.equation, problem.mesh, problem.nodes);
        std::vector<reference::real_vector> X;
        for (std::size_t n = 0; n < scheme.steps(); ++n) {
            reference::real_vector of_step(int(problem.nodes.size()) * problem.equation.D);
            int R = 0;
            for (const double c : problem.nodes) {
                const double t = c == 1.0 ? problem.mesh[n + 1] : double(scheme.time(n, c));
                for (const double value : problem.equation.kind == 'D' ? y.derivative_at(t) : y.at(t))
                    of_step(R++) = value;
            }
            X.push_back(of_step);
            const auto [residual, magnitude] = scheme.residual_of_step(X, n);
            for (R = 0; R < residual.size(); ++R)
                EXPECT_LE(std::fabs(residual(R)), 1e-13L * (magnitude(R) + X[n].cwiseAbs().maxCoeff()))
                    << "seed " << seed << " step " << n << " row " << R;
        }
    }
}

} // namespace
