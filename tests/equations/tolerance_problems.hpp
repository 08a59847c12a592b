// Random equations with known solutions, smooth and not, for the tests of the error control. The forcing follows from
// the chosen solution by quadrature.
#pragma once

#include "quenta_equations.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <numbers>
#include <random>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace quenta_test {

// The rule of Gauss with 10 points: visit(s, weight) for the interval lo .. hi.
template <class F>
void visit_points(double lo, double hi, const F& visit) {
    constexpr std::array x{0.1488743389816312108848260, 0.4333953941292471907992659, 0.6794095682990244062343274,
                           0.8650633666889845107320967, 0.9739065285171717200779640};
    constexpr std::array w{0.2955242247147528701738930, 0.2692667193099963550912269, 0.2190863625159820439955349,
                           0.1494513491505805931457763, 0.0666713443086881375935688};
    const double half = (hi - lo) / 2, middle = lo + half;
    for (std::size_t i = 0; i < x.size(); ++i) {
        visit(middle - half * x[i], half * w[i]);
        visit(middle + half * x[i], half * w[i]);
    }
}

// A function of one variable, its derivative, and the points that its quadrature needs: between them it is smooth, and
// wide in comparison with their distance.
struct shape {
    std::function<double(double)> value, slope;
    std::vector<double> breaks;
};

struct kernel_shape {
    std::function<double(double, double)> value;
    std::vector<double> breaks_in_s{};
    double kink_in_lag = 0.0; // not 0: where
    int cells = 32;           // in which it is smooth, of 0 .. T
    bool of_lag = false;
};

struct nonlinearity_shape {
    std::function<double(double)> value;
    bool linear = false;
};

struct tolerance_problem {
    std::string name;
    std::unique_ptr<quenta::equation> equation;
    std::vector<shape> exact; // one for each component
    double t_end, rtol, atol;

    double allowed(double y, double largest) const { return atol > 0.0 ? atol + rtol * std::fabs(y) : rtol * largest; }
};

class problem_maker {
public:
    explicit problem_maker(std::uint64_t seed) : random(seed) {}

    tolerance_problem make() {
        tolerance_problem problem;
        problem.t_end = T = std::pow(10.0, between(-1, 1.3));
        const double tolerance = std::pow(10.0, between(-11, -3));
        const int which = below(3);
        problem.rtol = which == 0 ? 0.0 : tolerance;
        problem.atol = which == 1 ? 0.0 : tolerance;
        const int kind = below(8); // 0, 1: first; 2, 3: integro-differential
        const int D = below(4) == 0 ? 2 : 1;
        for (int a = 0; a < D; ++a) {
            problem.exact.push_back(solution_shape(kind == 2 || kind == 3));
            problem.name += solution_name + " ";
        }
        if (kind < 2)
            make_first_kind(problem);
        else if (kind < 4)
            make_integro_differential(problem);
        else
            make_second_kind(problem);
        return problem;
    }

private:
    double between(double lo, double hi) {
        return lo + (hi - lo) * std::uniform_real_distribution<double>(0, 1)(random);
    }
    int below(int n) { return int(random() % std::uint64_t(n)); }
    double sign() { return below(2) ? 1.0 : -1.0; }

    shape smooth_shape() {
        const double a = between(0.3, 2), b = between(-2, 2), c = between(0.2, 4) / T, d = between(0, 2) / T;
        return {[=](double t) { return a * std::cos(c * t + b) + b * std::exp(-d * t) + 0.3; },
                [=](double t) { return -a * c * std::sin(c * t + b) - b * d * std::exp(-d * t); },
                {}};
    }

