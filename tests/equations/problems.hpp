// Equations with solutions in closed form.
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
    std::function<std::vector<double>(double)> exact, slope;
    double t_end;
    char kind; // '1', '2', 'D'
    bool stiff = false;
};

inline std::vector<equation_problem> closed_forms() {
    using std::cos, std::exp, std::sin, std::sqrt;
    constexpr double root3 = std::numbers::sqrt3;
    std::vector<equation_problem> list;
    const auto scalar = [&](const char* name, char kind, double t_end, quenta::equation equation, auto y, auto slope) {
        list.push_back({name, std::move(equation), [=](double t) { return std::vector{y(t)}; },
                        [=](double t) { return std::vector{slope(t)}; }, t_end, kind});
    };
    scalar(
        "A1", '2', 6, quenta::second_kind([](double t) { return t * t * exp(-t) / 2; }).lag_memory([](double u) {
            return u * u * exp(-u) / 2;
        }),
        [](double t) {
            const double w = root3 / 2;
            return (1 - exp(-1.5 * t) * (cos(w * t) + root3 * sin(w * t))) / 3;
        },
        [](double t) {
            const double w = root3 / 2;
            return exp(-1.5 * t) * (1.5 * (cos(w * t) + root3 * sin(w * t)) + w * (sin(w * t) - root3 * cos(w * t))) /
                   3;
        });
    scalar(
        "A4", '2', 4, quenta::second_kind([](double t) { return t; }).lag_memory([](double u) { return u; }),
        [](double t) { return std::sinh(t); }, [](double t) { return std::cosh(t); });
    scalar(
        "A7", '2', 10, quenta::second_kind([](double t) { return std::cyl_bessel_j(0, t); }).lag_memory([](double u) {
            return std::cyl_bessel_j(1, u);
        }),
        [](double) { return 1.0; }, [](double) { return 0.0; });
    scalar(
        "C2", '2', 2, quenta::second_kind([](double t) { return exp(-t) - t * t; }).memory([](double t, double s) {
            return t * exp(s);
        }),
        [](double t) { return exp(-t); }, [](double t) { return -exp(-t); });
    scalar(
        "D1", '2', 20, quenta::second_kind([](double t) {
                           return exp(-t);
                       }).lag_memory([](double u) { return exp(-u); }, [](double, double y) { return y + exp(-y); }),
        [](double t) { return std::log(t + std::numbers::e); }, [](double t) { return 1 / (t + std::numbers::e); });
    scalar(
        "D4", '2', 1,
        quenta::second_kind([](double t) { return exp(t) + t * (1 - exp(3 * t)) / 3; })
            .memory([](double t, double) { return t; }, [](double, double y) { return y * y * y; },
                    [](double, double y) { return 3 * y * y; }),
        [](double t) { return exp(t); }, [](double t) { return exp(t); });
    scalar(
        "E2", '1', 1, quenta::first_kind([](double t) {
                          return exp(-t) / 4 + exp(t) * (2 * t - 1) / 4;
                      }).lag_memory([](double u) { return exp(-u); }),
        [](double t) { return t * exp(t); }, [](double t) { return (1 + t) * exp(t); });
    scalar(
        "F1", 'D', 5, quenta::integro_differential([](double, double y) { return -y; }, 1.0).lag_memory([](double u) {
            return exp(-u);
        }),
        [](double t) { return exp(-t) * std::cosh(t); }, [](double t) { return -exp(-2 * t); });
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
                    [](double t) {
                        return std::vector{-sin(t), cos(t)};
                    },
                    2, '2'});
    return list;
}

} // namespace quenta_test
