// Equations of every kind and shape, through the C interface. Their functions are polynomials with random coefficients.
// Each call of a function checks the points it gets, reads them all, and writes all values.
#pragma once

#include "quenta_equations.h"
#include "support/random_data.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <ostream>
#include <span>
#include <vector>

namespace quenta_tests {

struct term_shape {
    int E;
    bool of_lag, has_phi, has_derivative;
    double alpha = 0.0; // the singularity
};

struct equation_shape {
    char kind; // '1', '2', or 'D' for an integro-differential equation
    int D;
    bool has_right_side, has_jacobian; // f of an integro-differential equation, and its derivative
    std::vector<term_shape> terms;

    bool is_linear() const {
        return !(kind == 'D' && has_right_side) &&
               std::none_of(terms.begin(), terms.end(), [](const term_shape& term) { return term.has_phi; });
    }
};

inline std::ostream& operator<<(std::ostream& stream, const equation_shape& shape) {
    stream << "kind " << shape.kind << ", D = " << shape.D << (shape.has_right_side ? ", f" : "")
           << (shape.has_jacobian ? ", df/dy" : "");
    for (const term_shape& term : shape.terms)
        stream << "; E = " << term.E << (term.of_lag ? ", lag" : "") << (term.has_phi ? ", phi" : "")
               << (term.has_derivative ? ", dphi/dy" : "") << (term.alpha > 0.0 ? ", singular" : "");
    return stream;
}

// Called by every function before it computes its values, if it is set. Not 0: the function returns that.
inline thread_local std::function<int()> at_each_call;

struct release {
    void operator()(quenta_equation* object) const { quenta_equation_destroy(object); }
    void operator()(quenta_solution* object) const { quenta_solution_destroy(object); }
};
using owned_solution = std::unique_ptr<quenta_solution, release>;

// Values of polynomials in t, s and y, and their derivatives by y. Coefficients of row a:
//     constant, t, s, t*s, then those of y, and that of the square of one component of y
class polynomials {
public:
    template <class source>
    polynomials(source& random, int of_rows, int columns, int dimension, double size)
        : rows{of_rows * columns}, D{dimension},
          coefficients(random.uniform(std::size_t(rows * length()), -size, size)) {}

    double& of_one(int row) { return coefficients[std::size_t(row * length())]; }
    double& of_y(int row, int b) { return coefficients[std::size_t(row * length() + 4 + b)]; }
    double of(int row, int power) const { return coefficients[std::size_t(row * length() + power)]; }

    // A null s or y is 0.
    double value(int row, double t, double s, const double* y) const {
        double sum = of(row, 0) + of(row, 1) * t + of(row, 2) * s + of(row, 3) * t * s;
        if (y != nullptr) {
            for (int b = 0; b < D; ++b)
                sum += of(row, 4 + b) * y[b];
            sum += of(row, 4 + D) * y[row % D] * y[row % D];
        }
        return sum;
    }
    double derivative(int row, int b, const double* y) const {
        return of(row, 4 + b) + (b == row % D ? 2.0 * of(row, 4 + D) * y[b] : 0.0);
    }

    const int rows, D;

private:
    int length() const { return 4 + D + 1; }

    std::vector<double> coefficients;
};

class polynomial_equation {
public:
    // A first-kind equation can be solved if g(0) = 0 and K(t, t) is regular; here it has a diagonal part.
    // source::uniform(count, lowest, highest) gives the coefficients.
    template <class source>
    polynomial_equation(source& random, equation_shape of_shape, double size = 0.3)
        : shape{std::move(of_shape)}, forcing{make(random, shape.D, 1, size)},
          start(random.uniform(std::size_t(shape.D), -size, size)) {
        if (shape.kind == '1')
            for (int a = 0; a < shape.D; ++a)
                forcing.functions.of_one(a) = 0.0;
        for (double& value : start)
            value = std::isfinite(value) ? value : 0.0;
        create();
        for (const term_shape& term : shape.terms)
            add_term(random, term, size);
    }
    polynomial_equation(const polynomial_equation&) = delete;
    polynomial_equation& operator=(const polynomial_equation&) = delete;

