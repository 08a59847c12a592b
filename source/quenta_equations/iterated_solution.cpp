#include "quenta_equations/iterated_solution.hpp"

#include "quenta_equations/delay_terms.hpp"
#include "quenta_equations/finite.hpp"
#include "quenta_equations/kernel_sums.hpp"
#include "quenta_equations/memory_weights.hpp"

#include <algorithm>
#include <vector>

namespace quenta {

namespace {

constexpr std::int64_t most_points = 1024; // of one call of a function

// Calls visit(first, count) for consecutive parts of 0 .. points - 1.
template <class visitor>
void in_parts(std::int64_t points, const visitor& visit) {
    for (std::int64_t first = 0; first < points; first += most_points)
        visit(first, std::min(most_points, points - first));
}

// The integral of one memory term over the solution, at any times.
class term_sums {
public:
    term_sums(const quenta_solution& of, const quenta_equation& equation, const memory_term& in)
        : solution{of}, term{in}, D{equation.D}, P{of.nodes.P}, sources{std::int64_t{of.steps} * P}, weights{in, of,
                                                                                                             false},
          source_times(sources), phi(sources * in.E), weighted(sources * in.E),
          weighted_in_step(std::int64_t{P} * in.E), t(most_points), kernel(most_points * D * in.E) {
        solution.node_times(0, solution.steps, source_times.data());
        if (term.is_linear())
            phi = solution.unknowns;
        else
            in_parts(sources, [&](std::int64_t first, std::int64_t count) {
                term.phi(count, source_times.data() + first, solution.unknowns.data() + first * D,
                         phi.data() + first * term.E);
            });
        for (std::int64_t source = 0; source < sources; ++source)
            for (int c = 0; c < term.E; ++c)
                weighted[source * term.E + c] =
                    weights.of_source(source / P, int(source % P)) * phi[source * term.E + c];
    }

    // Adds the integral at `time` to sum[D].
    void add(double time, double* sum) {
        const std::int64_t n = solution.step_at(time);
        const double h = solution.step_length(n), x = (time - solution.mesh[n]) / h;
        in_parts(n * P, [&](std::int64_t first, std::int64_t count) {
            evaluate_kernel(count, time, source_times.data() + first);
            weights.multiply_at(n, x, first, count, std::int64_t{D} * term.E, kernel.data());
            add_kernel_sum(*kernels, kernel.data(), weighted.data() + first * term.E, count, D, term.E, sum);
        });
        // In the step of `time` the points are those of the scheme, with x in the place of c_i.
        const per_node<double> current = weights.of_current_step(h * x);
        per_node<double> point_times;
        for (int q = 0; q < P; ++q) {
            point_times[q] = std::min(solution.mesh[n] + x * solution.nodes.c[q] * h, time);
            const per_node<double> basis = solution.nodes.values(x * solution.nodes.c[q]);
            for (int c = 0; c < term.E; ++c) {
                double value = 0.0;
                for (int j = 0; j < P; ++j)
                    value += basis[j] * phi[(n * P + j) * term.E + c];
                weighted_in_step[q * term.E + c] = current[q] * value;
            }
        }
        evaluate_kernel(P, time, point_times.data());
        add_kernel_sum(*kernels, kernel.data(), weighted_in_step.data(), P, D, term.E, sum);
    }

private:
    void evaluate_kernel(std::int64_t count, double time, const double* s) {
        for (std::int64_t p = 0; p < count; ++p)
            t[p] = term.of_lag ? time - s[p] : time;
        term.kernel(count, t.data(), term.of_lag ? nullptr : s, kernel.data());
    }

    const quenta_solution& solution;
    const memory_term& term;
    const int D, P;
    const std::int64_t sources;
    const memory_weights weights;
    std::vector<double> source_times, phi, weighted, weighted_in_step, t, kernel;
    const kernel_sums* const kernels = &kernel_sums_without_avx512();
};

} // namespace

void iterate_solution(const quenta_solution& solution, const quenta_equation& equation, std::int64_t count,
                      const double* t, double* y) {
    const int D = equation.D;
    in_parts(count, [&](std::int64_t first, std::int64_t points) {
        equation.forcing(points, t + first, nullptr, y + first * D);
    });
    if (!equation.delays.empty()) {
        std::vector<std::int64_t> step(count);
        std::transform(t, t + count, step.begin(), [&](double time) { return solution.step_at(time); });
        delay_terms(equation, solution).add(count, step.data(), t, y);
    }
    for (const memory_term& term : equation.memory) {
        term_sums sums(solution, equation, term);
        for (std::int64_t p = 0; p < count; ++p)
            sums.add(t[p], y + p * D);
    }
    if (!are_finite(y, count * D))
        throw solve_ended{equation_status::not_finite};
}

} // namespace quenta
