// quenta_equations for C++20: equations from lambdas, solutions that are functions, and histories.
//
//     const auto y = quenta::second_kind([](double t) { return std::exp(-t) - t * t; })
//                        .memory([](double t, double s) { return t * std::exp(s); })
//                        .solve(2.0, quenta::to_tolerance(1e-10));
//     std::printf("%.10f\n", y(1.5));
//
// quenta_equations.h describes the equations, the schemes and the rules. A function is called for one point at a time
// by a loop that is compiled with it, so a short function is inlined. Scalar functions return their value. Functions of
// systems write to a span: a vector of D or E components, or a matrix by rows.
//
//     g(t) -> double                  or  g(t, std::span<double> values)
//     K(t, s) -> double               or  K(t, s, std::span<double> values), D by E
//     K(lag) -> double                or  K(lag, std::span<double> values)
//     phi(s, y) -> double             or  phi(s, std::span<const double> y, std::span<double> values)
//     f(t, y), derivatives            likewise
//     w(t), past(t)                   as g(t); w is D by E, or a number
//
// A kernel that is infinite at s = t is (t - s)^-alpha times a smooth one, which is written as
//
//     quenta::weakly_singular(alpha, K)                                  0 <= alpha < 1
//
// A function that returns a number where D or E is above 1 is refused by std::invalid_argument. An exception from a
// function ends the solve and reaches its caller.
#ifndef QUENTA_EQUATIONS_HPP
#define QUENTA_EQUATIONS_HPP

#if __cplusplus < 202002L
#error "quenta_equations.hpp: expected C++20 or later, got an older standard; quenta_equations.h is for those"
#endif

#include "quenta_equations.h"

#include <cstddef>
#include <exception>
#include <initializer_list>
#include <memory>
#include <span>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace quenta {

class equation;

// An argument that cannot be accepted; what() says what was expected.
class equation_error : public std::runtime_error {
public:
    explicit equation_error(int why) : std::runtime_error(quenta_equations_error_text(why)), status(why) {}
    int status; // QUENTA_EQUATION_...
};

// y on 0 .. t_end: a polynomial on each step. A copy shares the data, which never change.
class solution {
public:
    // Takes over an object of the C interface.
    explicit solution(quenta_solution* owned) : object(owned, quenta_solution_destroy) {}

    int steps() const { return quenta_solution_steps(object.get()); }
    int dimension() const { return quenta_solution_dimension(object.get()); }

    // The mesh points, and y there: component a at mesh point n is at n * dimension() + a.
    std::span<const double> mesh() const { return {quenta_solution_mesh(object.get()), points()}; }
    std::span<const double> values() const {
        return {quenta_solution_values(object.get()), points() * std::size_t(dimension())};
    }
    // The estimated largest error of each component; empty unless the solve was to a tolerance.
    std::span<const double> error() const {
        const double* const estimates = quenta_solution_error(object.get());
        return {estimates, estimates ? std::size_t(dimension()) : 0};
    }

    // y or y' of a scalar equation, or the first component.
    double operator()(double t) const { return at(t)[0]; }
    double derivative(double t) const { return derivative_at(t)[0]; }

    // All components.
    std::vector<double> at(double t) const { return evaluate(quenta_solution_evaluate, t); }
    std::vector<double> derivative_at(double t) const { return evaluate(quenta_solution_derivative, t); }

    const quenta_solution* get() const { return object.get(); }

private:
    std::size_t points() const { return std::size_t(steps()) + 1; }

    template <class function>
    std::vector<double> evaluate(function evaluator, double t) const {
        std::vector<double> y(static_cast<std::size_t>(dimension()));
        if (const int status = evaluator(object.get(), 1, &t, y.data()))
            throw equation_error(status);
        return y;
    }

    std::shared_ptr<quenta_solution> object;
};

// A solve that did not reach its end or its tolerance. `partial` contains the steps before the one that failed, or the
// best solution.
class solve_failure : public equation_error {
public:
    solve_failure(int why, solution steps_before) : equation_error(why), partial(std::move(steps_before)) {}
    solution partial;
};

