#include "quenta_equations/march.hpp"

#include "quenta_equations/delay_terms.hpp"
#include "quenta_equations/finite.hpp"
#include "quenta_equations/memory_history.hpp"
#include "quenta_equations/step_equations.hpp"

#include <algorithm>
#include <functional>

namespace quenta {

namespace {

// The forcing of first- and second-kind equations at the nodes, evaluated for many steps at once.
class forcing_at_nodes {
public:
    forcing_at_nodes(const quenta_equation& of, const quenta_solution& into)
        : equation{of}, solution{into}, P{into.nodes.P},
          batch_steps{std::min(std::int64_t(into.mesh.size()) - 1, std::max(std::int64_t{1}, most_points / P))},
          times(batch_steps * P), values(batch_steps * P * of.D) {}

    const double* of_step(std::int64_t n) {
        if (n == batch_end) {
            batch_first = n;
            batch_end = std::min(std::int64_t(solution.mesh.size()) - 1, n + batch_steps);
            solution.node_times(batch_first, batch_end - batch_first, times.data());
            equation.forcing((batch_end - batch_first) * P, times.data(), nullptr, values.data());
        }
        return values.data() + (n - batch_first) * P * equation.D;
    }

private:
    static constexpr std::int64_t most_points = 1024;

    const quenta_equation& equation;
    const quenta_solution& solution;
    const std::int64_t P, batch_steps;
    std::int64_t batch_first = 0, batch_end = 0;
    std::vector<double> times, values;
};

// Where the iteration of a step starts: the polynomial of the previous step, continued. Steps that are much longer than
// the previous one take its value at the end instead, and so does the second attempt of a first-kind equation.
constexpr double longest_continuation = 3.0; // in lengths of the previous step

void continue_polynomial(const quenta_solution& solution, std::int64_t n, bool as_constant, double* X) {
    const collocation_nodes& nodes = solution.nodes;
    const double ratio = solution.step_length(n) / solution.step_length(n - 1);
    for (int i = 0; i < nodes.P; ++i) {
        const double x = 1.0 + (as_constant || ratio > longest_continuation ? 0.0 : nodes.c[i] * ratio);
        solution.weighted_unknowns(n - 1, nodes.values(x), X + std::int64_t{i} * solution.D);
    }
}

// y0 or g(0) with the delay terms.
void value_at_0(const quenta_equation& equation, delay_terms& delays, double* y) {
    const double zero = 0.0;
    const std::int64_t first_step = 0;
    if (equation.solves_for_derivative())
        std::copy_n(equation.start.data(), equation.D, y);
    else if (equation.kind == equation_kind::second) {
        equation.forcing(1, &zero, nullptr, y);
        delays.add(1, &first_step, &zero, y);
    }
}

// A first-kind equation has no value at 0 before its first step is solved, and g of the second kind may be infinite
// there.
bool starts_with_a_number(const quenta_equation& equation, const double* y) {
    return equation.kind != equation_kind::first && are_finite(y, equation.D);
}

// Where the iteration of step n starts. g and Q are those of the step; in the first one, Q contains delay terms only.
void first_attempt(const quenta_equation& equation, const quenta_solution& solution, step_equations& step,
                   std::int64_t n, const double* g, const double* Q, const double* y, double* X) {
    const int D = equation.D, P = solution.nodes.P, n_sys = P * D;
    if (n > 0)
        continue_polynomial(solution, n, false, X);
    else if (equation.kind == equation_kind::first)
        for (int i = 0; i < P; ++i)
            std::copy_n(equation.start.data(), D, X + i * D);
    else {
        equation.solves_for_derivative() ? step.right_side_at(y, X) : void(std::copy_n(g, n_sys, X));
        std::transform(X, X + n_sys, Q, X, std::plus<>());
    }
}

// Solves step after step. False: sums have lost digits, and all steps must be solved with accurate ones.
bool solve_steps(const quenta_equation& equation, quenta_solution& solution, accurate_sums accurate) {
    const int D = equation.D;
    const std::int64_t steps = std::int64_t(solution.mesh.size()) - 1, n_sys = std::int64_t{solution.nodes.P} * D;
    step_equations step(equation, solution);
    delay_terms delays(equation, solution);
    memory_history history(equation, solution, accurate);
    forcing_at_nodes forcing(equation, solution);
    value_at_0(equation, delays, solution.y.data());
    solution.steps = 0;
    for (std::int64_t n = 0; n < steps; ++n) {
        double* const X = solution.unknowns.data() + n * n_sys;
        double* const y = solution.y.data() + n * D;
        const double* const Q = delays.add_to_step(n, history.sums_of_step(n));
        if (history.has_lost_digits())
            return false;
        const double* const g = equation.solves_for_derivative() ? nullptr : forcing.of_step(n);
        step.prepare(n, history, Q, g, y);
        first_attempt(equation, solution, step, n, g, Q, y, X);
        equation_status status = step.solve(X);
        if (status != equation_status::solved && equation.kind == equation_kind::first && n > 0) {
            continue_polynomial(solution, n, true, X);
            status = step.solve(X);
        }
        if (status != equation_status::solved)
            throw solve_ended{status};
        for (std::size_t r = 0; r < equation.memory.size(); ++r)
            history.add_step(n, r, step.phi_at_nodes(r));
        solution.value(n, 1.0, y + D);
        if (!are_finite(y + D, D)) // extrapolated from the nodes
            throw solve_ended{equation_status::not_finite};
        if (n == 0 && !starts_with_a_number(equation, y))
            solution.value(0, 0.0, y);
        solution.steps = static_cast<int>(n) + 1;
        if (equation.progress && equation.progress(equation.progress_context, solution.steps, int(steps)) != 0)
            throw solve_ended{equation_status::stopped};
    }
    return true;
}

} // namespace

march_result march(const quenta_equation& equation, std::vector<double> mesh, const collocation_nodes& nodes) {
    const std::int64_t steps = std::int64_t(mesh.size()) - 1;
    march_result result{{equation.kind, equation.D, nodes, std::move(mesh)}, equation_status::solved};
    result.solution.unknowns.resize(steps * nodes.P * equation.D);
    result.solution.y.resize((steps + 1) * equation.D);
    try {
        if (!solve_steps(equation, result.solution, accurate_sums::large))
            solve_steps(equation, result.solution, accurate_sums::all);
    } catch (const solve_ended& end) {
        result.status = end.status;
    }
    return result;
}

} // namespace quenta
