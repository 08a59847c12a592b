// Equations with known solutions: closed forms, and problems whose forcing is computed from the chosen solution by
// quadrature.
#pragma once

#include "quenta_equations.hpp"

#include <cmath>
#include <functional>
#include <numbers>
#include <span>
#include <string>
#include <vector>

namespace quenta_test {

struct equation_problem {
    std::string name;
    quenta::equation equation;
    std::function<std::vector<double>(double)> exact;
    double t_end;
    char kind; // '1', '2', 'D'
};

// The integral of f over 0 .. t: the 10-point rule of Gauss on 24 panels, right to rounding for the integrands here.
template <class F>
double integral_to(double t, const F& f) {
    static const double x[5] = {0.1488743389816312108848260, 0.4333953941292471907992659, 0.6794095682990244062343274,
                                0.8650633666889845107320967, 0.9739065285171717200779640};
    static const double w[5] = {0.2955242247147528701738930, 0.2692667193099963550912269, 0.2190863625159820439955349,
                                0.1494513491505805931457763, 0.0666713443086881375935688};
    constexpr int panels = 24;
    double sum = 0.0;
    for (int panel = 0; panel < panels; ++panel) {
        const double half = t / (2 * panels), middle = (2 * panel + 1) * half;
        for (int i = 0; i < 5; ++i)
            sum += half * w[i] * (f(middle - half * x[i]) + f(middle + half * x[i]));
    }
    return sum;
}

// Scalar equations with a kernel K(t, s), phi(s, y) and a chosen solution y; the forcing follows from them.
template <class kernel, class nonlinearity, class exact>
equation_problem second_kind_problem(std::string name, double t_end, kernel K, nonlinearity phi, exact y) {
    const auto g = [=](double t) {
        return y(t) - integral_to(t, [&](double s) { return K(t, s) * phi(s, y(s)); });
    };
    return {std::move(name), quenta::second_kind(g).memory(K, phi), [=](double t) { return std::vector{y(t)}; }, t_end,
            '2'};
}

template <class kernel, class nonlinearity, class exact>
equation_problem first_kind_problem(std::string name, double t_end, kernel K, nonlinearity phi, exact y) {
    const auto g = [=](double t) {
        return integral_to(t, [&](double s) { return K(t, s) * phi(s, y(s)); });
    };
    const double guess = y(0.0);
    return {std::move(name), quenta::first_kind(g).memory(K, phi).first_guess(std::span(&guess, 1)),
            [=](double t) { return std::vector{y(t)}; }, t_end, '1'};
}

// y' = a(t, y) + correction(t) + M, where the correction makes y the solution.
template <class kernel, class nonlinearity, class right_side, class exact, class exact_slope>
equation_problem integro_problem(std::string name, double t_end, kernel K, nonlinearity phi, right_side a, exact y,
                                 exact_slope slope) {
    const auto f = [=](double t, double value) {
        const double memory = integral_to(t, [&](double s) { return K(t, s) * phi(s, y(s)); });
        return a(t, value) - a(t, y(t)) + slope(t) - memory;
    };
    return {std::move(name), quenta::integro_differential(f, y(0.0)).memory(K, phi),
            [=](double t) { return std::vector{y(t)}; }, t_end, 'D'};
}

inline std::vector<equation_problem> closed_forms() {
    using std::cos, std::exp, std::sin, std::sqrt;
    constexpr double root3 = std::numbers::sqrt3;
    std::vector<equation_problem> list;
    const auto scalar = [&](const char* name, char kind, double t_end, quenta::equation equation, auto y) {
        list.push_back({name, std::move(equation), [=](double t) { return std::vector{y(t)}; }, t_end, kind});
    };
    scalar("A1", '2', 6, quenta::second_kind([](double t) { return t * t * exp(-t) / 2; }).lag_memory([](double u) {
        return u * u * exp(-u) / 2;
    }),
           [](double t) {
               const double w = root3 / 2;
               return (1 - exp(-1.5 * t) * (cos(w * t) + root3 * sin(w * t))) / 3;
           });
    scalar("A4", '2', 4, quenta::second_kind([](double t) { return t; }).lag_memory([](double u) { return u; }),
           [](double t) { return std::sinh(t); });
    scalar("A7", '2', 10, quenta::second_kind([](double t) {
                              return std::cyl_bessel_j(0, t);
                          }).lag_memory([](double u) { return std::cyl_bessel_j(1, u); }),
           [](double) { return 1.0; });
    scalar("C2", '2', 2, quenta::second_kind([](double t) { return exp(-t) - t * t; }).memory([](double t, double s) {
        return t * exp(s);
    }),
           [](double t) { return exp(-t); });
    scalar("D1", '2', 20, quenta::second_kind([](double t) {
                              return exp(-t);
                          }).lag_memory([](double u) { return exp(-u); }, [](double, double y) { return y + exp(-y); }),
           [](double t) { return std::log(t + std::numbers::e); });
    scalar("D4", '2', 1,
           quenta::second_kind([](double t) { return exp(t) + t * (1 - exp(3 * t)) / 3; })
               .memory([](double t, double) { return t; }, [](double, double y) { return y * y * y; },
                       [](double, double y) { return 3 * y * y; }),
           [](double t) { return exp(t); });
    scalar("E2", '1', 1, quenta::first_kind([](double t) {
                             return exp(-t) / 4 + exp(t) * (2 * t - 1) / 4;
                         }).lag_memory([](double u) { return exp(-u); }),
           [](double t) { return t * exp(t); });
    scalar("F1", 'D', 5,
           quenta::integro_differential([](double, double y) { return -y; }, 1.0).lag_memory([](double u) {
               return exp(-u);
           }),
           [](double t) { return exp(-t) * std::cosh(t); });
    list.push_back({"G1",
                    quenta::second_kind(
                        [](double, std::span<double> g) {
                            g[0] = 1;
                            g[1] = 0;
                        },
                        2)
                        .lag_memory([](double, std::span<double> K) {
                            K[0] = K[3] = 0;
                            K[1] = -1;
                            K[2] = 1;
                        }),
                    [](double t) {
                        return std::vector{cos(t), sin(t)};
                    },
                    2, '2'});
    return list;
}

} // namespace quenta_test