// The kernel (t - s)^-alpha K, where K is a function of (t, s) or of the lag.
template <class kernel>
struct weakly_singular {
    weakly_singular(double singularity, kernel smooth) : alpha(singularity), K(std::move(smooth)) {}
    double alpha;
    kernel K;
};

// How to solve: on how many steps, on which mesh, or to which tolerance; with P nodes of a family, or any nodes.
struct solve_options {
    enum class way { steps, mesh, tolerance };
    way how = way::tolerance;
    int steps = 0;
    bool always_equal = false;
    std::vector<double> mesh;
    double rtol = 0.0, atol = 0.0;
    int max_steps = 0;
    std::vector<double> own_nodes;
    int family = QUENTA_RADAU, P = 0; // 0: 3 nodes of Radau IIA, or 5 with a tolerance or a singular kernel

    solve_options nodes(int of_family, int count) const {
        solve_options changed = *this;
        changed.family = of_family;
        changed.P = count;
        changed.own_nodes.clear();
        return changed;
    }
    solve_options nodes(std::initializer_list<double> c) const {
        solve_options changed = *this;
        changed.own_nodes = c;
        return changed;
    }
};

// So many steps. They are equal unless a kernel is singular; then half of them are graded, and lie near 0. With delay
// terms there may be more, because the mesh contains the breaking points.
inline solve_options steps(int count) {
    solve_options options;
    options.how = solve_options::way::steps;
    options.steps = count;
    return options;
}
// Equal steps also if a kernel is singular or there are delay terms.
inline solve_options equal_steps(int count) {
    solve_options options = steps(count);
    options.always_equal = true;
    return options;
}
inline solve_options on_mesh(std::vector<double> mesh) {
    solve_options options;
    options.how = solve_options::way::mesh;
    options.mesh = std::move(mesh);
    return options;
}
// With an atol of 0, the error is at most rtol times the largest |y| of the component.
inline solve_options to_tolerance(double rtol, double atol = 0.0, int max_steps = 0) {
    solve_options options;
    options.rtol = rtol;
    options.atol = atol;
    options.max_steps = max_steps;
    return options;
}

namespace detail {

// The exception of a function, on its way through the C interface.
inline thread_local std::exception_ptr thrown;

template <class loop>
int guarded(const loop& run) noexcept {
    try {
        run();
        return 0;
    } catch (...) {
        thrown = std::current_exception();
        return 1;
    }
}

// A kernel as a singularity and a smooth function.
template <class kernel>
weakly_singular<kernel> with_singularity(kernel K) {
    return {0.0, std::move(K)};
}
template <class kernel>
weakly_singular<kernel> with_singularity(weakly_singular<kernel> K) {
    return K;
}

// A number as a function of time; a function as it is.
template <class function_or_number>
auto as_function(function_or_number f) {
    if constexpr (std::is_arithmetic_v<function_or_number>)
        return [value = double(f)](double) {
            return value;
        };
    else
        return f;
}

inline void rethrow() {
    if (thrown)
        std::rethrow_exception(std::exchange(thrown, nullptr));
}

inline void check(int status) {
    if (status != QUENTA_EQUATION_SOLVED)
        throw equation_error(status);
}

inline std::size_t size_t_of(int count) {
    return count > 0 ? std::size_t(count) : 0;
}

// A function that returns a number has one value at a point, and takes one component of y.
inline void check_shape(bool returns_number, std::size_t values, std::size_t components = 1) {
    if (returns_number && (values > 1 || components > 1))
        throw std::invalid_argument(
            "expected a function that writes its values to a std::span, because D or E is above "
            "1, got one that returns a number");
}

// A function of a time or of a lag, with `width` values at each point.
template <class F>
struct time_function {
    static constexpr bool returns_number = std::is_invocable_r_v<double, F&, double>;
    F function;
    std::size_t width;

    time_function(F f, std::size_t values) : function(std::move(f)), width(values) {
        check_shape(returns_number, width);
    }

