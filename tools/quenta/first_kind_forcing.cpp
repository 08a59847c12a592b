#include "first_kind_forcing.hpp"

#include "finite_values.hpp"
#include "kernel_start.hpp"
#include "messages.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>

namespace quenta_program {

namespace {

// A spike below this fraction of the largest later value is not reported.
constexpr double spike_tolerance = 0.01;

// The largest magnitude of a component in samples first .. end - 1.
double largest_component(const std::vector<double>& values, std::size_t first, std::size_t end, std::size_t component,
                         std::size_t dimension) {
    double largest = 0.0;
    for (std::size_t sample = first; sample < end; ++sample)
        largest = std::max(largest, largest_magnitude(std::span(values).subspan(sample * dimension + component, 1)));
    return largest;
}

// The height of the spike in units of g(0) / (h K(0)): the sum of 1 / c_i. The integral of the first polynomial is 0 at
// the start of the step, and must be g(0) at every node c_i = k_i / m.
double relative_height(const setting& chosen) {
    double sum = 0.0;
    for (const int k_i : chosen.nodes)
        sum += static_cast<double>(chosen.m) / k_i;
    return sum;
}

std::string description(const equation_samples& equation, std::size_t unknown, const std::string& height) {
    const auto end = equation.g.begin() + static_cast<std::ptrdiff_t>(equation.dimension());
    const auto worst = std::max_element(equation.g.begin(), end,
                                        [](double left, double right) { return std::abs(left) < std::abs(right); });
    return sentence(equation.dimension() == 1 ? "g" : sentence("g", worst - equation.g.begin() + 1), "(0) is ", *worst,
                    ", but the integral is 0 at t = 0; if all samples have this offset, ", equation.unknowns[unknown],
                    " starts with a spike", height, "; expected 0: correct the offset of g, or its start time");
}

} // namespace

std::optional<std::string> fault_of_forcing(const equation_samples& equation, const setting& chosen,
                                            const std::vector<double>& y) {
    const std::size_t dimension = equation.dimension();
    const std::size_t per_step = static_cast<std::size_t>(chosen.samples_per_step());
    const std::span<const double> start(equation.g.data(), dimension);
    if (!all_finite(equation.kernels(0, per_step + 1)) || !all_finite(start) || largest_magnitude(start) == 0.0)
        return std::nullopt;

    // If K(0) is singular, the spike has no bound, and g(0) is compared with g instead.
    const kernel_start kernel(equation);
    if (kernel.is_singular()) {
        for (std::size_t a = 0; a < dimension; ++a)
            if (std::abs(start[a]) > spike_tolerance * largest_component(equation.g, 0, equation.used, a, dimension))
                return description(equation, a, "");
        return std::nullopt;
    }
    const std::vector<double> jump = kernel.solve(start);
    const double h = equation.spacing * static_cast<double>(per_step), height = relative_height(chosen);
    const std::size_t after_spike = equation.steps <= 2 ? 0 : 2 * per_step + 1;
    for (std::size_t a = 0; a < dimension; ++a) {
        const double spike = height * std::abs(jump[a]) / h;
        if (spike > spike_tolerance * largest_component(y, after_spike, equation.used, a, dimension))
            return description(
                equation, a,
                sentence(" of the order of ", two_digits(spike), ", which grows as the spacing decreases"));
    }
    return std::nullopt;
}

} // namespace quenta_program
