// The exports: the checks of the arguments, and the status of what was thrown inside.
#include "quenta_equations/quenta_equations.h"

#include "quenta_equations/default_mesh.hpp"
#include "quenta_equations/delay_terms.hpp" // same_time
#include "quenta_equations/equation.hpp"
#include "quenta_equations/error_control.hpp"
#include "quenta_equations/export_checks.hpp"
#include "quenta_equations/iterated_solution.hpp"
#include "quenta_equations/march.hpp"
#include "quenta_equations/nodes.hpp"
#include "quenta_equations/solution.hpp"
#include "quenta_equations/status.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

using namespace quenta;

namespace {

constexpr int max_dimension = 1000, default_max_steps = 16384;
constexpr int min_max_steps = 64; // see error_control.cpp

// The number of nodes if the caller leaves the choice to the library. To a tolerance, and at the start of a singular
// equation, the higher order needs fewer evaluations of the kernel.
constexpr int usual_nodes = 3, nodes_to_tolerance = 5, nodes_if_singular = 5;

std::unique_ptr<quenta_equation> new_equation(equation_kind kind, int D, quenta_function forcing, void* context) {
    check(D >= 1 && D <= max_dimension, equation_status::bad_dimension);
    auto equation = std::make_unique<quenta_equation>();
    equation->kind = kind;
    equation->D = D;
    equation->forcing = {forcing, context};
    equation->start.resize(D);
    return equation;
}

int new_integral_equation(equation_kind kind, int D, quenta_function g, void* context, quenta_equation** equation) {
    return status_of([&] {
        check_pointers(g, equation);
        *equation = new_equation(kind, D, g, context).release();
    });
}

int add_term(quenta_equation* equation, int E, double singularity, quenta_function kernel, void* context, bool of_lag) {
    return status_of([&] {
        check_pointers(equation, kernel);
        check(E >= 1 && E <= max_dimension, equation_status::bad_dimension);
        check(singularity >= 0.0 && singularity < 1.0, equation_status::bad_singularity);
        equation->memory.push_back({E, singularity, of_lag, {kernel, context}, {}, {}});
        equation->last_is_delay = false;
    });
}

// Whether a scheme for first-kind equations converges: each step multiplies an error at its start by this product, up
// to the sign.
bool first_kind_converges(const double* nodes, int P) {
    double product = 1.0;
    for (int i = 0; i < P; ++i)
        product *= (1.0 - nodes[i]) / nodes[i];
    return std::fabs(product) <= 1.0 + 1e-12; // it is 1 for Gauss
}

// The nodes of the caller or, if there are none, P nodes of Radau IIA. `chosen` takes the place of P = 0.
collocation_nodes checked_nodes(const quenta_equation& equation, const double* nodes, int P, int chosen = usual_nodes) {
    per_node<double> radau{};
    if (nodes == nullptr && P == 0)
        P = equation.is_singular() ? nodes_if_singular : chosen;
    check(P >= 1 && P <= max_nodes, equation_status::bad_nodes);
    if (nodes == nullptr) {
        family_nodes(node_family::radau, P, radau.data());
        nodes = radau.data();
    }
    check(nodes[0] >= 0.0 && nodes[P - 1] <= 1.0, equation_status::bad_nodes);
    for (int i = 1; i < P; ++i)
        check(nodes[i - 1] < nodes[i], equation_status::bad_nodes);
    if (equation.kind == equation_kind::first)
        check(nodes[0] > 0.0 && first_kind_converges(nodes, P), equation_status::unstable_nodes);
    return nodes_with_tables(nodes, P);
}

void check_equation(const quenta_equation& equation) {
    check(equation.kind != equation_kind::first || !equation.memory.empty(), equation_status::no_term);
    for (const memory_term& term : equation.memory)
        check(!term.is_linear() || term.E == equation.D, equation_status::columns_need_phi);
    for (const delay_term& term : equation.delays)
        check((term.phi && term.weight) || term.E == equation.D, equation_status::columns_need_phi);
}

// Shorter steps lose digits, and the reciprocal of their length may overflow.
bool is_step(double length) {
    return length >= std::numeric_limits<double>::min() && std::isfinite(length);
}

// The pieces between breaking points, and their steps, may be shorter than equal steps.
void check_end(const quenta_equation& equation, double t_end, int steps) {
    check(is_step(t_end / steps), equation_status::bad_end);
    check(equation.delays.empty() || is_step(t_end * same_time / steps), equation_status::bad_end);
}

void check_mesh(const quenta_equation& equation, const double* mesh, int steps) {
    check(mesh[0] == 0.0, equation_status::bad_mesh);
    for (int n = 0; n < steps; ++n)
        check(is_step(mesh[n + 1] - mesh[n]), equation_status::bad_mesh);
    const double longest = equation.shortest_delay() + same_delayed_time * mesh[steps];
    for (int n = 0; n < steps; ++n)
        check(mesh[n + 1] - mesh[n] <= longest, equation_status::steps_above_delay);
}

// Also checks that `count` values can be written to `values`.
void check_times(const quenta_solution* solution, int count, const double* t, const double* values) {
    check_pointers(solution);
    check(count >= 0, equation_status::bad_count);
    if (count == 0)
        return;
    check_pointers(t, values);
    check(solution->steps > 0, equation_status::bad_time);
    for (int p = 0; p < count; ++p)
        check(t[p] >= 0.0 && t[p] <= solution->mesh[solution->steps], equation_status::bad_time);
}

// The caller gets the solution also if it is not complete. Its number of steps is then that of the solved ones.
void hand_over(march_result&& result, quenta_solution** solution) {
    *solution = std::make_unique<quenta_solution>(std::move(result.solution)).release();
    check(result.status == equation_status::solved, result.status);
}

int evaluate(const quenta_solution* solution, int count, const double* t, double* values,
             void (quenta_solution::*polynomial)(std::int64_t, double, double*) const) {
    return status_of([&] {
        check_times(solution, count, t, values);
        for (std::int64_t p = 0; p < count; ++p) {
            const std::int64_t n = solution->step_at(t[p]);
            // GCOVR_EXCL_BR_START: the compiler tests whether the member is virtual
            (solution->*polynomial)(n, (t[p] - solution->mesh[n]) / solution->step_length(n), values + p * solution->D);
            // GCOVR_EXCL_BR_STOP
        }
    });
}

} // namespace