    static int call(void* context, int count, const double* t, const double*, double* values) noexcept {
        auto& self = *static_cast<time_function*>(context);
        return guarded([&] {
            for (int p = 0; p < count; ++p)
                if constexpr (returns_number)
                    values[p] = self.function(t[p]);
                else
                    self.function(t[p], std::span<double>(values + std::size_t(p) * self.width, self.width));
        });
    }
};

// A function of two times.
template <class F>
struct kernel_function {
    static constexpr bool returns_number = std::is_invocable_r_v<double, F&, double, double>;
    F function;
    std::size_t width;

    kernel_function(F f, std::size_t values) : function(std::move(f)), width(values) {
        check_shape(returns_number, width);
    }

    static int call(void* context, int count, const double* t, const double* s, double* values) noexcept {
        auto& self = *static_cast<kernel_function*>(context);
        return guarded([&] {
            for (int p = 0; p < count; ++p)
                if constexpr (returns_number)
                    values[p] = self.function(t[p], s[p]);
                else
                    self.function(t[p], s[p], std::span<double>(values + std::size_t(p) * self.width, self.width));
        });
    }
};

// A function of a time and of y with D components.
template <class F>
struct state_function {
    static constexpr bool returns_number = std::is_invocable_r_v<double, F&, double, double>;
    F function;
    std::size_t width, D;

    state_function(F f, std::size_t values, std::size_t components)
        : function(std::move(f)), width(values), D(components) {
        check_shape(returns_number, width, D);
    }

    static int call(void* context, int count, const double* t, const double* y, double* values) noexcept {
        auto& self = *static_cast<state_function*>(context);
        return guarded([&] {
            for (int p = 0; p < count; ++p)
                if constexpr (returns_number)
                    values[p] = self.function(t[p], y[p]);
                else
                    self.function(t[p], std::span<const double>(y + std::size_t(p) * self.D, self.D),
                                  std::span<double>(values + std::size_t(p) * self.width, self.width));
        });
    }
};

} // namespace detail

// An equation and its functions. A copy refers to the same equation.
class equation {
public:
    // Adds a memory term with the kernel K(t, s) and phi(s, y) = y, or with phi and, where it is known, d phi / dy. A
    // system needs E, the number of columns of K and of components of phi, if it is not D.
    template <class kernel>
    equation& memory(kernel K) {
        return add_memory<detail::kernel_function>(quenta_equation_add_memory, std::move(K), D);
    }
    template <class kernel, class nonlinearity>
    equation& memory(kernel K, nonlinearity phi, int E = 0) {
        return memory(std::move(K), std::move(phi), nullptr, E);
    }
    template <class kernel, class nonlinearity, class slope>
    requires(!std::is_arithmetic_v<slope>) equation& memory(kernel K, nonlinearity phi, slope derivative, int E = 0) {
        return add_memory<detail::kernel_function>(quenta_equation_add_memory, std::move(K), columns_of(E))
            .set_phi(std::move(phi), std::move(derivative), columns_of(E));
    }

    // The same with a kernel K(t - s) of the lag.
    template <class kernel>
    equation& lag_memory(kernel K) {
        return add_memory<detail::time_function>(quenta_equation_add_lag_memory, std::move(K), D);
    }
    template <class kernel, class nonlinearity>
    equation& lag_memory(kernel K, nonlinearity phi, int E = 0) {
        return lag_memory(std::move(K), std::move(phi), nullptr, E);
    }
    template <class kernel, class nonlinearity, class slope>
    requires(!std::is_arithmetic_v<slope>) equation& lag_memory(kernel K, nonlinearity phi, slope derivative,
                                                                int E = 0) {
        return add_memory<detail::time_function>(quenta_equation_add_lag_memory, std::move(K), columns_of(E))
            .set_phi(std::move(phi), std::move(derivative), columns_of(E));
    }

    // Adds the delay term w(t) phi(t - tau, y(t - tau)). phi(s, y) = y unless it is given. w is a function, a number,
    // or, if it is not given, 1 or the unit matrix.
    equation& delay(double tau) {
        detail::check(quenta_equation_add_delay(get(), D, tau, nullptr, nullptr));
        state->is_equal = false;
        return *this;
    }
    template <class weight>
    equation& delay(double tau, weight w) {
        return add_delay(tau, std::move(w), D);
    }
    template <class weight, class nonlinearity>
    equation& delay(double tau, weight w, nonlinearity phi, int E = 0) {
        return add_delay(tau, std::move(w), columns_of(E)).set_phi(std::move(phi), nullptr, columns_of(E));
    }

