#include "first_kind_kernel.hpp"

#include "finite_values.hpp"
#include "kernel_start.hpp"
#include "messages.hpp"
#include "quenta_native.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>

namespace quenta_program {

namespace {

// K(0) is reported as small if the kernel grows by this factor within the first step ...
constexpr double steep_rise = 10.0;
// ... or if the kernel grows by least_rise and a disturbance of the first step grows by growth_in_a_step in every step
// and by growth_until_the_end in all steps. With the default setting errors grow if the kernel rises to about 6 K(0).
constexpr double least_rise = 1.1;
constexpr double growth_in_a_step = 1.1;
constexpr double growth_until_the_end = 1000.0;
// The growth is measured over 4 to 40 steps.
constexpr std::size_t most_steps_of_trial = 40;

// The largest size of K(t), relative to K(0), within the first step. Infinite if K(0) is singular.
double rise_of_kernel(const equation_samples& equation, std::size_t per_step) {
    const kernel_start start(equation);
    if (start.is_singular())
        return std::numeric_limits<double>::infinity();
    double rise = 0.0;
    for (std::size_t sample = 1; sample <= per_step && std::isfinite(rise); ++sample)
        rise = std::max(rise, start.relative_size(sample));
    return rise;
}

// The coefficients of a solution, coefficients[n][p][a] with p = 0 .. P, for a forcing that is 0 after the first step.
// Empty if the solve fails.
std::vector<double> trial_coefficients(const equation_samples& equation, const setting& chosen, std::size_t steps) {
    const std::size_t per_step = static_cast<std::size_t>(chosen.samples_per_step());
    const std::size_t dimension = equation.dimension(), samples = steps * per_step + 1;
    std::vector<double> forcing(samples * dimension), y(samples * dimension), initial(dimension);
    for (std::size_t sample = 0; sample <= per_step; ++sample)
        for (std::size_t a = 0; a < dimension; ++a)
            forcing[sample * dimension + a] = 1.0 / static_cast<double>(sample + 1 + a); // excites every mode
    std::vector<double> coefficients(steps * (chosen.nodes.size() + 1) * dimension);
    int solved_steps = 0;
    const int status =
        quenta_solve_vie1_vec(forcing.data(), equation.K.data(), static_cast<int>(samples), static_cast<int>(dimension),
                              initial.data(), equation.spacing, chosen.m, chosen.nodes.data(), chosen.count(), 1, 0,
                              y.data(), coefficients.data(), &solved_steps);
    return status == QUENTA_SOLVED ? coefficients : std::vector<double>();
}

// The factor by which a disturbance of the first step grows per step. Infinite if it overflows; 0 if it cannot be
// measured.
double growth_of_errors(const equation_samples& equation, const setting& chosen) {
    const std::size_t half = std::min(most_steps_of_trial, static_cast<std::size_t>(equation.steps)) / 2;
    if (half < 2)
        return 0.0;
    const std::vector<double> coefficients = trial_coefficients(equation, chosen, 2 * half);
    if (coefficients.empty())
        return 0.0;

    const std::size_t P = chosen.nodes.size(), dimension = equation.dimension();
    double growth = 0.0;
    for (std::size_t a = 0; a < dimension; ++a) {
        double early = 0.0, late = 0.0;
        for (std::size_t n = 0; n < 2 * half; ++n)
            for (std::size_t p = 0; p < P; ++p) {
                const double size = std::abs(coefficients[(n * (P + 1) + p) * dimension + a]);
                if (!std::isfinite(size))
                    return std::numeric_limits<double>::infinity();
                double& largest = n < half ? early : late;
                largest = std::max(largest, size);
            }
        if (early > 0.0)
            growth = std::max(growth, std::pow(late / early, 1.0 / static_cast<double>(half)));
    }
    return growth;
}

kernel_fault description(const equation_samples& equation, double rise, double growth) {
    const bool scalar = equation.dimension() == 1;
    kernel_fault fault;
    if (largest_magnitude(equation.kernels(0, 1)) == 0.0) {
        fault.start = "K(0) is 0";
        fault.cure =
            "expected a nonzero K(0): differentiate the equation, and solve it with K' and g' in place of K and g; "
            "differentiate again if K'(0) is 0 too";
    } else if (std::isinf(rise) && !scalar) {
        fault.start = "the matrix K(0) is singular";
        fault.cure =
            "expected a regular matrix: differentiate those equations, or linear combinations of them, in which "
            "K(0) is 0";
    } else {
        fault.start = scalar ? sentence("K(0) is small (", equation.K[0], ")") : "the matrix K(0) is small";
        if (std::isfinite(rise))
            fault.start += sentence(": the kernel grows by a factor of ", two_digits(rise), " within the first step");
        fault.cure = "expected a larger K(0): differentiate the equation, and solve y(t) = g'(t)/K(0) - integral of "
                     "K'(t - s)/K(0) y(s) ds with vie2";
    }
    fault.effect = "errors may grow from step to step";
    if (std::isinf(growth))
        fault.effect = "errors overflow";
    else if (growth >= growth_in_a_step)
        fault.effect = sentence("errors grow by a factor of about ", two_digits(growth), " in every step");
    return fault;
}

} // namespace

std::optional<kernel_fault> fault_of_kernel(const equation_samples& equation, const setting& chosen) {
    const std::size_t per_step = static_cast<std::size_t>(chosen.samples_per_step());
    if (!all_finite(equation.kernels(0, per_step + 1)))
        return std::nullopt;
    const double rise = rise_of_kernel(equation, per_step);
    if (rise < least_rise)
        return std::nullopt;
    const double growth = growth_of_errors(equation, chosen);
    const bool grows =
        growth >= growth_in_a_step && equation.steps * std::log(growth) >= std::log(growth_until_the_end);
    if (rise < steep_rise && !grows)
        return std::nullopt;
    return description(equation, rise, growth);
}

} // namespace quenta_program
