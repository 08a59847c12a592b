#include "quenta_equations/error_control.hpp"

#include "quenta_solvers/dense_solve.hpp" // eps

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace quenta {

namespace {

constexpr std::int64_t first_steps = 8;
constexpr double unknown = std::numeric_limits<double>::infinity();
constexpr double largest_number = std::numeric_limits<double>::max(); // where nothing is allowed

// A narrow feature of g or of a kernel must meet some nodes: no solution with fewer of them is accepted, unless
// max_steps allows no more.
constexpr int least_nodes = 300;

// Below this order, differences that decrease are no evidence of convergence.
constexpr double least_order = 0.4;
// Only an order that is at most this much below that of the scheme makes an estimate smaller than the difference. Other
// differences may decrease by chance: how well a kink is approximated depends on where it lies in its step.
constexpr double regular_within = 1.5;
// An order above this one is not extrapolated: a feature that is just resolved hides lower orders.
constexpr double most_order = 4.0;
constexpr double safety = 1.25;

// Parts of the largest |y|. Differences below the first are rounding errors. Those below the second may be rounding
// errors if they do not decrease.
constexpr double rounding = 64.0 * eps, noise = 1e-9;

// The least steps with which a solve is given up: because by its order it needs too many steps, because the differences
// do not decrease, because it fails at the same time again. With fewer steps, a feature that is not yet resolved may be
// the reason.
constexpr std::int64_t least_steps_to_predict = 512, least_steps_to_stagnate = 2048, least_steps_to_fail = 1024;

// Where two solutions are compared in each step of the finer one, besides the nodes: at the ends too, since the
// polynomials of a scheme without a node there may be worst at them.
constexpr std::array<double, 9> inner_points{0.0, 0.125, 0.25, 0.375, 0.5, 0.625, 0.75, 0.875, 1.0};

// What is compared with the tolerance: distances of two values of the solution.
class distances {
public:
    distances(const quenta_solution& solution, const tolerance& of)
        : largest(solution.D), wanted{of}, scale(solution.D) {
        for (std::size_t i = 0; i < solution.y.size(); ++i)
            scale[i % solution.D] = std::max(scale[i % solution.D], std::fabs(solution.y[i]));
    }

    void add(int component, double distance, double y) {
        if (distance == 0.0)
            return;
        const double allowed = wanted.absolute > 0.0 ? wanted.absolute + wanted.relative * std::fabs(y)
                                                     : wanted.relative * scale[component];
        largest[component] = std::max(largest[component], distance);
        in_tolerances = std::max(in_tolerances, std::min(distance / allowed, largest_number));
        relative = std::max(relative, std::min(distance / scale[component], largest_number));
    }

    std::vector<double> largest; // of each component
    double in_tolerances = 0.0;  // the largest part of what is allowed
    double relative = 0.0;       // the largest part of the largest |y|

private:
    const tolerance& wanted;
    std::vector<double> scale;
};

// `fine` has twice as many steps.
distances differences(const quenta_solution& coarse, const quenta_solution& fine, const tolerance& wanted) {
    distances result(fine, wanted);
    std::vector<double> a(fine.D), b(fine.D);
    const auto compare_at = [&](std::int64_t n, double x) {
        fine.value(n, x, a.data());
        coarse.value(n / 2, (x + double(n % 2)) / 2.0, b.data());
        for (int component = 0; component < fine.D; ++component)
            result.add(component, std::fabs(a[component] - b[component]), a[component]);
    };
    for (std::int64_t n = 0; n < fine.steps; ++n) {
        for (const double x : inner_points)
            compare_at(n, x);
        for (int i = 0; i < fine.nodes.P; ++i)
            compare_at(n, fine.nodes.c[i]);
    }
    return result;
}

// A jump of y' at a mesh point means an error of y that grows over the distance of the nodes beside it.
// At 0 the slope is f(0, y0).
distances jumps(const quenta_equation& equation, const quenta_solution& solution, const tolerance& wanted) {
    distances result(solution, wanted);
    const bool of_slope = equation.solves_for_derivative();
    const double gap = solution.nodes.c[0] + 1.0 - solution.nodes.c[solution.nodes.P - 1];
    std::vector<double> before(solution.D), after(solution.D);
    for (std::int64_t n = 0; n < solution.steps; ++n) {
        const double* const y = solution.y.data() + n * solution.D;
        if (!of_slope)
            std::copy_n(y, solution.D, before.data());
        else if (n > 0)
            solution.slope(n - 1, 1.0, before.data());
        else if (const double zero = 0.0; equation.forcing)
            equation.forcing(1, &zero, y, before.data());
        of_slope ? solution.slope(n, 0.0, after.data()) : solution.value(n, 0.0, after.data());
        const double factor = of_slope ? gap * solution.step_length(n) : 1.0;
        for (int a = 0; a < solution.D; ++a)
            if (std::isfinite(before[a])) // g and f may be infinite at 0
                result.add(a, factor * std::fabs(after[a] - before[a]), y[a]);
    }
    return result;
}

// The solves on 8, 16, 32, .. steps, and what is known from those before: the last two solutions, their difference, and
// the observed order.
class doubling {
public:
    doubling(const quenta_equation& of, double end, const tolerance& to, const collocation_nodes& with)
        : equation{of}, t_end{end}, wanted{to}, nodes{with}, highest_order{double(with.P) +
                                                                           (of.solves_for_derivative() ? 1.0 : 0.0)} {}

    march_result run() {
        bool go_on = true;
        for (std::int64_t steps = first_steps; go_on && steps <= wanted.max_steps; steps *= 2) {
            march_result fine = march(equation, equal_steps(t_end, int(steps)), nodes);
            fine.solution.error.assign(equation.D, unknown);
            try {
                go_on = fine.status == equation_status::solved ? judge(fine) : may_succeed(fine);
            } catch (const solve_ended& end) { // by f(0, y0)
                best = fine;
                best.status = end.status;
                go_on = false;
            }
            coarse = std::move(fine);
        }
        if (best.status == equation_status::solved && !is_reached)
            best.status = equation_status::tolerance_missed;
        return std::move(best);
    }

private:
    // Whether more steps may succeed where this solve failed, because its steps were too long. Keeps what it solved.
    bool may_succeed(const march_result& fine) {
        const quenta_solution &now = fine.solution, &last = coarse.solution;
        const std::int64_t steps = std::int64_t(now.mesh.size()) - 1;
        const bool same_end =
            !last.mesh.empty() && std::fabs(now.mesh[now.steps] - last.mesh[last.steps]) <= 2.0 * t_end / double(steps);
        failures = same_end ? failures + 1 : 0;
        best = fine;
        smallest_estimate = last_difference = last_order = unknown;
        if (fine.status == equation_status::stopped)
            return false;
        const bool costs_nothing = now.steps == 0;
        return costs_nothing || failures < 3 || steps < least_steps_to_fail;
    }

    // Estimates the error of a complete solution, and keeps it if it is the best. False: no more steps are tried.
    bool judge(march_result& fine) {
        const std::int64_t steps = fine.solution.steps;
        if (coarse.solution.mesh.empty() || coarse.status != equation_status::solved) {
            best = fine;
            return true;
        }
        const distances now = differences(coarse.solution, fine.solution, wanted);
        const distances jump = jumps(equation, fine.solution, wanted);
        const bool is_rounding = now.relative <= rounding;
        const double order = is_rounding ? highest_order : std::log2(last_difference / now.in_tolerances);
        const double slower = std::min(order, last_order);
        const bool is_first = last_difference == unknown,
                   converges = !is_first && (is_rounding || slower >= least_order);
        const double factor = extrapolation(is_first ? 0.0 : slower);
        const double estimate = std::max(factor * now.in_tolerances, jump.in_tolerances);
        for (int a = 0; a < equation.D; ++a)
            fine.solution.error[a] = std::max(factor * now.largest[a], jump.largest[a]);
        const bool is_last = 2 * steps > wanted.max_steps;
        const bool reached = converges && estimate <= 1.0 && (is_last || steps * nodes.P >= least_nodes);
        // A larger estimate refutes the one before, unless both are rounding.
        if (reached || now.relative > noise || !(estimate > smallest_estimate)) {
            best = fine;
            is_reached = reached;
            smallest_estimate = estimate;
        }
        const bool go_on = !reached && !is_hopeless(steps, estimate, order, now.relative);
        last_order = is_first ? unknown : order;
        last_difference = now.in_tolerances;
        return go_on;
    }

    // The factor by which a difference estimates the error, if the differences decrease with this order.
    double extrapolation(double order) const {
        const double factor =
            1.0 / (std::exp2(std::clamp(order, least_order, std::min(highest_order, most_order))) - 1.0);
        return safety * (order >= highest_order - regular_within ? factor : std::max(1.0, factor));
    }

    // Whether no number of steps up to max_steps is expected to reach the tolerance.
    bool is_hopeless(std::int64_t steps, double estimate, double order, double relative) const {
        if (!(estimate > 1.0) || last_order == unknown)
            return false;
        const bool stagnates = !(std::max(order, last_order) >= least_order);
        if (relative <= rounding || (stagnates && relative <= noise))
            return true;
        if (stagnates)
            return steps >= least_steps_to_stagnate;
        const bool rises = order > last_order + 0.5;
        const double mean = std::max(order, (order + last_order) / 2.0);
        const double doublings = std::log2(estimate) / mean;
        return steps >= least_steps_to_predict && !rises &&
               double(steps) * std::exp2(doublings) > 2.0 * double(wanted.max_steps);
    }

    const quenta_equation& equation;
    const double t_end;
    const tolerance& wanted;
    const collocation_nodes& nodes;
    const double highest_order;

    march_result coarse{}, best{};
    bool is_reached = false;
    double smallest_estimate = unknown;
    double last_difference = unknown, last_order = unknown;
    int failures = 0; // at nearly the same time
};

} // namespace

std::vector<double> equal_steps(double t_end, int steps) {
    std::vector<double> mesh(std::size_t(steps) + 1);
    for (int n = 0; n <= steps; ++n)
        mesh[n] = t_end * (double(n) / double(steps));
    return mesh;
}

march_result solve_to_tolerance(const quenta_equation& equation, double t_end, const tolerance& wanted,
                                const collocation_nodes& nodes) {
    return doubling(equation, t_end, wanted, nodes).run();
}

} // namespace quenta