int quenta_equation_max_dimension(void) {
    return max_dimension;
}

int quenta_equation_max_nodes(void) {
    return max_nodes;
}

int quenta_equation_second_kind(int D, quenta_function g, void* context, quenta_equation** equation) {
    return new_integral_equation(equation_kind::second, D, g, context, equation);
}

int quenta_equation_first_kind(int D, quenta_function g, void* context, quenta_equation** equation) {
    return new_integral_equation(equation_kind::first, D, g, context, equation);
}

int quenta_equation_integro_differential(int D, quenta_function f, void* context, const double* y0,
                                         quenta_equation** equation) {
    return status_of([&] {
        check_pointers(y0, equation);
        auto created = new_equation(equation_kind::integro_differential, D, f, context);
        check(are_finite(y0, D), equation_status::bad_start);
        std::copy_n(y0, D, created->start.data());
        *equation = created.release();
    });
}

void quenta_equation_destroy(quenta_equation* equation) {
    delete equation;
}

int quenta_equation_add_memory(quenta_equation* equation, int E, double singularity, quenta_function kernel,
                               void* context) {
    return add_term(equation, E, singularity, kernel, context, false);
}

int quenta_equation_add_lag_memory(quenta_equation* equation, int E, double singularity, quenta_function kernel,
                                   void* context) {
    return add_term(equation, E, singularity, kernel, context, true);
}

int quenta_equation_add_delay(quenta_equation* equation, int E, double delay, quenta_function weight, void* context) {
    return status_of([&] {
        check_pointers(equation);
        check(E >= 1 && E <= max_dimension, equation_status::bad_dimension);
        check(delay > 0.0 && std::isfinite(delay), equation_status::bad_delay);
        equation->delays.push_back({E, delay, {weight, context}, {}});
        equation->last_is_delay = true;
    });
}

int quenta_equation_set_past(quenta_equation* equation, quenta_function past, void* context) {
    return status_of([&] {
        check_pointers(equation, past);
        equation->past = {past, context};
    });
}

int quenta_equation_set_phi(quenta_equation* equation, quenta_function phi, quenta_function derivative, void* context) {
    return status_of([&] {
        check_pointers(equation, phi);
        if (equation->last_is_delay) {
            equation->delays.back().phi = {phi, context};
            return;
        }
        check(!equation->memory.empty(), equation_status::no_term);
        equation->memory.back().phi = {phi, context};
        equation->memory.back().derivative = {derivative, context};
    });
}

int quenta_equation_set_jacobian(quenta_equation* equation, quenta_function jacobian, void* context) {
    return status_of([&] {
        check_pointers(equation, jacobian);
        check(equation->kind == equation_kind::integro_differential, equation_status::wrong_kind);
        equation->jacobian = {jacobian, context};
    });
}

