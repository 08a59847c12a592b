#include "quenta_equations/error_control.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>

namespace quenta {

namespace {

constexpr int first_steps = 16;
constexpr double unknown = std::numeric_limits<double>::infinity();

// Where two solutions are compared in each step of the finer one, besides the nodes: at the ends too, since the
// polynomials of a scheme without a node there may be worst at them.
constexpr std::array<double, 9> inner_points{0.0, 0.125, 0.25, 0.375, 0.5, 0.625, 0.75, 0.875, 1.0};

// The difference of two solutions, the finer of which has twice as many steps.
struct difference {
    std::vector<double> largest; // of each component
    double in_tolerances;        // the largest part that a difference has of what is allowed
};

std::vector<double> largest_values(const quenta_solution& solution) {
    std::vector<double> largest(solution.D);
    for (std::size_t i = 0; i < solution.y.size(); ++i)
        largest[i % solution.D] = std::max(largest[i % solution.D], std::fabs(solution.y[i]));
    return largest;
}

difference compare(const quenta_solution& coarse, const quenta_solution& fine, const tolerance& wanted) {
    const int D = fine.D;
    const std::vector<double> scale = largest_values(fine);
    std::vector<double> a(D), b(D);
    difference result{std::vector<double>(D), 0.0};
    const auto compare_at = [&](std::int64_t n, double x) {
        fine.value(n, x, a.data());
        coarse.value(n / 2, (x + double(n % 2)) / 2.0, b.data());
        for (int component = 0; component < D; ++component) {
            const double distance = std::fabs(a[component] - b[component]);
            const double allowed = wanted.absolute > 0.0 ? wanted.absolute + wanted.relative * std::fabs(a[component])
                                                         : wanted.relative * scale[component];
            result.largest[component] = std::max(result.largest[component], distance);
            if (distance > 0.0)
                result.in_tolerances = std::max(result.in_tolerances, distance / allowed);
        }
    };
    for (std::int64_t n = 0; n < fine.steps; ++n) {
        for (const double x : inner_points)
            compare_at(n, x);
        for (int i = 0; i < fine.nodes.P; ++i)
            compare_at(n, fine.nodes.c[i]);
    }
    return result;
}

} // namespace

std::vector<double> equal_steps(double t_end, int steps) {
    std::vector<double> mesh(std::size_t(steps) + 1);
    for (int n = 0; n <= steps; ++n)
        mesh[n] = t_end * (double(n) / double(steps));
    return mesh;
}

march_result solve_to_tolerance(const quenta_equation& equation, double t_end, const tolerance& wanted,
                                const collocation_nodes& nodes) {
    const double highest_order = equation.solves_for_derivative() ? nodes.P + 1 : nodes.P;
    constexpr double lowest_order = 0.4; // a difference that decreases more slowly is no evidence of convergence

    march_result best = march(equation, equal_steps(t_end, std::min(first_steps, wanted.max_steps)), nodes);
    best.solution.error.assign(equation.D, unknown);
    double best_estimate = unknown;
    double last_difference = unknown, last_order = unknown;
    march_result coarse = best;
    for (std::int64_t steps = 2 * first_steps; steps <= wanted.max_steps; steps *= 2) {
        if (coarse.status == equation_status::stopped)
            return coarse;
        march_result fine = march(equation, equal_steps(t_end, int(steps)), nodes);
        fine.solution.error.assign(equation.D, unknown);
        if (fine.status != equation_status::solved) {
            // Steps that are too long can fail, also where there is a solution.
            best = std::move(fine);
            coarse = best;
            last_difference = last_order = unknown;
            continue;
        }
        if (coarse.status == equation_status::solved) {
            const difference now = compare(coarse.solution, fine.solution, wanted);
            const double order =
                now.in_tolerances == 0.0 ? highest_order : std::log2(last_difference / now.in_tolerances);
            const double believed = std::min({order, last_order, highest_order});
            if (last_difference != unknown && believed >= lowest_order) {
                const double factor = 1.0 / (std::exp2(believed) - 1.0);
                const double estimate = factor * now.in_tolerances;
                for (int a = 0; a < equation.D; ++a)
                    fine.solution.error[a] = factor * now.largest[a];
                if (estimate <= 1.0)
                    return fine;
                if (estimate < best_estimate || best.status != equation_status::solved) {
                    best_estimate = estimate;
                    best = fine;
                }
            } else if (best_estimate == unknown)
                best = fine;
            last_order = last_difference == unknown ? unknown : order;
            last_difference = now.in_tolerances;
        } else
            best = fine;
        coarse = std::move(fine);
    }
    if (best.status == equation_status::solved)
        best.status = equation_status::tolerance_missed;
    return best;
}

} // namespace quenta