    shape solution_shape(bool with_slope) {
        static constexpr std::array names{"smooth",     "smooth", "smooth", "oscillating", "kinked", "power inside",
                                          "power at 0", "log",    "jump",   "layer",       "bump",   "narrow bump"};
        shape base = smooth_shape(), added;
        const int which = below(int(names.size()));
        solution_name = names[std::size_t(which)];
        const double end = T, a = between(0.02, 0.98) * T, size = between(0.3, 2) * sign();
        if (which == 3)
            added = oscillation(size);
        else if (which == 4)
            added = {[=](double t) { return size * std::fabs(t - a) / end; },
                     [=](double t) { return t < a ? -size / end : size / end; },
                     {a}};
        else if (which == 5 || which == 6)
            added = power(which == 5 ? a : 0.0, size, (with_slope ? 1.2 : 0.3) + between(0, 3));
        else if (which == 7)
            added = logarithm(size);
        else if (which == 8) // without a derivative: a kink takes its place
            added = with_slope ? shape{[=](double t) { return size * std::max(0.0, t - a) / end; },
                                       [=](double t) { return t < a ? 0.0 : size / end; },
                                       {a}}
                               : shape{[=](double t) { return t < a ? 0.0 : size; }, {}, {a}};
        else if (which == 9) {
            const double rate = std::pow(10.0, between(1, 5)) / T;
            added = {[=](double t) { return size * std::exp(-rate * t); },
                     [=](double t) { return -rate * size * std::exp(-rate * t); }, breaks_near(0.0)};
        } else if (which >= 10)
            added = bump(a, size, T * (which == 10 ? between(0.02, 0.1) : between(0.0025, 0.005)));
        else
            return base;
        return {[=](double t) { return base.value(t) + added.value(t); },
                [=](double t) { return base.slope(t) + added.slope(t); }, added.breaks};
    }

    shape oscillation(double size) {
        const double w = between(10, 60) / T;
        return {
            [=](double t) { return size * std::sin(w * t); }, [=](double t) { return size * w * std::cos(w * t); }, {}};
    }

    // Distances to `a` that double, from one that is negligible in an integral.
    std::vector<double> breaks_near(double a) const {
        std::vector<double> breaks{a};
        for (double distance = T; distance > 1e-9 * T; distance /= 2) {
            breaks.push_back(a + distance);
            breaks.push_back(a - distance);
        }
        return breaks;
    }

    shape power(double a, double size, double exponent) {
        const double scale = size / std::pow(T, exponent);
        return {[=](double t) { return scale * std::pow(std::fabs(t - a), exponent); },
                [=](double t) {
                    return t == a ? 0.0
                                  : exponent * scale * std::pow(std::fabs(t - a), exponent - 1) * (t < a ? -1 : 1);
                },
                breaks_near(a)};
    }

    shape logarithm(double size) {
        const double T_ = T;
        return {[=](double t) { return t > 0 ? size * t / T_ * std::log(t / T_) : 0.0; },
                [=](double t) { return t > 0 ? size / T_ * (std::log(t / T_) + 1) : 0.0; }, breaks_near(0.0)};
    }

    shape bump(double a, double size, double width) {
        const auto value = [=](double t) {
            const double x = (t - a) / width;
            return size * std::exp(-x * x);
        };
        shape made{value, [=](double t) { return -2 * (t - a) / (width * width) * value(t); }, {}};
        for (int x = -6; x <= 6; ++x)
            made.breaks.push_back(a + x * width);
        return made;
    }