int quenta_equation_set_first_guess(quenta_equation* equation, const double* y) {
    return status_of([&] {
        check_pointers(equation, y);
        check(are_finite(y, equation->D), equation_status::bad_start);
        if (equation->kind == equation_kind::first)
            std::copy_n(y, equation->D, equation->start.data());
    });
}

int quenta_equation_set_progress(quenta_equation* equation, quenta_progress progress, void* context) {
    return status_of([&] {
        check_pointers(equation);
        equation->progress = progress;
        equation->progress_context = context;
    });
}

int quenta_equation_nodes(int family, int P, double* nodes) {
    return status_of([&] {
        check_pointers(nodes);
        check(family >= QUENTA_RADAU && family <= QUENTA_LOBATTO, equation_status::bad_nodes);
        check(family_nodes(static_cast<node_family>(family), P, nodes), equation_status::bad_nodes);
    });
}

int quenta_equation_solve(const quenta_equation* equation, double t_end, int steps, const double* nodes, int P,
                          quenta_solution** solution) {
    return status_of([&] {
        check_pointers(equation, solution);
        check_steps(steps);
        check_end(*equation, t_end, steps);
        check_equation(*equation);
        const collocation_nodes scheme = checked_nodes(*equation, nodes, P);
        const default_mesh mesh(*equation, t_end, scheme.P, steps, 0, most_steps);
        hand_over(march(*equation, mesh.doubled(0), scheme), solution);
    });
}

int quenta_equation_solve_on_mesh(const quenta_equation* equation, const double* mesh, int steps, const double* nodes,
                                  int P, quenta_solution** solution) {
    return status_of([&] {
        check_pointers(equation, mesh, solution);
        check_steps(steps);
        check_mesh(*equation, mesh, steps);
        check_equation(*equation);
        const collocation_nodes scheme = checked_nodes(*equation, nodes, P);
        hand_over(march(*equation, std::vector<double>(mesh, mesh + steps + 1), scheme), solution);
    });
}

int quenta_equation_solve_to_tolerance(const quenta_equation* equation, double t_end, double rtol, double atol,
                                       int max_steps, const double* nodes, int P, quenta_solution** solution) {
    return status_of([&] {
        check_pointers(equation, solution);
        if (max_steps == 0)
            max_steps = default_max_steps;
        check(max_steps >= min_max_steps && max_steps <= most_steps, equation_status::bad_steps);
        check_end(*equation, t_end, max_steps);
        check(rtol >= 0.0 && atol >= 0.0 && std::isfinite(rtol) && std::isfinite(atol) && std::max(rtol, atol) > 0.0,
              equation_status::bad_tolerance);
        check_equation(*equation);
        const collocation_nodes scheme = checked_nodes(*equation, nodes, P, nodes_to_tolerance);
        hand_over(solve_to_tolerance(*equation, t_end, {rtol, atol, max_steps}, scheme), solution);
    });
}

void quenta_solution_destroy(quenta_solution* solution) {
    delete solution;
}

int quenta_solution_steps(const quenta_solution* solution) {
    return solution == nullptr ? 0 : solution->steps;
}

int quenta_solution_dimension(const quenta_solution* solution) {
    return solution == nullptr ? 0 : solution->D;
}

const double* quenta_solution_mesh(const quenta_solution* solution) {
    return solution == nullptr ? nullptr : solution->mesh.data();
}

const double* quenta_solution_values(const quenta_solution* solution) {
    return solution == nullptr ? nullptr : solution->y.data();
}

const double* quenta_solution_error(const quenta_solution* solution) {
    return solution == nullptr || solution->error.empty() ? nullptr : solution->error.data();
}

int quenta_solution_evaluate(const quenta_solution* solution, int count, const double* t, double* y) {
    return evaluate(solution, count, t, y, &quenta_solution::value);
}

int quenta_solution_derivative(const quenta_solution* solution, int count, const double* t, double* dy) {
    return evaluate(solution, count, t, dy, &quenta_solution::slope);
}

int quenta_solution_iterate(const quenta_solution* solution, const quenta_equation* equation, int count,
                            const double* t, double* y) {
    return status_of([&] {
        check_pointers(equation);
        check_times(solution, count, t, y);
        check(equation->kind == equation_kind::second && solution->kind == equation_kind::second &&
                  equation->D == solution->D,
              equation_status::wrong_kind);
        check_equation(*equation);
        if (count == 0)
            return;
        std::vector<double> values(std::int64_t{count} * equation->D); // so that nothing is written if this fails
        iterate_solution(*solution, *equation, count, t, values.data());
        std::copy(values.begin(), values.end(), y);
    });
}