    // y before 0, for the delay terms, which are 0 there without it. A function or a number.
    template <class function_or_number>
    equation& past(function_or_number y) {
        auto before_0 = detail::as_function(std::move(y));
        using function = detail::time_function<decltype(before_0)>;
        detail::check(quenta_equation_set_past(get(), function::call,
                                               keep<function>({std::move(before_0), detail::size_t_of(D)})));
        return *this;
    }

    // d f / dy of an integro-differential equation.
    template <class slope>
    equation& jacobian(slope df_dy) {
        using function = detail::state_function<slope>;
        detail::check(quenta_equation_set_jacobian(
            get(), function::call, keep<function>({std::move(df_dy), detail::size_t_of(D * D), detail::size_t_of(D)})));
        return *this;
    }

    // Where the first step of a nonlinear first-kind equation starts its iteration.
    equation& first_guess(std::span<const double> y) {
        detail::check(int(y.size()) == D ? quenta_equation_set_first_guess(get(), y.data())
                                         : QUENTA_EQUATION_BAD_START);
        return *this;
    }
    equation& first_guess(double y) { return first_guess(std::span<const double>(&y, 1)); }

    // Throws equation_error for an argument, solve_failure for a solve that ended early, and what a function threw.
    solution solve(double t_end, const solve_options& options) const {
        std::vector<double> nodes = options.own_nodes;
        if (nodes.empty() && options.P != 0) {
            nodes.resize(std::size_t(quenta_equation_max_nodes()));
            detail::check(quenta_equation_nodes(options.family, options.P, nodes.data()));
            nodes.resize(std::size_t(options.P));
        }
        const int P = int(nodes.size());
        const double* const c = nodes.empty() ? nullptr : nodes.data();
        quenta_solution* solved = nullptr;
        detail::thrown = nullptr;
        int status = QUENTA_EQUATION_BAD_MESH;
        if (options.how == solve_options::way::steps && options.always_equal && options.steps > 0 && !state->is_equal) {
            std::vector<double> mesh;
            for (int n = 0; n <= options.steps; ++n)
                mesh.push_back(t_end * (double(n) / options.steps));
            status = quenta_equation_solve_on_mesh(get(), mesh.data(), options.steps, c, P, &solved);
        } else if (options.how == solve_options::way::steps)
            status = quenta_equation_solve(get(), t_end, options.steps, c, P, &solved);
        else if (options.how == solve_options::way::tolerance)
            status = quenta_equation_solve_to_tolerance(get(), t_end, options.rtol, options.atol, options.max_steps, c,
                                                        P, &solved);
        else if (!options.mesh.empty() && options.mesh.back() == t_end)
            status =
                quenta_equation_solve_on_mesh(get(), options.mesh.data(), int(options.mesh.size()) - 1, c, P, &solved);
        return finish(status, solved);
    }

    // g + M with the polynomials of a solution of this second-kind equation: more accurate between the nodes.
    std::vector<double> iterate(const solution& y, std::span<const double> t) const {
        std::vector<double> values(t.size() * detail::size_t_of(D));
        detail::thrown = nullptr;
        const int status = quenta_solution_iterate(y.get(), get(), int(t.size()), t.data(), values.data());
        detail::rethrow();
        detail::check(status);
        return values;
    }

    quenta_equation* get() const { return state->object.get(); }

    // second_kind, first_kind and integro_differential below call this: create(context, &object) makes the object.
    template <class function, class creator>
    static equation make(int D, function f, const creator& create) {
        equation created(D);
        quenta_equation* object = nullptr;
        detail::check(create(created.keep<function>(std::move(f)), &object));
        created.state->object.reset(object);
        return created;
    }

private:
    struct owner {
        std::vector<std::shared_ptr<void>> functions;
        std::unique_ptr<quenta_equation, void (*)(quenta_equation*)> object{nullptr, quenta_equation_destroy};
        bool is_equal = true; // the steps that the library chooses
    };