    owned_solution solve(double t_end, int steps, std::span<const double> nodes, int& status) const {
        quenta_solution* solution = nullptr;
        status = quenta_equation_solve(get(), t_end, steps, nodes.empty() ? nullptr : nodes.data(), int(nodes.size()),
                                       &solution);
        return owned_solution{solution};
    }

    quenta_equation* get() const { return object.get(); }

    struct functions_of_term {
        const polynomials &kernel, &phi; // phi of a linear term is not used
    };

    const equation_shape shape;

private:
    struct context {
        polynomials functions;
        bool of_lag = false;
    };
    using pointwise = void (*)(const context& of, double t, double s, const double* y, double* values);

    template <class source>
    context& make(source& random, int rows, int columns, double size) {
        return contexts.emplace_back(context{polynomials{random, rows, columns, shape.D, size}});
    }

    // Calls `at` for each point. x is an array of `width` numbers for each point, or null.
    template <pointwise at>
    static int call(const context& of, int count, int values_of_a_point, const double* t, const double* s,
                    const double* y, double* values) {
        if (at_each_call)
            if (const int status = at_each_call(); status != 0)
                return status;
        if (count < 1 || t == nullptr || values == nullptr)
            ADD_FAILURE() << "expected at least one point, and arrays, got " << count;
        for (int p = 0; p < count; ++p) {
            if (!(t[p] >= 0.0) || (s != nullptr && !(s[p] >= 0.0 && s[p] <= t[p])))
                ADD_FAILURE() << "expected 0 <= s <= t, got t = " << t[p] << ", s = " << (s ? s[p] : 0.0);
            at(of, t[p], s == nullptr ? 0.0 : s[p], y == nullptr ? nullptr : y + std::ptrdiff_t{p} * of.functions.D,
               values + std::ptrdiff_t{p} * values_of_a_point);
        }
        return 0;
    }
    static void values_at(const context& of, double t, double s, const double* y, double* values) {
        for (int row = 0; row < of.functions.rows; ++row)
            values[row] = of.functions.value(row, t, s, y);
    }
    static void derivatives_at(const context& of, double, double, const double* y, double* values) {
        for (int row = 0; row < of.functions.rows; ++row)
            for (int b = 0; b < of.functions.D; ++b)
                *values++ = of.functions.derivative(row, b, y);
    }

    static int time_function(void* data, int count, const double* t, const double* x, double* values) {
        const context& of = *static_cast<context*>(data);
        EXPECT_EQ(x, nullptr);
        return call<values_at>(of, count, of.functions.rows, t, nullptr, nullptr, values);
    }
    static int kernel_function(void* data, int count, const double* t, const double* s, double* values) {
        const context& of = *static_cast<context*>(data);
        EXPECT_NE(s, nullptr);
        return call<values_at>(of, count, of.functions.rows, t, s, nullptr, values);
    }
    static int state_function(void* data, int count, const double* t, const double* y, double* values) {
        const context& of = *static_cast<context*>(data);
        EXPECT_NE(y, nullptr);
        return call<values_at>(of, count, of.functions.rows, t, nullptr, y, values);
    }
    static int state_derivative(void* data, int count, const double* t, const double* y, double* values) {
        const context& of = *static_cast<context*>(data);
        EXPECT_NE(y, nullptr);
        return call<derivatives_at>(of, count, of.functions.rows * of.functions.D, t, nullptr, y, values);
    }

