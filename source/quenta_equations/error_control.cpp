#include "quenta_equations/error_control.hpp"

#include "quenta_equations/default_mesh.hpp"
#include "quenta_equations/delay_terms.hpp"
#include "quenta_solvers/dense_solve.hpp" // eps

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace quenta {

namespace {

constexpr int first_steps = 8;
constexpr int least_doublings = 3; // with fewer there are not two observed orders, and so no reliable estimate
constexpr double unknown = std::numeric_limits<double>::infinity();
constexpr double largest_number = std::numeric_limits<double>::max(); // where nothing is allowed

// A narrow feature of g or of a kernel must meet some nodes: no solution with fewer of them in equal steps is accepted,
// unless max_steps allows no more.
constexpr int least_nodes = 300;

// The decrease is the ratio of two successive differences, 2^p for the observed order p. All decisions are made with
// it: logarithms and powers would depend on the mathematical library.
//
// Differences that decrease by less than this are no evidence of convergence: order 0.4.
constexpr double least_decrease = 1.32;
// Only a decrease that is at most this much below that of the scheme (order 1.5) makes an estimate smaller than the
// difference. Other differences may decrease by chance: how well a kink is approximated depends on where it lies in its
// step.
constexpr double regular_within = 2.83;
// Order 4 and above is extrapolated as order 4: a feature that is just resolved hides lower orders.
constexpr double most_decrease = 16.0;
constexpr double safety = 1.25;
constexpr double far_below = 0.1; // of the tolerance
// The decrease rises if the order does by 0.5.
constexpr double rise = 1.41;

// Parts of the largest |y|. Differences below the first are rounding errors. Those below the second may be rounding
// errors if they do not decrease.
constexpr double rounding = 64.0 * eps, noise = 1e-9;

// The least steps with which a solve is given up: because by its order it needs too many steps, because the differences
// do not decrease, because it fails at the same time again. With fewer steps, a feature that is not yet resolved may be
// the reason.
constexpr double most_excess = 2.0; // of the predicted number of steps over max_steps
constexpr std::int64_t least_steps_to_predict = 512, least_steps_to_stagnate = 2048, least_steps_to_fail = 1024,
                       least_steps_to_fail_at_once = 100'000;

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

// Each step of `coarse` is two of `fine`, which are equal unless the mesh is graded, or one, if it is too short to be
// divided.
distances differences(const quenta_solution& coarse, const quenta_solution& fine, bool is_graded,
                      const tolerance& wanted) {
    distances result(fine, wanted);
    std::vector<double> a(fine.D), b(fine.D);
    std::int64_t k = 0; // the coarse step that contains the fine step n
    for (std::int64_t n = 0; n < fine.steps; ++n) {
        if (fine.mesh[n] == coarse.mesh[k + 1])
            ++k;
        const bool is_first = fine.mesh[n] == coarse.mesh[k], is_last = fine.mesh[n + 1] == coarse.mesh[k + 1];
        const double middle =
            !is_graded ? 0.5 : (fine.mesh[n + (is_first ? 1 : 0)] - coarse.mesh[k]) / coarse.step_length(k);
        const double start = is_first ? 0.0 : middle, length = (is_last ? 1.0 : middle) - start;
        const auto compare_at = [&](double x) {
            fine.value(n, x, a.data());
            coarse.value(k, start + x * length, b.data());
            for (int component = 0; component < fine.D; ++component)
                result.add(component, std::fabs(a[component] - b[component]), a[component]);
        };
        for (const double x : inner_points)
            compare_at(x);
        for (int i = 0; i < fine.nodes.P; ++i)
            compare_at(fine.nodes.c[i]);
    }
    return result;
}

// The jumps of the delay terms at the mesh points, D for each, which are jumps of y or, in an integro-differential
// equation, of y'. (A jump of y in the first kind is not known.)
std::vector<double> jumps_of_delay_terms(const quenta_equation& equation, const quenta_solution& solution) {
    const std::int64_t D = solution.D, inner = equation.delays.empty() ? 0 : solution.steps - 1;
    std::vector<double> jump(solution.steps * D);
    if (equation.kind == equation_kind::first)
        return jump;
    std::vector<std::int64_t> step(2 * inner);
    std::vector<double> t(2 * inner), sums(2 * inner * D);
    for (std::int64_t p = 0; p < 2 * inner; ++p) {
        step[p] = (p + 1) / 2;
        t[p] = solution.mesh[p / 2 + 1];
    }
    delay_terms(equation, solution).add(2 * inner, step.data(), t.data(), sums.data());
    for (std::int64_t n = 1; n <= inner; ++n)
        for (std::int64_t a = 0; a < D; ++a)
            jump[n * D + a] = sums[(2 * n - 1) * D + a] - sums[(2 * n - 2) * D + a];
    return jump;
}

// A jump of y' at a mesh point means an error of y that grows over the distance of the nodes beside it.
// At 0 the slope is f(0, y0) with the delay terms. Jumps of the delay terms are no errors.
void slope_at_0(const quenta_equation& equation, const quenta_solution& solution, double* slope) {
    constexpr double zero = 0.0;
    constexpr std::int64_t first_step = 0;
    if (equation.forcing)
        equation.forcing(1, &zero, solution.y.data(), slope);
    delay_terms(equation, solution).add(1, &first_step, &zero, slope);
}

distances jumps(const quenta_equation& equation, const quenta_solution& solution, const tolerance& wanted) {
    distances result(solution, wanted);
    const bool of_slope = equation.solves_for_derivative();
    const std::vector<double> expected = jumps_of_delay_terms(equation, solution);
    const double gap = solution.nodes.c[0] + 1.0 - solution.nodes.c[solution.nodes.P - 1];
    std::vector<double> before(solution.D), after(solution.D);
    for (std::int64_t n = 0; n < solution.steps; ++n) {
        const double* const y = solution.y.data() + n * solution.D;
        if (!of_slope)
            std::copy_n(y, solution.D, before.data());
        else if (n > 0)
            solution.slope(n - 1, 1.0, before.data());
        else
            slope_at_0(equation, solution, before.data());
        of_slope ? solution.slope(n, 0.0, after.data()) : solution.value(n, 0.0, after.data());
        const double factor = of_slope ? gap * solution.step_length(n) : 1.0;
        for (int a = 0; a < solution.D; ++a)
            if (std::isfinite(before[a])) // g and f may be infinite at 0
                result.add(a, factor * std::fabs(after[a] - before[a] - expected[n * solution.D + a]), y[a]);
    }
    return result;
}

// The solves on 8, 16, 32, .. steps, and what is known from those before: the last two solutions, their difference, and
// the observed order.
class doubling {
public:
    doubling(const quenta_equation& of, double end, const tolerance& to, const collocation_nodes& with)
        : equation{of}, t_end{end}, wanted{to}, nodes{with}, meshes{mesh_of(of, end, with.P, to.max_steps)},
          decrease_of_scheme{double(1 << (with.P + (of.solves_for_derivative() ? 1 : 0)))} {}

    march_result run() {
        bool go_on = true;
        for (doublings = 0; go_on; ++doublings) {
            std::vector<double> mesh = meshes.doubled(doublings);
            if (std::int64_t(mesh.size()) - 1 > wanted.max_steps)
                break;
            march_result fine = march(equation, std::move(mesh), nodes);
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
    static default_mesh mesh_of(const quenta_equation& equation, double t_end, int P, int max_steps) {
        int doublings = least_doublings;
        while (first_steps << (doublings + 1) <= max_steps)
            ++doublings;
        return {equation, t_end, P, first_steps, doublings, max_steps >> least_doublings};
    }

    // Whether more steps may succeed where this solve failed, because its steps were too long. Keeps what it solved.
    bool may_succeed(const march_result& fine) {
        const quenta_solution &now = fine.solution, &last = coarse.solution;
        const std::int64_t steps = std::int64_t(now.mesh.size()) - 1;
        const bool same_end =
            !last.mesh.empty() && std::fabs(now.mesh[now.steps] - last.mesh[last.steps]) <= 2.0 * t_end / double(steps);
        failures = same_end ? failures + 1 : 0;
        best = fine;
        smallest_estimate = last_difference = last_decrease = last_relative = unknown;
        if (fine.status == equation_status::stopped)
            return false;
        // A solve that fails in its first step costs little.
        return failures < 3 || steps < (now.steps == 0 ? least_steps_to_fail_at_once : least_steps_to_fail);
    }

    // Estimates the error of a complete solution, and keeps it if it is the best. False: no more steps are tried.
    bool judge(march_result& fine) {
        const std::int64_t steps = fine.solution.steps;
        if (coarse.solution.mesh.empty() || coarse.status != equation_status::solved) {
            best = fine;
            return true;
        }
        const distances now = differences(coarse.solution, fine.solution, meshes.is_graded(), wanted);
        const distances jump = jumps(equation, fine.solution, wanted);
        const bool is_rounding = now.relative <= rounding;
        const double decrease = is_rounding ? decrease_of_scheme : last_difference / now.in_tolerances;
        const double slower = std::min(decrease, last_decrease);
        const bool is_first = last_difference == unknown;
        // Rounding errors do not decrease; in the first kind they grow. Two differences that are far below the
        // tolerance, and so small that they can be rounding, are believed all the same.
        const bool is_noise =
            std::max(now.relative, last_relative) <= noise && std::max(now.in_tolerances, last_difference) <= far_below;
        const bool converges = !is_first && (is_rounding || is_noise || slower >= least_decrease);
        const double factor = extrapolation(is_first ? 0.0 : slower);
        const double estimate = std::max(factor * now.in_tolerances, jump.in_tolerances);
        for (int a = 0; a < equation.D; ++a)
            fine.solution.error[a] = std::max(factor * now.largest[a], jump.largest[a]);
        const bool is_last = 2 * steps > wanted.max_steps;
        const bool reached = converges && estimate <= 1.0 &&
                             (is_last || meshes.equal_steps(first_steps << doublings) * nodes.P >= least_nodes);
        // A larger estimate refutes the one before, unless both are rounding.
        if (reached || now.relative > noise || !(estimate > smallest_estimate)) {
            best = fine;
            is_reached = reached;
            smallest_estimate = estimate;
        }
        const bool go_on = !reached && !is_hopeless(steps, estimate, decrease, now.relative);
        last_decrease = is_first ? unknown : decrease;
        last_difference = now.in_tolerances;
        last_relative = now.relative;
        return go_on;
    }

    // The factor by which a difference estimates the error, 1 / (2^p - 1) or more.
    double extrapolation(double decrease) const {
        const double factor =
            1.0 / (std::clamp(decrease, least_decrease, std::min(decrease_of_scheme, most_decrease)) - 1.0);
        return safety * (decrease >= decrease_of_scheme / regular_within ? factor : std::max(1.0, factor));
    }

    // Whether no number of steps up to max_steps is expected to reach the tolerance.
    bool is_hopeless(std::int64_t steps, double estimate, double decrease, double relative) const {
        if (!(estimate > 1.0) || last_decrease == unknown)
            return false;
        const bool stagnates = !(std::max(decrease, last_decrease) >= least_decrease);
        if (relative <= rounding || (stagnates && relative <= noise))
            return true;
        if (stagnates)
            return steps >= least_steps_to_stagnate;
        if (steps < least_steps_to_predict || decrease > rise * last_decrease)
            return false;
        const double expected = std::max(decrease, std::sqrt(decrease * last_decrease));
        double needed = double(steps);
        while (estimate > 1.0 && needed <= most_excess * double(wanted.max_steps)) {
            estimate /= expected;
            needed *= 2.0;
        }
        return estimate > 1.0;
    }

    const quenta_equation& equation;
    const double t_end;
    const tolerance& wanted;
    const collocation_nodes& nodes;
    const default_mesh meshes;
    const double decrease_of_scheme;

    int doublings = 0;
    march_result coarse{}, best{};
    bool is_reached = false;
    double smallest_estimate = unknown;
    double last_difference = unknown, last_decrease = unknown, last_relative = unknown;
    int failures = 0; // at nearly the same time
};

} // namespace

march_result solve_to_tolerance(const quenta_equation& equation, double t_end, const tolerance& wanted,
                                const collocation_nodes& nodes) {
    return doubling(equation, t_end, wanted, nodes).run();
}

} // namespace quenta