    explicit equation(int dimension) : D(dimension) {}

    int columns_of(int E) const { return E > 0 ? E : D; }
    static solution finish(int status, quenta_solution* solved) {
        if (!solved) {
            detail::rethrow();
            throw equation_error(status);
        }
        solution y(solved);
        detail::rethrow();
        if (status != QUENTA_EQUATION_SOLVED)
            throw solve_failure(status, std::move(y));
        return y;
    }

    // The address of a copy of the function, which lives as long as the equation.
    template <class function>
    void* keep(function f) {
        state->functions.push_back(std::make_shared<function>(std::move(f)));
        return state->functions.back().get();
    }

    template <template <class> class wrapper, class adder, class kernel>
    equation& add_memory(adder add, kernel of_any_form, int E) {
        auto [alpha, K] = detail::with_singularity(std::move(of_any_form));
        using function = wrapper<decltype(K)>;
        detail::check(add(get(), E, alpha, function::call,
                          keep<function>({std::move(K), detail::size_t_of(D) * detail::size_t_of(E)})));
        state->is_equal = state->is_equal && alpha == 0.0;
        return *this;
    }

    template <class weight>
    equation& add_delay(double tau, weight function_or_number, int E) {
        auto w = detail::as_function(std::move(function_or_number));
        using function = detail::time_function<decltype(w)>;
        detail::check(
            quenta_equation_add_delay(get(), E, tau, function::call,
                                      keep<function>({std::move(w), detail::size_t_of(D) * detail::size_t_of(E)})));
        state->is_equal = false;
        return *this;
    }

    template <class nonlinearity, class slope>
    equation& set_phi(nonlinearity phi, slope derivative, int E) {
        // One context serves both functions.
        if constexpr (std::is_same_v<slope, std::nullptr_t>) {
            using function = detail::state_function<nonlinearity>;
            detail::check(
                quenta_equation_set_phi(get(), function::call, nullptr,
                                        keep<function>({std::move(phi), detail::size_t_of(E), detail::size_t_of(D)})));
        } else {
            using value = detail::state_function<nonlinearity>;
            using derivative_of_value = detail::state_function<slope>;
            struct both {
                value phi;
                derivative_of_value derivative;
                static int call_phi(void* c, int count, const double* t, const double* y, double* values) noexcept {
                    return value::call(&static_cast<both*>(c)->phi, count, t, y, values);
                }
                static int call_derivative(void* c, int count, const double* t, const double* y,
                                           double* values) noexcept {
                    return derivative_of_value::call(&static_cast<both*>(c)->derivative, count, t, y, values);
                }
            };
            detail::check(quenta_equation_set_phi(
                get(), both::call_phi, both::call_derivative,
                keep<both>(
                    {{std::move(phi), detail::size_t_of(E), detail::size_t_of(D)},
                     {std::move(derivative), detail::size_t_of(E) * detail::size_t_of(D), detail::size_t_of(D)}})));
        }
        return *this;
    }

    int D;
    std::shared_ptr<owner> state = std::make_shared<owner>();
};

// y = g + M, with D components.
template <class F>
equation second_kind(F g, int D = 1) {
    using function = detail::time_function<F>;
    return equation::make<function>(D, {std::move(g), detail::size_t_of(D)},
                                    [&](void* context, quenta_equation** object) {
                                        return quenta_equation_second_kind(D, function::call, context, object);
                                    });
}

// M = g.
template <class F>
equation first_kind(F g, int D = 1) {
    using function = detail::time_function<F>;
    return equation::make<function>(D, {std::move(g), detail::size_t_of(D)},
                                    [&](void* context, quenta_equation** object) {
                                        return quenta_equation_first_kind(D, function::call, context, object);
                                    });
}