    void create() {
        quenta_equation* created = nullptr;
        int status = 0;
        if (shape.kind == 'D')
            status = quenta_equation_integro_differential(shape.D, shape.has_right_side ? state_function : nullptr,
                                                          &forcing, start.data(), &created);
        else
            status = (shape.kind == '1' ? quenta_equation_first_kind
                                        : quenta_equation_second_kind)(shape.D, time_function, &forcing, &created);
        EXPECT_EQ(status, 0);
        object.reset(created);
        if (shape.kind == 'D' && shape.has_jacobian)
            status = quenta_equation_set_jacobian(created, state_derivative, &forcing);
        EXPECT_EQ(status, 0);
    }
    template <class source>
    void add_term(source& random, const term_shape& term, double size) {
        context& kernel = make(random, shape.D, term.E, size);
        if (shape.kind == '1')
            for (int a = 0; a < std::min(shape.D, term.E); ++a)
                kernel.functions.of_one(a * term.E + a) += 3.0;
        context& phi = make(random, term.E, 1, size / 3);
        for (int e = 0; e < term.E; ++e)
            phi.functions.of_y(e, e % shape.D) += 1.0;
        const auto add = term.of_lag ? quenta_equation_add_lag_memory : quenta_equation_add_memory;
        int status = add(get(), term.E, term.alpha, term.of_lag ? time_function : kernel_function, &kernel);
        if (term.has_phi)
            status +=
                quenta_equation_set_phi(get(), state_function, term.has_derivative ? state_derivative : nullptr, &phi);
        EXPECT_EQ(status, 0);
        terms.push_back({kernel.functions, phi.functions});
    }

    std::deque<context> contexts; // their addresses do not change
    context& forcing;
    std::unique_ptr<quenta_equation, release> object;

public:
    const polynomials& right_side() const { return forcing.functions; }
    std::vector<double> start;
    std::vector<functions_of_term> terms;
};

// A few shapes of each kind: linear and nonlinear, with both forms of kernels and of derivatives, E = D and not, smooth
// and singular.
inline std::vector<equation_shape> every_shape() {
    std::vector<equation_shape> shapes;
    for (const char kind : {'1', '2', 'D'})
        for (const int D : {1, 3}) {
            const term_shape linear{D, false, false, false}, linear_lag{D, true, false, false};
            const term_shape singular{D, false, false, false, 0.5}, singular_lag{D, true, false, false, 0.4},
                singular_nonlinear{D + 1, false, true, false, 0.3};
            const term_shape nonlinear{D + 1, false, true, false}, nonlinear_lag{D, true, true, true};
            for (const bool f : kind == 'D' ? std::vector{false, true} : std::vector{false}) {
                shapes.push_back({kind, D, f, false, {linear}});
                shapes.push_back({kind, D, f, f, {linear, linear_lag}});
                shapes.push_back({kind, D, f, false, {nonlinear}});
                shapes.push_back({kind, D, f, f, {linear_lag, nonlinear, nonlinear_lag}});
                shapes.push_back({kind, D, f, false, {singular}});
                shapes.push_back({kind, D, f, f, {singular_lag, linear, singular_nonlinear}});
            }
        }
    return shapes;
}

// The arrays of a solution, one after another, and its polynomials and their derivatives at 50 times.
inline std::vector<double> everything_in(const quenta_solution* solution) {
    const std::size_t D = std::size_t(quenta_solution_dimension(solution)),
                      points = std::size_t(quenta_solution_steps(solution)) + 1;
    const double *const mesh = quenta_solution_mesh(solution), *const values = quenta_solution_values(solution),
                        *const error = quenta_solution_error(solution);
    std::vector<double> all(mesh, mesh + points);
    all.insert(all.end(), values, values + points * D);
    if (error != nullptr)
        all.insert(all.end(), error, error + D);
    constexpr int times = 50;
    std::vector<double> t(times), y(times * D);
    for (int k = 0; k < times; ++k)
        t[std::size_t(k)] = mesh[points - 1] * k / (times - 1);
    t.back() = mesh[points - 1];
    for (const auto evaluate : {quenta_solution_evaluate, quenta_solution_derivative}) {
        EXPECT_EQ(evaluate(solution, times, t.data(), y.data()), 0);
        all.insert(all.end(), y.begin(), y.end());
    }
    return all;
}

} // namespace quenta_tests
