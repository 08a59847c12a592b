// Chosen solutions that are sums of powers of t, for kernels (t - s)^-alpha t^m s^n: all integrals are known.
#pragma once

#include "equations/problems.hpp"

#include <cmath>
#include <cstddef>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace quenta_test {

// The sum of coefficient * t^exponent.
struct power_sum {
    struct term {
        double coefficient, exponent;
    };
    std::vector<term> terms;

    double operator()(double t) const {
        double sum = 0.0;
        for (const auto& [coefficient, exponent] : terms)
            sum += coefficient * std::pow(t, exponent);
        return sum;
    }
    power_sum derivative() const {
        power_sum result;
        for (const auto& [coefficient, exponent] : terms)
            if (exponent != 0.0)
                result.terms.push_back({coefficient * exponent, exponent - 1.0});
        return result;
    }
    power_sum times(const power_sum& other) const {
        power_sum result;
        for (const auto& [a, p] : terms)
            for (const auto& [b, q] : other.terms)
                result.terms.push_back({a * b, p + q});
        return result;
    }
    // The integral of (t - s)^-alpha t^m s^n times this from 0 to t, times a factor.
    power_sum integral(double alpha, double m, double n, double factor) const {
        power_sum result;
        for (const auto& [coefficient, exponent] : terms) {
            const double p = exponent + n;
            const double beta = std::tgamma(1.0 - alpha) * std::tgamma(1.0 + p) / std::tgamma(2.0 - alpha + p);
            result.terms.push_back({factor * coefficient * beta, m + p + 1.0 - alpha});
        }
        return result;
    }
    void add(double factor, const power_sum& other) {
        for (const auto& [coefficient, exponent] : other.terms)
            terms.push_back({factor * coefficient, exponent});
    }
};

// A memory term: the kernel (t - s)^-alpha t^m s^n times the matrix `entries` with a row for each component of y.
// Component c of phi is the product of the components factors[c] of y; without factors phi is y.
struct power_term {
    double alpha;
    int m, n;
    std::vector<double> entries;
    std::vector<std::vector<int>> factors = {};
    bool of_lag = false; // m = n = 0 then
};

inline void add_power_term(quenta::equation& equation, const power_term& term, int D) {
    const auto fill = [entries = term.entries](double factor, std::span<double> K) {
        for (std::size_t i = 0; i < K.size(); ++i)
            K[i] = factor * entries[i];
    };
    const auto K = [fill, m = term.m, n = term.n](double t, double s, std::span<double> values) {
        fill(std::pow(t, m) * std::pow(s, n), values);
    };
    const auto of_lag = [fill](double, std::span<double> values) {
        fill(1.0, values);
    };
    const auto phi = [factors = term.factors](double, std::span<const double> at, std::span<double> values) {
        for (std::size_t c = 0; c < values.size(); ++c) {
            values[c] = 1.0;
            for (const int a : factors[c])
                values[c] *= at[std::size_t(a)];
        }
    };
    const int E = int(term.entries.size()) / D;
    if (term.factors.empty() && term.of_lag)
        equation.lag_memory(quenta::weakly_singular(term.alpha, of_lag));
    else if (term.factors.empty())
        equation.memory(quenta::weakly_singular(term.alpha, K));
    else if (term.of_lag)
        equation.lag_memory(quenta::weakly_singular(term.alpha, of_lag), phi, E);
    else
        equation.memory(quenta::weakly_singular(term.alpha, K), phi, E);
}

// With the kind 'D' the right side is -y plus what makes y the solution.
inline equation_problem power_problem(std::string name, char kind, double t_end, std::vector<power_sum> y,
                                      const std::vector<power_term>& terms) {
    const std::size_t D = y.size();
    std::vector<power_sum> slope, memory(D), forcing;
    for (const power_sum& component : y)
        slope.push_back(component.derivative());
    for (const power_term& term : terms) {
        const std::size_t E = term.entries.size() / D;
        for (std::size_t c = 0; c < E; ++c) {
            power_sum phi = y[term.factors.empty() ? c : std::size_t(term.factors[c][0])];
            for (std::size_t f = 1; !term.factors.empty() && f < term.factors[c].size(); ++f)
                phi = phi.times(y[std::size_t(term.factors[c][f])]);
            for (std::size_t a = 0; a < D; ++a)
                memory[a].add(1.0, phi.integral(term.alpha, term.m, term.n, term.entries[a * E + c]));
        }
    }
    for (std::size_t a = 0; a < D; ++a) {
        forcing.push_back(kind == '1' ? memory[a] : kind == '2' ? y[a] : slope[a]);
        if (kind == 'D')
            forcing.back().add(1.0, y[a]);
        if (kind != '1')
            forcing.back().add(-1.0, memory[a]);
    }
    const auto values_of = [](std::vector<power_sum> sums) {
        return [sums](double t) {
            std::vector<double> values;
            for (const power_sum& sum : sums)
                values.push_back(sum(t));
            return values;
        };
    };
    const auto g = [forcing](double t, std::span<double> values) {
        for (std::size_t a = 0; a < values.size(); ++a)
            values[a] = forcing[a](t);
    };
    const auto f = [forcing](double t, std::span<const double> at, std::span<double> values) {
        for (std::size_t a = 0; a < values.size(); ++a)
            values[a] = forcing[a](t) - at[a];
    };
    quenta::equation equation = kind == '2'   ? quenta::second_kind(g, int(D))
                                : kind == '1' ? quenta::first_kind(g, int(D))
                                              : quenta::integro_differential(f, values_of(y)(0.0));
    if (kind == '1')
        equation.first_guess(std::vector<double>(D, 0.5));
    for (const power_term& term : terms)
        add_power_term(equation, term, int(D));
    return {std::move(name), std::move(equation), values_of(y), values_of(slope), t_end, kind};
}

} // namespace quenta_test
