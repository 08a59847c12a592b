// Chosen solutions: the forcing of their equations is computed by quadrature.
#pragma once

#include "equations/library_equation.hpp"
#include "equations/problems.hpp"
#include "reference/equations.hpp"

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace quenta_test {

// Calls visit(s, weight) for the points of the 10-point rule of Gauss on 12 panels of 0 .. t, which is right to
// rounding for the integrands here.
template <class visitor>
void at_quadrature_points(double t, const visitor& visit) {
    static const double x[5] = {0.1488743389816312108848260, 0.4333953941292471907992659, 0.6794095682990244062343274,
                                0.8650633666889845107320967, 0.9739065285171717200779640};
    static const double w[5] = {0.2955242247147528701738930, 0.2692667193099963550912269, 0.2190863625159820439955349,
                                0.1494513491505805931457763, 0.0666713443086881375935688};
    constexpr int panels = 12;
    for (int panel = 0; panel < panels; ++panel) {
        const double half = t / (2 * panels), middle = (2 * panel + 1) * half;
        for (int i = 0; i < 5; ++i)
            for (const double side : {-half, half})
                visit(middle + side * x[i], half * w[i]);
    }
}

// What an equation is made of, for a chosen solution y with the derivative y': the forcing follows from them. With the
// kind 'D', f(t, y) = a(t, y) plus what makes y the solution.
struct chosen_solution {
    using functions = std::function<std::vector<double>(double t)>;

    std::string name;
    char kind;
    double t_end;
    functions y, slope;
    std::vector<reference::equation_term> terms;
    std::function<std::vector<double>(double t, const double* y)> a = {};
    bool is_stiff() const { return name.starts_with("stiff") || name.ends_with("stiff"); }
};

// M(t) of the chosen solution; what was computed is kept.
class chosen_memory {
public:
    explicit chosen_memory(chosen_solution of) : chosen(std::move(of)) {}

    const std::vector<double>& at(double t) {
        const auto [place, is_new] = known.try_emplace(t);
        if (is_new)
            place->second = compute(t);
        return place->second;
    }

private:
    std::vector<double> compute(double t) const {
        std::vector<double> memory(chosen.y(0.0).size());
        for (const reference::equation_term& term : chosen.terms) {
            std::vector<double> K(memory.size() * std::size_t(term.E)), phi(std::size_t(term.E), 0.0);
            at_quadrature_points(t, [&](double s, double weight) {
                const std::vector<double> y = chosen.y(s);
                term.kernel(t, s, K.data());
                if (term.phi)
                    term.phi(s, y.data(), phi.data());
                else
                    phi = y;
                for (std::size_t i = 0; i < K.size(); ++i)
                    memory[i / phi.size()] += weight * K[i] * phi[i % phi.size()];
            });
        }
        return memory;
    }

    chosen_solution chosen;
    std::unordered_map<double, std::vector<double>> known;
};

inline equation_problem equation_of(const chosen_solution& chosen) {
    const auto memory = std::make_shared<chosen_memory>(chosen);
    const auto forcing = [chosen, memory](double t, const double* at, double* values) {
        const std::vector<double> y = chosen.y(t), slope = chosen.slope(t);
        const std::vector<double>& M = memory->at(t);
        for (std::size_t c = 0; c < y.size(); ++c)
            values[c] = chosen.kind == '1' ? M[c] : (chosen.kind == '2' ? y[c] : slope[c]) - M[c];
        if (!chosen.a)
            return;
        const std::vector<double> here = chosen.a(t, at), on_solution = chosen.a(t, y.data());
        for (std::size_t c = 0; c < y.size(); ++c)
            values[c] += here[c] - on_solution[c];
    };
    const int D = int(chosen.y(0.0).size());
    return {chosen.name,      library_equation({chosen.kind, D, forcing, chosen.y(0.0), chosen.terms}),
            chosen.y,         chosen.slope,
            chosen.t_end,     chosen.kind,
            chosen.is_stiff()};
}

// Scalars as one-component vectors.
inline chosen_solution::functions vector_of(std::function<double(double)> y) {
    return [y](double t) {
        return std::vector{y(t)};
    };
}
inline reference::equation_term scalar_term(std::function<double(double, double)> K,
                                            std::function<double(double, double)> phi = {}) {
    reference::equation_term term{1, [K](double t, double s, double* value) { *value = K(t, s); }, {}};
    if (phi)
        term.phi = [phi](double s, const double* y, double* value) {
            *value = phi(s, *y);
        };
    return term;
}

inline std::vector<chosen_solution> chosen_scalars() {
    using std::cos, std::exp, std::sin, std::sqrt;
    const auto cosine = vector_of([](double t) { return cos(t); }),
               minus_sine = vector_of([](double t) { return -sin(t); });
    const auto decay = vector_of([](double t) { return 1 + exp(-t); }),
               decay_slope = vector_of([](double t) { return -exp(-t); });
    return {
        {"stiff_linear", '2', 2, cosine, minus_sine, {scalar_term([](double, double) { return -1e6; })}},
        {"stiff_cubic",
         '2',
         2,
         decay,
         decay_slope,
         {scalar_term([](double t, double s) { return -1e4 * exp(s - t); },
                      [](double, double y) { return y + y * y * y; })}},
        {"vanishing_kernel",
         '2',
         3,
         decay,
         decay_slope,
         {scalar_term([](double t, double s) { return (t - s) * (t - s); }, [](double, double y) { return y * y; })}},
        {"vanishing_at_0", '2', 1.5, cosine, minus_sine, {scalar_term([](double t, double s) { return t * s * s; })}},
        {"growing_kernel",
         '2',
         2,
         decay,
         decay_slope,
         {scalar_term([](double t, double s) { return exp(2 * t - s); },
                      [](double s, double y) { return sin(y + s); })}},
        {"oscillating_kernel",
         '2',
         3,
         decay,
         decay_slope,
         {scalar_term([](double t, double s) { return cos(9 * (t - s) + s); },
                      [](double, double y) { return 1 / (1 + y * y); })}},
        {"two_terms",
         '2',
         2,
         cosine,
         minus_sine,
         {scalar_term([](double t, double s) { return t - 2 * s; }, [](double, double y) { return exp(y); }),
          scalar_term([](double t, double s) { return cos(t * s); })}},
        {"three_terms",
         '2',
         2,
         decay,
         decay_slope,
         {scalar_term([](double t, double s) { return exp(s - t); }, [](double, double y) { return sqrt(y); }),
          scalar_term([](double t, double) { return t; }, [](double s, double y) { return s * y * y; }),
          scalar_term([](double, double s) { return -s; })}},
        {"first_linear_positive", '1', 2, cosine, minus_sine, {scalar_term([](double t, double s) {
             return 2 + t - s;
         })}},
        {"first_linear_negative", '1', 2, cosine, minus_sine, {scalar_term([](double t, double s) {
             return -exp(t * s);
         })}},
        {"first_nonlinear_positive",
         '1',
         2,
         decay,
         decay_slope,
         {scalar_term([](double t, double s) { return cos(t - s); }, [](double, double y) { return y * y * y; })}},
        {"first_nonlinear_negative",
         '1',
         2,
         decay,
         decay_slope,
         {scalar_term([](double t, double s) { return -1 - t * s; },
                      [](double s, double y) { return exp(y) + s * y; })}},
        {"first_two_terms",
         '1',
         1,
         cosine,
         minus_sine,
         {scalar_term([](double t, double s) { return 1 + t - s; }, [](double, double y) { return y * y * y + y; }),
          scalar_term([](double t, double s) { return t * s; })}},
        {"integro_nonlinear",
         'D',
         3,
         decay,
         decay_slope,
         {scalar_term([](double t, double s) { return exp(s - t); }, [](double, double y) { return y * y; })},
         [](double t, const double* y) {
             return std::vector{-y[0] * y[0] * cos(t)};
         }},
        {"integro_two_terms",
         'D',
         2,
         cosine,
         minus_sine,
         {scalar_term([](double t, double s) { return t - s; }),
          scalar_term([](double t, double s) { return t * s; }, [](double s, double y) { return sin(y + s); })}},
        {"integro_stiff",
         'D',
         2,
         decay,
         decay_slope,
         {scalar_term([](double t, double s) { return cos(t - s); })},
         [](double t, const double* y) {
             return std::vector{-1e5 * (y[0] - cos(t)) - y[0] * y[0] * y[0]};
         }},
        {"integro_memory_alone",
         'D',
         3,
         cosine,
         minus_sine,
         {scalar_term([](double t, double s) { return -1 - t * s; }, [](double, double y) { return y * y * y; })}},
    };
}

inline std::vector<chosen_solution> chosen_systems() {
    using std::cos, std::exp, std::sin;
    const chosen_solution::functions circle = [](double t) {
        return std::vector{cos(t), sin(t)};
    };
    const chosen_solution::functions circle_slope = [](double t) {
        return std::vector{-sin(t), cos(t)};
    };
    const chosen_solution::functions three = [](double t) {
        return std::vector{exp(-t), 1 + sin(t), t / (1 + t)};
    };
    const chosen_solution::functions three_slope = [](double t) {
        return std::vector{-exp(-t), cos(t), 1 / ((1 + t) * (1 + t))};
    };
    const reference::equation_term swap{2,
                                        [](double t, double s, double* K) {
                                            K[0] = 2 + t - s;
                                            K[1] = s;
                                            K[2] = -t;
                                            K[3] = -1 - t * s;
                                        },
                                        {}};
    const reference::equation_term small{2,
                                         [](double t, double s, double* K) {
                                             for (int i = 0; i < 4; ++i)
                                                 K[i] = t * s / (i + 4);
                                         },
                                         {}};
    const reference::equation_term product{1,
                                           [](double t, double s, double* K) {
                                               K[0] = t - s;
                                               K[1] = cos(t * s);
                                           },
                                           [](double s, const double* y, double* phi) {
                                               phi[0] = s + y[0] * y[1];
                                           }};
    const reference::equation_term wide{3,
                                        [](double t, double s, double* K) {
                                            for (int i = 0; i < 6; ++i)
                                                K[i] = sin(t + i * s);
                                        },
                                        [](double, const double* y, double* phi) {
                                            phi[0] = y[0] * y[0];
                                            phi[1] = exp(-y[1]);
                                            phi[2] = y[0] * y[1];
                                        }};
    const reference::equation_term three_by_two{2,
                                                [](double t, double s, double* K) {
                                                    for (int i = 0; i < 6; ++i)
                                                        K[i] = exp((i - 3) * (t - s));
                                                },
                                                [](double, const double* y, double* phi) {
                                                    phi[0] = y[0] * y[1] - y[2];
                                                    phi[1] = y[2] * y[2] * y[2];
                                                }};
    const reference::equation_term monotone{2, swap.kernel, [](double, const double* y, double* phi) {
                                                phi[0] = y[0] + 0.3 * sin(y[1]);
                                                phi[1] = y[1] + y[1] * y[1] * y[1];
                                            }};
    return {
        {"system_one_column", '2', 2, circle, circle_slope, {product}},
        {"system_three_columns_and_linear", '2', 2, circle, circle_slope, {wide, swap}},
        {"system_of_three", '2', 2, three, three_slope, {three_by_two}},
        {"system_first_kind", '1', 1, circle, circle_slope, {swap}},
        {"system_first_kind_nonlinear", '1', 1, circle, circle_slope, {monotone, small}},
        {"system_integro",
         'D',
         2,
         circle,
         circle_slope,
         {wide, product},
         [](double, const double* y) {
             return std::vector{-y[0] * y[0] * y[0], y[0] * y[1]};
         }},
        {"system_integro_of_three",
         'D',
         2,
         three,
         three_slope,
         {three_by_two},
         [](double t, const double* y) {
             return std::vector{-y[0] * y[1], t * y[2], -y[0] - y[2]};
         }},
    };
}

// The closed forms, and the equations with a chosen solution.
inline const std::vector<equation_problem>& all_problems() {
    static const std::vector<equation_problem> all = [] {
        std::vector<equation_problem> list = closed_forms();
        for (const auto& chosen : {chosen_scalars(), chosen_systems()})
            for (const chosen_solution& one : chosen)
                list.push_back(equation_of(one));
        return list;
    }();
    return all;
}

} // namespace quenta_test
