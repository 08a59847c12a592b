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

// K(0) counts as nearly 0 if the kernel grows by this factor within the first step ...
constexpr double steep_rise = 10.0;
// ... or if it rises at all, and a disturbance of the first step grows by more than this factor in every step, and by
// more than that until the end. The default scheme's errors begin to grow where the kernel has risen to about 6 K(0).
constexpr double least_rise = 1.1;
constexpr double growth_in_a_step = 1.1;
constexpr double growth_until_the_end = 1000.0;
// The growth is measured over at most this many steps, and over at least 4.
constexpr std::size_t most_steps_of_trial = 40;

// How many times as large as K(0) the kernel becomes within the first step: the spectral radius of the inverse of K(0)
// times K(t), which does not depend on the units of the equations and of the unknowns. Infinite if K(0) is singular.
double rise_of_kernel(const equation_samples& posed, std::size_t per_step) {
    const kernel_factors of_start(kernel_matrix(posed, 0));
    if (is_singular(of_start))
        return std::numeric_limits<double>::infinity();
    double rise = 0.0;
    for (std::size_t i = 1; i <= per_step; ++i) {
        const Eigen::MatrixXd relative = of_start.solve(kernel_matrix(posed, i));
        if (!relative.allFinite())
            return std::numeric_limits<double>::infinity();
        rise = std::max(rise, relative.eigenvalues().cwiseAbs().maxCoeff());
    }
    return rise;
}

// The factor by which a disturbance of the first step grows from step to step, found by solving the equation with a
// forcing that is 0 after that step. 0 if that cannot be told.
double growth_of_errors(const equation_samples& posed, const setting& chosen) {
    const std::size_t half = std::min(most_steps_of_trial, static_cast<std::size_t>(posed.steps)) / 2;
    if (half < 2)
        return 0.0;
    const std::size_t per_step = static_cast<std::size_t>(chosen.samples_per_step());
    const std::size_t dimension = posed.dimension(), samples = 2 * half * per_step + 1;
    std::vector<double> forcing(samples * dimension), y(samples * dimension), initial(dimension);
    for (std::size_t i = 0; i <= per_step; ++i)
        for (std::size_t r = 0; r < dimension; ++r)
            forcing[i * dimension + r] = 1.0 / static_cast<double>(i + 1 + r); // uneven, so that it favours no mode
    const std::size_t slots = chosen.nodes.size() + 1;
    std::vector<double> coefficients(2 * half * slots * dimension);
    int steps = 0;
    const int status = quenta_solve_vie1_vec(
        forcing.data(), posed.K.data(), static_cast<int>(samples), static_cast<int>(dimension), initial.data(),
        posed.spacing, chosen.m, chosen.nodes.data(), chosen.count(), 1, 0, y.data(), coefficients.data(), &steps);
    if (status != QUENTA_SOLVED)
        return 0.0;

    double growth = 0.0;
    for (std::size_t r = 0; r < dimension; ++r) {
        double early = 0.0, late = 0.0;
        for (std::size_t step = 0; step < 2 * half; ++step)
            for (std::size_t power = 0; power + 1 < slots; ++power) {
                const double size = std::abs(coefficients[(step * slots + power) * dimension + r]);
                if (!std::isfinite(size))
                    return std::numeric_limits<double>::infinity();
                double& largest = step < half ? early : late;
                largest = std::max(largest, size);
            }
        if (early > 0.0)
            growth = std::max(growth, std::pow(late / early, 1.0 / static_cast<double>(half)));
    }
    return growth;
}

kernel_fault description(const equation_samples& posed, double rise, double growth) {
    const bool scalar = posed.dimension() == 1;
    kernel_fault fault;
    if (largest_magnitude(posed.kernels(0, 1)) == 0.0) {
        fault.start = "K(0) is 0";
        fault.cure = "expected another K(0): differentiate the equation, and solve it with K' and g' in the place of K "
                     "and g; once more if K'(0) is 0 too";
    } else if (std::isinf(rise) && !scalar) {
        fault.start = "the matrix K(0) is singular";
        fault.cure = "expected a regular one: differentiate the equations, or the combinations of them, in which K(0) "
                     "is 0";
    } else {
        fault.start = scalar ? sentence("K(0) is small (", posed.K[0], ")") : "the matrix K(0) is small";
        if (std::isfinite(rise))
            fault.start += sentence(": the kernel becomes ", two_digits(rise), " times as large within the first step");
        fault.cure = "expected a larger K(0): differentiate the equation, and solve y(t) = g'(t)/K(0) - integral of "
                     "K'(t - s)/K(0) y(s) ds with vie2";
    }
    fault.effect = "errors may grow from step to step";
    if (std::isinf(growth))
        fault.effect = "errors grow past the largest number";
    else if (growth >= growth_in_a_step)
        fault.effect = sentence("errors grow by a factor of about ", two_digits(growth), " in every step");
    return fault;
}

} // namespace

std::optional<kernel_fault> fault_of_kernel(const equation_samples& posed, const setting& chosen) {
    const std::size_t per_step = static_cast<std::size_t>(chosen.samples_per_step());
    if (!all_finite(posed.kernels(0, per_step + 1)))
        return std::nullopt;
    const double rise = rise_of_kernel(posed, per_step);
    if (rise < least_rise)
        return std::nullopt;
    const double growth = growth_of_errors(posed, chosen);
    const bool grows = growth >= growth_in_a_step && posed.steps * std::log(growth) >= std::log(growth_until_the_end);
    if (rise < steep_rise && !grows)
        return std::nullopt;
    return description(posed, rise, growth);
}

} // namespace quenta_program
