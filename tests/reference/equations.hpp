// The collocation scheme for Volterra equations given as functions: its equations, step by step, as sums over
// everything that they contain. Numbers are long doubles, functions are those of the caller.
#pragma once

#include "reference/singular_integrals.hpp"

#include <Eigen/Dense>

#include <cmath>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <vector>

namespace reference {

using real = long double;
using real_vector = Eigen::Matrix<real, Eigen::Dynamic, 1>;
using real_matrix = Eigen::Matrix<real, Eigen::Dynamic, Eigen::Dynamic>;

// The kernel is (t - s)^-alpha K(t, s), where K is D by E, by rows. Without phi it is phi(s, y) = y.
struct equation_term {
    int E;
    std::function<void(double t, double s, double* K)> kernel;
    std::function<void(double s, const double* y, double* values)> phi;
    double alpha = 0.0;
};

// w(t) phi(t - delay, y(t - delay)), where w is D by E, by rows.
struct equation_delay {
    int E;
    double delay;
    std::function<void(double t, double* w)> weight;
    std::function<void(double s, const double* y, double* values)> phi;
};

// kind '2': y = g + M; '1': M = g; 'D': y' = f(t, y) + M. The forcing is g, which ignores y, or f.
struct equation {
    char kind;
    int D;
    std::function<void(double t, const double* y, double* values)> forcing;
    std::vector<double> start; // y0, or where the first step starts
    std::vector<equation_term> terms;
    std::vector<equation_delay> delays{};            // no step is longer than one of them
    std::function<void(double t, double* y)> past{}; // y before 0, where the delay terms are 0 without it
};

class collocation {
public:
    collocation(const equation& of, const std::vector<double>& on, const std::vector<double>& nodes)
        : problem{of}, mesh{on}, c(nodes.begin(), nodes.end()) {
        for (std::size_t j = 0; j < P(); ++j)
            coefficients.push_back(coefficients_of(j));
    }

    std::size_t steps() const { return mesh.size() - 1; }
    real length(std::size_t n) const { return real(mesh[n + 1]) - real(mesh[n]); }
    real time(std::size_t n, real x) const { return real(mesh[n]) + x * length(n); }
    std::size_t P() const { return c.size(); }

    // L_j(x), and its integral from 0 to x: the coefficients are those of the product of the (x - c_k) / (c_j - c_k).
    real basis(std::size_t j, real x) const {
        real value = 0.0L;
        const std::vector<real>& a = coefficients[j];
        for (std::size_t p = a.size(); p-- > 0;)
            value = value * x + a[p];
        return value;
    }
    real basis_integral(std::size_t j, real x) const {
        real value = 0.0L;
        const std::vector<real>& a = coefficients[j];
        for (std::size_t p = a.size(); p-- > 0;)
            value = value * x + a[p] / real(p + 1);
        return x * value;
    }

    // y at t_n + x h_n, from the unknowns X: y, or y', at the nodes.
    real_vector value(const std::vector<real_vector>& X, std::size_t n, real x) const {
        const int D = problem.D;
        real_vector y = real_vector::Zero(D);
        if (problem.kind == 'D') {
            for (int a = 0; a < D; ++a)
                y(a) = problem.start[std::size_t(a)];
            for (std::size_t k = 0; k < n; ++k)
                for (std::size_t j = 0; j < P(); ++j)
                    y += length(k) * basis_integral(j, 1.0L) * at_node(X[k], j);
        }
        for (std::size_t j = 0; j < P(); ++j)
            y += (problem.kind == 'D' ? length(n) * basis_integral(j, x) : basis(j, x)) * at_node(X[n], j);
        return y;
    }

    // What the equations of step n lack, and the sum of the magnitudes of all terms, for each node and component.
    struct residual {
        real_vector value, magnitude;

        void add(std::size_t i, const real_vector& terms) {
            value.segment(Eigen::Index(i) * terms.size(), terms.size()) += terms;
            magnitude.segment(Eigen::Index(i) * terms.size(), terms.size()) += terms.cwiseAbs();
        }
    };
    residual residual_of_step(const std::vector<real_vector>& X, std::size_t n) const {
        residual result = memory_of_steps_before(X, n);
        add_step(X, n, result);
        return result;
    }

    // The unknowns of all steps, each by Newton's method with differences, from the end of the step before.
    std::vector<real_vector> solve() const {
        std::vector<real_vector> X;
        for (std::size_t n = 0; n < steps(); ++n) {
            real_vector guess = real_vector::Zero(Eigen::Index(P()) * problem.D);
            for (std::size_t i = 0; i < P(); ++i)
                for (int a = 0; a < problem.D; ++a)
                    guess(Eigen::Index(i) * problem.D + a) = n > 0 ? X[n - 1](X[n - 1].size() - problem.D + a)
                                                             : problem.kind == 'D'
                                                                 ? 0.0L
                                                                 : real(problem.start.at(std::size_t(a)));
            X.push_back(guess);
            solve_step(X, n);
        }
        return X;
    }

private:
    residual memory_of_steps_before(const std::vector<real_vector>& X, std::size_t n) const {
        residual result{real_vector::Zero(X[n].size()), real_vector::Zero(X[n].size())};
        for (const equation_term& term : problem.terms)
            for (std::size_t k = 0; k < n; ++k)
                for (std::size_t j = 0; j < P(); ++j) {
                    const real_vector values = phi(term, time(k, c[j]), value(X, k, c[j]));
                    for (std::size_t i = 0; i < P(); ++i)
                        result.add(i, weight(term, j, time(n, c[i]) - real(mesh[k + 1]), length(k)) *
                                          (matrix(term.E, term.kernel, time(n, c[i]), time(k, c[j])) * values));
                }
        for (const equation_delay& term : problem.delays)
            for (std::size_t i = 0; i < P(); ++i) {
                const real t = time(n, c[i]), s = t - real(term.delay);
                if (s >= 0.0L || problem.past)
                    result.add(i, matrix(term.E, term.weight, t) * phi(term, s, value_at(X, s)));
            }
        return result;
    }