    // `positive`: not 0 at lag 0, for first-kind equations.
    kernel_shape kernel(bool positive) {
        const double c = between(0.3, 2) / T, mu = between(0.2, 5) / T, w = between(1, 12) / T;
        const double a = between(0.1, 0.9) * T, width = 0.005 * T, stiffness = std::pow(10.0, between(1, 4)) / T;
        const double side = positive ? 1.0 : sign();
        const auto near_a = [=](double x) {
            return std::exp(-std::pow((x - a) / width, 2));
        };
        kernel_shape made;
        switch (below(positive ? 5 : 9)) {
        case 0:
            made.of_lag = true;
            made.value = [=](double t, double s) {
                return side * c * std::exp(-mu * (t - s));
            };
            break;
        case 1:
            made.of_lag = true;
            made.value = [=](double t, double s) {
                return side * c / (1 + mu * (t - s));
            };
            break;
        case 2:
            made.value = [=](double t, double s) {
                return side * c * (1 + 0.5 * std::sin(w * t) * std::cos(mu * s));
            };
            break;
        case 3:
            made.of_lag = true;
            made.kink_in_lag = a;
            made.value = [=](double t, double s) {
                return side * c * (0.5 + std::fabs(t - s - a) * c);
            };
            break;
        case 4:
            made.breaks_in_s = {a};
            made.value = [=](double t, double s) {
                return side * c * (0.5 + std::fabs(s - a) * mu * std::exp(-mu * t));
            };
            break;
        case 5:
            made.of_lag = true;
            made.value = [=](double t, double s) {
                return c * std::cos(w * (t - s));
            };
            break;
        case 6: // stiff
            made.of_lag = true;
            made.value = [=](double t, double s) {
                return -stiffness * std::exp(-mu * (t - s));
            };
            break;
        case 7:
            for (int x = -6; x <= 6; ++x)
                made.breaks_in_s.push_back(a + x * width);
            made.value = [=](double, double s) {
                return c * (1 + 5 * near_a(s));
            };
            break;
        default:
            made.of_lag = true;
            made.cells = 150;
            made.value = [=](double t, double s) {
                return c * (1 + 5 * near_a(t - s));
            };
        }
        return made;
    }

    nonlinearity_shape nonlinearity(bool monotone) {
        switch (below(monotone ? 4 : 7)) {
        case 0:
        case 1:
            return {[](double y) { return y; }, true};
        case 2:
            return {[](double y) {
                return y + y * y * y / 3;
            }};
        case 3:
            return {[](double y) {
                return std::sinh(y);
            }};
        case 4:
            return {[](double y) {
                return std::sin(2 * y);
            }};
        case 5:
            return {[](double y) {
                return y + std::exp(-y);
            }};
        default:
            return {[](double y) {
                return y / (1 + y * y);
            }};
        }
    }

    // M(t) of component a: the kernel and phi applied to component a, plus `coupling` times the other component. The
    // integral is a sum over cells, whose values of phi are known.
    struct memory {
        std::vector<shape> y;
        kernel_shape K;
        nonlinearity_shape phi;
        double coupling;
        std::vector<double> ends{}, s{};               // of the cells; the points in them
        std::array<std::vector<double>, 2> weighted{}; // phi of each component

        double phi_of(std::size_t a, double t) const {
            return phi.value(y[a].value(t)) + (y.size() > 1 ? coupling * y[1 - a].value(t) : 0.0);
        }

        void prepare(double t_end) {
            for (int k = 0; k <= K.cells; ++k)
                ends.push_back(t_end * k / K.cells);
            const auto add = [&](const std::vector<double>& breaks) {
                std::copy_if(breaks.begin(), breaks.end(), std::back_inserter(ends),
                             [&](double t) { return t > 0 && t < t_end; });
            };
            add(K.breaks_in_s);
            for (const shape& component : y)
                add(component.breaks);
            std::sort(ends.begin(), ends.end());
            for (std::size_t k = 1; k < ends.size(); ++k)
                visit_points(ends[k - 1], ends[k], [&](double at, double weight) {
                    s.push_back(at);
                    for (std::size_t a = 0; a < y.size(); ++a)
                        weighted[a].push_back(weight * phi_of(a, at));
                });
        }

        double of(std::size_t a, double t) const {
            double sum = 0;
            const auto add_part = [&](double lo, double hi) {
                visit_points(lo, hi, [&](double at, double weight) { sum += weight * K.value(t, at) * phi_of(a, at); });
            };
            const double kink = K.kink_in_lag > 0 ? t - K.kink_in_lag : -1.0;
            for (std::size_t k = 0; k + 1 < ends.size() && ends[k] < t; ++k) {
                const double lo = ends[k], hi = std::min(ends[k + 1], t);
                if (kink > lo && kink < hi) {
                    add_part(lo, kink);
                    add_part(kink, hi);
                } else if (hi < ends[k + 1])
                    add_part(lo, hi);
                else
                    for (std::size_t p = 10 * k; p < 10 * (k + 1); ++p)
                        sum += K.value(t, s[p]) * weighted[a][p];
            }
            return sum;
        }
    };

