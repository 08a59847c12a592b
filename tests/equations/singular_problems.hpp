// Equations with weakly singular kernels and known solutions.
#pragma once

#include "equations/power_sums.hpp"
#include "equations/problems.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

namespace quenta_test {

// E_a(-x), for x up to 6: the sum of (-x)^k / Gamma(a k + 1).
class mittag_leffler {
public:
    explicit mittag_leffler(double a) {
        for (int k = 0; a * k < 170.0; ++k)
            reciprocals.push_back(std::exp(-std::lgamma(1.0L + static_cast<long double>(a) * k)));
    }

    double operator()(double x) const {
        long double sum = 0.0L;
        for (std::size_t k = reciprocals.size(); k-- > 0;)
            sum = sum * -static_cast<long double>(x) + reciprocals[k];
        return double(sum);
    }

private:
    std::vector<long double> reciprocals; // 1 / Gamma(a k + 1)
};

struct singular_problem {
    double alpha; // the largest
    equation_problem problem;
};

inline double one(double) {
    return 1.0;
}

// D^a y = -y with y(0) = 1, y'(0) = 0, as an integral equation for a < 1 and as an integro-differential one for a > 1:
// the solution is E_a(-t^a).
inline equation_problem relaxation(double a, double t_end) {
    const auto exact = [a, E = mittag_leffler(a)](double t) {
        return std::vector{E(std::pow(t, a))};
    };
    const std::string name = "E_" + std::to_string(int(std::lround(100 * a)));
    if (a < 1.0)
        return {name,
                quenta::second_kind(one).lag_memory(
                    quenta::weakly_singular(1.0 - a, [=](double) { return -1 / std::tgamma(a); })),
                exact,
                {},
                t_end,
                '2'};
    return {name,
            quenta::integro_differential(nullptr, 1.0)
                .lag_memory(quenta::weakly_singular(2.0 - a, [=](double) { return -1 / std::tgamma(a - 1); })),
            exact,
            {},
            t_end,
            'D'};
}

// D^b y = f(t) - y^1.5 with y(0) = 0 (K. Diethelm, N. J. Ford and A. D. Freed, Detailed error analysis for a fractional
// Adams method, Numerical Algorithms 36, 2004).
inline equation_problem fractional_test_problem(double b) {
    const auto phi = [b](double s, double y) {
        return 40320 * std::pow(s, 8 - b) / std::tgamma(9 - b) -
               3 * std::tgamma(5 + b / 2) * std::pow(s, 4 - b / 2) / std::tgamma(5 - b / 2) +
               2.25 * std::tgamma(b + 1) + std::pow(1.5 * std::pow(s, b / 2) - std::pow(s, 4), 3) -
               std::pow(std::fabs(y), 1.5);
    };
    const power_sum exact{{{1, 8}, {-3, 4 + b / 2}, {2.25, b}}};
    return {"D6_" + std::to_string(int(std::lround(100 * b))),
            quenta::second_kind([](double) {
                return 0.0;
            }).lag_memory(quenta::weakly_singular(1 - b, [b](double) { return 1 / std::tgamma(b); }), phi),
            [=](double t) { return std::vector{exact(t)}; },
            {},
            1,
            '2'};
}

inline std::vector<singular_problem> equations_with_known_solutions() {
    using std::sqrt, std::numbers::pi;
    std::vector<singular_problem> list;
    const auto scalar = [&](const char* name, double alpha, char kind, double t_end, quenta::equation equation,
                            auto y) {
        list.push_back(
            {alpha, {name, std::move(equation), [=](double t) { return std::vector{y(t)}; }, {}, t_end, kind}});
    };
    const auto constant = [](double alpha, double K) {
        return quenta::weakly_singular(alpha, [K](double) { return K; });
    };
    scalar("B1", 0.5, '2', 1, quenta::second_kind(one).lag_memory(constant(0.5, -1)),
           [](double t) { return std::exp(pi * t) * std::erfc(sqrt(pi * t)); });
    scalar("B2", 0.5, '2', 2,
           quenta::second_kind([](double t) { return sqrt(t) + pi * t / 2; }).lag_memory(constant(0.5, -1)),
           [](double t) { return sqrt(t); });
    list.push_back({0.4, relaxation(0.6, 1)});
    list.push_back({0.9, relaxation(0.1, 0.4)});
    scalar("B5", 0.4, '2', 1, quenta::second_kind([](double t) {
                                  return std::pow(t, 4) + std::tgamma(5) * std::pow(t, 4.6) / std::tgamma(5.6);
                              }).lag_memory(constant(0.4, -1 / std::tgamma(0.6))),
           [](double t) { return std::pow(t, 4); });
    list.push_back({0.5, fractional_test_problem(0.5)});
    list.push_back({0.75, fractional_test_problem(0.25)});
    scalar("E3", 0.5, '1', 5, quenta::first_kind([](double t) { return t; }).lag_memory(constant(0.5, 1)),
           [](double t) { return 2 / pi * sqrt(t); });
    list.push_back({0.5, relaxation(1.5, 3)}); // F6
    return list;
}

// Several terms, each with its own singularity, systems, and E other than D; all kinds and both forms of kernels.
inline std::vector<singular_problem> chosen_singular_solutions() {
    const power_sum root{{{1, 0}, {0.7, 0.5}, {-0.3, 2}}}, fifth{{{0.4, 0}, {1, 0.2}, {0.2, 1.2}}},
        smooth{{{1, 0}, {0.5, 1}, {-0.2, 3}}}, derivative_root{{{1, 0}, {0.5, 1.5}, {0.1, 3}}},
        derivative_fifth{{{0.5, 0}, {-0.4, 1.2}}}, abel{{{1, 0.5}, {0.5, 1.5}}}, abel_third{{{1, 0.3}, {-0.2, 1.3}}};
    std::vector<singular_problem> list;
    const auto add = [&list](const char* name, char kind, double t_end, const std::vector<power_sum>& y,
                             const std::vector<power_term>& terms) {
        double alpha = 0.0;
        for (const power_term& term : terms)
            alpha = std::max(alpha, term.alpha);
        list.push_back({alpha, power_problem(name, kind, t_end, y, terms)});
    };
    add("two_singularities", '2', 2, {root}, {{0.5, 1, 1, {-0.4}}, {0.2, 0, 0, {0.3}, {}, true}});
    add("singular_and_smooth", '2', 2, {root}, {{0.5, 0, 0, {-1}}, {0, 1, 2, {0.3}}});
    add("smooth_solution", '2', 2, {smooth}, {{0.7, 1, 0, {-0.5}}});
    add("nonlinear", '2', 1.5, {root}, {{0.5, 0, 0, {-0.5}, {{0, 0}}, true}, {0.3, 0, 1, {0.2}, {{0, 0, 0}}}});
    add("system", '2', 1, {root, fifth},
        {{0.8, 0, 0, {-0.3, 0.1, 0.2, -0.4}, {}, true}, {0.5, 1, 0, {0.1, 0.2, 0, 0.3}}});
    add("wide_system", '2', 1, {root, fifth},
        {{0.6, 0, 0, {-0.3, 0.1, -0.1, 0.2, -0.2, 0.1}, {{0}, {1, 1}, {0, 1}}},
         {0.8, 0, 0, {-0.1, -0.2}, {{0, 0}}, true}});
    add("derivative", 'D', 2, {derivative_root}, {{0.5, 1, 0, {-0.7}}, {0, 0, 0, {0.2}}});
    add("derivative_nonlinear", 'D', 1, {derivative_root, derivative_fifth},
        {{0.8, 0, 0, {0.3, -0.2, 0.1, 0.4, 0.2, -0.3}, {{0, 1}, {1}, {0, 0}}, true}});
    add("first", '1', 2, {abel}, {{0.5, 0, 0, {1}}, {0.1, 1, 0, {0.3}}});
    add("first_third", '1', 2, {abel_third}, {{0.3, 0, 0, {1}, {}, true}});
    add("first_nonlinear", '1', 1, {abel}, {{0.5, 0, 0, {1, 0.3}, {{0}, {0, 0, 0}}, true}});
    add("first_system", '1', 1, {abel, abel}, {{0.5, 0, 0, {2, 0.5, -0.3, 1}}, {0, 0, 1, {0.1, 0.2, 0.3, 0.4}}});
    return list;
}

inline std::vector<singular_problem> singular_problems() {
    std::vector<singular_problem> all = equations_with_known_solutions();
    for (singular_problem& problem : chosen_singular_solutions())
        all.push_back(std::move(problem));
    return all;
}

} // namespace quenta_test