    // At any time, also before 0, and not at a mesh point.
    real_vector value_at(const std::vector<real_vector>& X, real s) const {
        if (s < 0.0L) {
            Eigen::VectorXd y(problem.D);
            problem.past(double(s), y.data());
            return y.cast<real>();
        }
        std::size_t k = 0;
        while (real(mesh[k + 1]) < s)
            ++k;
        return value(X, k, (s - real(mesh[k])) / length(k));
    }

    void add_step(const std::vector<real_vector>& X, std::size_t n, residual& to) const {
        for (std::size_t i = 0; i < P(); ++i) {
            const real t = time(n, c[i]);
            if (problem.kind != '1')
                to.add(i, -at_node(X[n], i));
            if (problem.forcing)
                to.add(i,
                       (problem.kind == '1' ? -1.0L : 1.0L) * call(problem.forcing, t, value(X, n, c[i]), problem.D));
            for (const equation_term& term : problem.terms)
                for (std::size_t q = 0; q < P(); ++q)
                    to.add(i, weight(term, q, 0.0L, length(n) * c[i]) *
                                  (matrix(term.E, term.kernel, t, time(n, c[i] * c[q])) *
                                   phi_in_step(term, X, n, c[i] * c[q])));
        }
    }

    // The integral of (t - s)^-alpha L_j over an interval of the length h that ends `distance` before t.
    real weight(const equation_term& term, std::size_t j, real distance, real h) const {
        if (term.alpha == 0.0)
            return h * basis_integral(j, 1.0L);
        return h == 0.0L ? 0.0L
                         : std::pow(h, 1.0L - real(term.alpha)) *
                               singular_integral(term.alpha, distance / h, coefficients[j]);
    }

    std::vector<real> coefficients_of(std::size_t j) const {
        std::vector<real> a{1.0L};
        for (std::size_t k = 0; k < P(); ++k) {
            if (k == j)
                continue;
            a.push_back(0.0L);
            for (std::size_t p = a.size(); p-- > 0;)
                a[p] = ((p > 0 ? a[p - 1] : 0.0L) - c[k] * a[p]) / (c[j] - c[k]);
        }
        return a;
    }

    real_vector at_node(const real_vector& X, std::size_t j) const {
        return X.segment(Eigen::Index(j) * problem.D, problem.D);
    }

    template <class function>
    static real_vector call(const function& f, real t, const real_vector& y, int count) {
        const Eigen::VectorXd argument = y.cast<double>();
        Eigen::VectorXd values(count);
        f(double(t), argument.data(), values.data());
        return values.cast<real>();
    }

    // K(t, s) or w(t).
    template <class function, class... times>
    real_matrix matrix(int E, const function& f, times... of) const {
        Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor> values(problem.D, E);
        f(double(of)..., values.data());
        return values.template cast<real>();
    }

    template <class any_term>
    real_vector phi(const any_term& term, real s, const real_vector& y) const {
        return term.phi ? call(term.phi, s, y, term.E) : y;
    }

    // phi is interpolated at the nodes; y itself is the polynomial.
    real_vector phi_in_step(const equation_term& term, const std::vector<real_vector>& X, std::size_t n, real x) const {
        if (!term.phi)
            return value(X, n, x);
        real_vector sum = real_vector::Zero(term.E);
        for (std::size_t j = 0; j < P(); ++j)
            sum += basis(j, x) * phi(term, time(n, c[j]), value(X, n, c[j]));
        return sum;
    }

    void solve_step(std::vector<real_vector>& X, std::size_t n) const {
        const Eigen::Index size = X[n].size();
        const residual before = memory_of_steps_before(X, n);
        const auto lacking = [&] {
            residual all = before;
            add_step(X, n, all);
            return all.value;
        };
        real last = HUGE_VALL;
        for (int iteration = 0; iteration < 60; ++iteration) {
            const real_vector now = lacking();
            real_matrix J(size, size);
            for (Eigen::Index C = 0; C < size; ++C) {
                const real kept = X[n](C), distance = 1e-7L * (1.0L + std::fabs(kept));
                X[n](C) = kept + distance;
                J.col(C) = (lacking() - now) / distance;
                X[n](C) = kept;
            }
            const real_vector correction = J.fullPivLu().solve(now);
            const real norm = correction.cwiseAbs().maxCoeff();
            if (norm >= last && norm < 1e-10L) // rounding in the functions
                return;
            last = norm;
            X[n] -= correction;
        }
        throw std::runtime_error("the reference implementation did not converge");
    }

    const equation& problem;
    const std::vector<double>& mesh;
    std::vector<real> c;
    std::vector<std::vector<real>> coefficients; // of L_j
};

} // namespace reference