    std::shared_ptr<const memory> make_memory(const tolerance_problem& problem, bool first_kind) {
        auto made = std::make_shared<memory>(
            memory{problem.exact, kernel(first_kind), nonlinearity(first_kind), first_kind ? 0.0 : between(-0.5, 0.5)});
        made->prepare(T);
        return made;
    }

    static void add_memory(quenta::equation& equation, const std::shared_ptr<const memory>& M) {
        const int D = int(M->y.size());
        if (D == 1) {
            const auto K = [M](double t, double s) {
                return M->K.value(t, s);
            };
            const auto of_lag = [M](double u) {
                return M->K.value(u, 0.0);
            };
            const auto phi = [M](double, double y) {
                return M->phi.value(y);
            };
            if (M->K.of_lag && M->phi.linear)
                equation.lag_memory(of_lag);
            else if (M->K.of_lag)
                equation.lag_memory(of_lag, phi);
            else if (M->phi.linear)
                equation.memory(K);
            else
                equation.memory(K, phi);
            return;
        }
        equation.memory(
            [M](double t, double s, std::span<double> K) {
                K[0] = K[3] = M->K.value(t, s);
                K[1] = K[2] = 0.0;
            },
            [M](double, std::span<const double> y, std::span<double> phi) {
                phi[0] = M->phi.value(y[0]) + M->coupling * y[1];
                phi[1] = M->phi.value(y[1]) + M->coupling * y[0];
            });
    }

    void make_second_kind(tolerance_problem& problem) {
        problem.name = "second kind: " + problem.name;
        const auto M = make_memory(problem, false);
        problem.equation = std::make_unique<quenta::equation>(quenta::second_kind(
            [M](double t, std::span<double> g) {
                for (std::size_t a = 0; a < g.size(); ++a)
                    g[a] = M->y[a].value(t) - M->of(a, t);
            },
            int(M->y.size())));
        add_memory(*problem.equation, M);
    }

    void make_first_kind(tolerance_problem& problem) {
        problem.name = "first kind: " + problem.name;
        const auto M = make_memory(problem, true);
        problem.equation = std::make_unique<quenta::equation>(quenta::first_kind(
            [M](double t, std::span<double> g) {
                for (std::size_t a = 0; a < g.size(); ++a)
                    g[a] = M->of(a, t);
            },
            int(M->y.size())));
        add_memory(*problem.equation, M);
    }

    void make_integro_differential(tolerance_problem& problem) {
        problem.name = "integro-differential: " + problem.name;
        const auto M = make_memory(problem, false);
        const double rate = std::pow(10.0, between(-1, 1.5)) / T, cubic = below(2) ? between(0, 1) / T : 0.0;
        const auto local = [=](double y) {
            return -rate * y - cubic * y * y * y;
        };
        std::vector<double> y0;
        for (const shape& y : M->y)
            y0.push_back(y.value(0.0));
        // Newton's method asks for the same times again.
        const auto known = std::make_shared<std::unordered_map<double, std::array<double, 2>>>();
        problem.equation = std::make_unique<quenta::equation>(quenta::integro_differential(
            [=](double t, std::span<const double> y, std::span<double> f) {
                const auto [place, is_new] = known->try_emplace(t);
                for (std::size_t a = 0; is_new && a < y.size(); ++a)
                    place->second[a] = M->y[a].slope(t) - local(M->y[a].value(t)) - M->of(a, t);
                for (std::size_t a = 0; a < y.size(); ++a)
                    f[a] = local(y[a]) + place->second[a];
            },
            y0));
        add_memory(*problem.equation, M);
    }

    std::mt19937_64 random;
    double T = 1.0;
    std::string solution_name;
};

} // namespace quenta_test