// y' = f(t, y) + M, y(0) = y0. A null f is 0.
template <class F>
equation integro_differential(F f, std::span<const double> y0) {
    const int D = int(y0.size());
    if constexpr (std::is_same_v<F, std::nullptr_t>)
        return equation::make<std::nullptr_t>(D, f, [&](void*, quenta_equation** object) {
            return quenta_equation_integro_differential(D, nullptr, nullptr, y0.data(), object);
        });
    else {
        using function = detail::state_function<F>;
        return equation::make<function>(
            D, {std::move(f), y0.size(), y0.size()}, [&](void* context, quenta_equation** object) {
                return quenta_equation_integro_differential(D, function::call, context, y0.data(), object);
            });
    }
}
template <class F>
equation integro_differential(F f, double y0) {
    return integro_differential(std::move(f), std::span<const double>(&y0, 1));
}

namespace detail {

// A function that writes the block of a lag.
template <class F>
struct block_function {
    F function;
    std::size_t size;

    static int call(void* context, int lag, double* block) noexcept {
        auto& self = *static_cast<block_function*>(context);
        return guarded([&] { self.function(lag, std::span<double>(block, self.size)); });
    }
};

} // namespace detail

// The sums over the previous steps of a convolution, for a program that has its own time stepping:
//
//     quenta::history history([&](int lag) { return h * std::exp(-lag * h); }, steps);
//     for (int n = 0; n < steps; ++n) {
//         const double sum = history.sum()[0]; // over k = 0 .. n-1 of block(n - k) x_k
//         ...
//         history.push(x);
//     }
//
// A constructor calls the function for each lag from 1 to steps - 1, and does not keep it. Every member throws
// equation_error for a status other than QUENTA_EQUATION_SOLVED; a constructor also throws what the function threw.
class history {
public:
    // Matrices: block(lag, std::span<double> values), by rows. All values are 0 before the call.
    template <class F>
    requires std::is_invocable_v<F&, int, std::span<double>> history(F block, int rows, int columns, int steps) {
        detail::block_function<F> function{std::move(block), std::size_t(rows) * std::size_t(columns)};
        quenta_history* created = nullptr;
        detail::thrown = nullptr;
        const int status = quenta_history_from_function(rows, columns, steps, function.call, &function, &created);
        detail::rethrow();
        keep(status, created, rows, columns);
    }

    // Numbers: block(lag) -> double.
    template <class F>
    requires std::is_invocable_r_v<double, F&, int> history(F block, int steps)
        : history([&](int lag, std::span<double> values) { values[0] = block(lag); }, 1, 1, steps) {}

    // The blocks of the lags from 1 to steps - 1 in an array.
    history(std::span<const double> blocks, int rows, int columns, int steps) {
        const bool complete = blocks.size() == (std::size_t(steps) - 1) * std::size_t(rows) * std::size_t(columns);
        quenta_history* created = nullptr;
        int status = quenta_history_from_blocks(rows, columns, steps, complete ? blocks.data() : nullptr, &created);
        if (!complete && (status == QUENTA_EQUATION_NULL_POINTER || status == QUENTA_EQUATION_SOLVED))
            status = QUENTA_EQUATION_BAD_BLOCKS; // the sizes are valid
        keep(status, created, rows, columns);
    }

    // The sum of the present step, one number for each row. The array changes with the next call.
    std::span<const double> sum() {
        detail::check(quenta_history_sum(get(), present.data()));
        return present;
    }

    // Ends the present step with one number for each column. If it throws, the history is as before.
    void push(std::span<const double> x) {
        detail::check(x.size() == width ? quenta_history_push(get(), x.data()) : QUENTA_EQUATION_BAD_PUSH);
    }
    void push(double x) { push(std::span<const double>(&x, 1)); }

    int steps_done() const { return quenta_history_steps_done(get()); }

    quenta_history* get() const { return object.get(); }

private:
    void keep(int status, quenta_history* created, int rows, int columns) {
        object.reset(created);
        detail::check(status);
        width = std::size_t(columns);
        present.resize(std::size_t(rows));
    }

    std::unique_ptr<quenta_history, void (*)(quenta_history*)> object{nullptr, quenta_history_destroy};
    std::size_t width = 0;
    std::vector<double> present;
};

} // namespace quenta

#endif
