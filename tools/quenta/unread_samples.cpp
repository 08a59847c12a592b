#include "unread_samples.hpp"

#include "finite_values.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace quenta_program {

namespace {

// Differences below this fraction of the largest value are attributed to rounding.
constexpr double rounding = 1e-12;

constexpr std::size_t width = 4;

// The Lagrange polynomial through the four samples of `others` nearest to `row`, evaluated at `row`.
class neighbour_polynomial {
public:
    // `following` is the index in `others` of the first sample after `row`.
    neighbour_polynomial(const std::vector<std::size_t>& others, std::size_t following, std::size_t row) {
        const std::size_t first = std::min(following - std::min<std::size_t>(following, 2), others.size() - count);
        std::copy_n(others.begin() + static_cast<std::ptrdiff_t>(first), count, places.begin());
        for (std::size_t j = 0; j < count; ++j) {
            double numerator = 1.0, denominator = 1.0;
            for (std::size_t i = 0; i < count; ++i)
                if (i != j) {
                    numerator *= distance(row, places[i]);
                    denominator *= distance(places[j], places[i]);
                }
            weights[j] = numerator / denominator;
        }
    }

    double value(const std::vector<double>& column) const {
        double sum = 0.0;
        for (std::size_t j = 0; j < count; ++j)
            sum += weights[j] * column[places[j]];
        return sum;
    }
    double sum_of_absolute_weights() const {
        double sum = 0.0;
        for (std::size_t j = 0; j < count; ++j)
            sum += std::abs(weights[j]);
        return sum;
    }

private:
    static double distance(std::size_t from, std::size_t to) {
        return static_cast<double>(from) - static_cast<double>(to);
    }

    static constexpr std::size_t count = width;
    std::array<std::size_t, count> places{};
    std::array<double, count> weights{};
};

// The polynomial at `row`, which is between `read[following - 1]` and `read[following]`. Before the first and after the
// last of `read`, or if there are fewer than four, it passes through the nearest samples, read or not.
neighbour_polynomial polynomial_at(std::size_t row, const std::vector<std::size_t>& read, std::size_t following,
                                   std::size_t rows) {
    if (read.size() >= width && following > 0 && following < read.size())
        return {read, following, row};
    std::vector<std::size_t> others;
    for (std::size_t other = row - std::min(row, width); other < std::min(row + width + 1, rows); ++other)
        if (other != row)
            others.push_back(other);
    return {others, std::min(row, width), row};
}

// The range of the finite values.
double range_of(std::span<const double> values) {
    double lowest = INFINITY, highest = -INFINITY;
    for (const double value : values)
        if (std::isfinite(value)) {
            lowest = std::min(lowest, value);
            highest = std::max(highest, value);
        }
    return highest > lowest ? highest - lowest : 0.0;
}

} // namespace

std::vector<bool> read_at_nodes(const setting& chosen, std::size_t steps) {
    const auto m = static_cast<std::size_t>(chosen.m), per_step = m * m;
    std::vector<bool> is_read(steps * per_step + 1);
    for (std::size_t n = 0; n < steps; ++n)
        for (const int k_i : chosen.nodes)
            is_read[n * per_step + static_cast<std::size_t>(k_i) * m] = true;
    return is_read;
}

std::vector<bool> read_at_lags(const setting& chosen, std::size_t steps) {
    const int m = chosen.m;
    std::vector<bool> is_read(steps * static_cast<std::size_t>(m * m) + 1);
    for (const int k_i : chosen.nodes)
        for (const int k_j : chosen.nodes) {
            // In the current step the integral up to c_i has its quadrature points at c_i c_j, lag c_i (1 - c_j).
            is_read[static_cast<std::size_t>(k_i * (m - k_j))] = true;
            // In previous steps the lag is d + c_i - c_j.
            for (std::size_t d = 1; d < steps; ++d)
                is_read[d * static_cast<std::size_t>(m * m) + static_cast<std::size_t>(k_i * m) -
                        static_cast<std::size_t>(k_j * m)] = true;
        }
    return is_read;
}

std::optional<unread_difference> largest_difference(std::span<const std::vector<double>> columns,
                                                    const std::vector<bool>& is_read) {
    const std::size_t rows = is_read.size();
    std::vector<std::size_t> read;
    for (std::size_t row = 0; row < rows; ++row)
        if (is_read[row])
            read.push_back(row);
    if (read.size() == rows || rows <= width)
        return std::nullopt;

    double largest = 0.0;
    std::vector<double> ranges;
    for (const std::vector<double>& column : columns) {
        const std::span<const double> values(column.data(), rows);
        ranges.push_back(range_of(values));
        largest = std::max(largest, largest_magnitude(values));
    }

    std::optional<unread_difference> worst;
    std::size_t following = 0;
    for (std::size_t row = 0; row < rows; ++row) {
        if (is_read[row]) {
            ++following;
            continue;
        }
        const neighbour_polynomial polynomial = polynomial_at(row, read, following, rows);
        const double Lambda = polynomial.sum_of_absolute_weights();
        for (std::size_t column = 0; column < columns.size(); ++column) {
            const double range = ranges[column];
            if (range == 0.0)
                continue;
            const double difference = std::abs(columns[column][row] - polynomial.value(columns[column]));
            // Samples that are not finite have a warning of their own.
            if (std::isfinite(difference) && difference > unread_tolerance * range * Lambda + rounding * largest &&
                (!worst || difference / range > worst->part_of_range))
                worst = {column, row, difference / range, unread_tolerance * Lambda};
        }
    }
    return worst;
}

} // namespace quenta_program
