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

// The spike counts if it is larger than this part of the largest value that follows.
constexpr double largest_part = 0.01;

// The largest magnitude of a component from some sample on.
double largest_component(const std::vector<double>& values, std::size_t first, std::size_t end, std::size_t component,
                         std::size_t dimension) {
    double largest = 0.0;
    for (std::size_t i = first; i < end; ++i)
        largest = std::max(largest, largest_magnitude(std::span(values).subspan(i * dimension + component, 1)));
    return largest;
}

// How many times as high as g(0) / (h K(0)) the spike is. The integral of the first polynomial is 0 at the start of the
// step, and must be g(0) at every node k / m.
double relative_height(const setting& chosen) {
    double sum = 0.0;
    for (const int k : chosen.nodes)
        sum += static_cast<double>(chosen.m) / k;
    return sum;
}

std::string description(const equation_samples& posed, std::size_t unknown, const std::string& height) {
    const auto end = posed.g.begin() + static_cast<std::ptrdiff_t>(posed.dimension());
    const auto worst = std::max_element(posed.g.begin(), end,
                                        [](double left, double right) { return std::abs(left) < std::abs(right); });
    return sentence(posed.dimension() == 1 ? "g" : sentence("g", worst - posed.g.begin() + 1), "(0) is ", *worst,
                    ", but the integral is 0 at t = 0, and ", posed.unknowns[unknown], " starts with a spike", height,
                    "; expected 0: correct the offset of g, or the time at which it starts");
}

} // namespace

std::optional<std::string> fault_of_forcing(const equation_samples& posed, const setting& chosen,
                                            const std::vector<double>& y) {
    const std::size_t dimension = posed.dimension();
    const std::size_t per_step = static_cast<std::size_t>(chosen.samples_per_step());
    const std::span<const double> start(posed.g.data(), dimension);
    if (!all_finite(posed.kernels(0, per_step + 1)) || !all_finite(start) || largest_magnitude(start) == 0.0)
        return std::nullopt;

    // Without an inverse of K(0) the spike has no bound, and g(0) is compared with g.
    const kernel_factors of_start(kernel_matrix(posed, 0));
    if (is_singular(of_start)) {
        for (std::size_t r = 0; r < dimension; ++r)
            if (std::abs(start[r]) > largest_part * largest_component(posed.g, 0, posed.solved, r, dimension))
                return description(posed, r, "");
        return std::nullopt;
    }
    const Eigen::VectorXd jump =
        of_start.solve(Eigen::Map<const Eigen::VectorXd>(start.data(), static_cast<Eigen::Index>(dimension)));
    const double h = posed.spacing * static_cast<double>(per_step), height = relative_height(chosen);
    const std::size_t after_spike = posed.steps <= 2 ? 0 : 2 * per_step + 1;
    for (std::size_t r = 0; r < dimension; ++r) {
        const double spike = height * std::abs(jump[static_cast<Eigen::Index>(r)]) / h;
        if (spike > largest_part * largest_component(y, after_spike, posed.solved, r, dimension))
            return description(posed, r,
                               sentence(" of the order of ", two_digits(spike), " that grows as the spacing falls"));
    }
    return std::nullopt;
}

} // namespace quenta_program
