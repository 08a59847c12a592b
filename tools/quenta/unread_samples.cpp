#include "unread_samples.hpp"

#include "finite_values.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace quenta_program {

namespace {

// Differences below this part of the largest value are due to rounding.
constexpr double rounding = 1e-12;

constexpr std::size_t width = 4;

// The Lagrange polynomial through the nearest ones of other samples, at a sample that is not read.
class neighbour_polynomial {
public:
    // `following` is the index in `others` of the first sample after `row`.
    neighbour_polynomial(const std::vector<std::size_t>& others, std::size_t following, std::size_t row) {
        const std::size_t first = std::min(following - std::min<std::size_t>(following, 2), others.size() - count);
        std::copy_n(others.begin() + static_cast<std::ptrdiff_t>(first), count, places.begin());
        for (std::size_t j = 0; j < count; ++j) {
            double numerator = 1.0, denominator = 1.0;
            for (std::size_t k = 0; k < count; ++k)
                if (k != j) {
                    numerator *= distance(row, places[k]);
                    denominator *= distance(places[j], places[k]);
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

// The polynomial at `row`, which lies between `read[following - 1]` and `read[following]`. Outside of the samples that
// are read, and where they are few, it passes through the nearest samples, read or not.
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

// The largest difference of two finite values, or 0.
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
    for (std::size_t step = 0; step < steps; ++step)
        for (const int k : chosen.nodes)
            is_read[step * per_step + static_cast<std::size_t>(k) * m] = true;
    return is_read;
}

std::vector<bool> read_at_lags(const setting& chosen, std::size_t steps) {
    const int m = chosen.m;
    std::vector<bool> is_read(steps * static_cast<std::size_t>(m * m) + 1);
    for (const int k : chosen.nodes)
        for (const int l : chosen.nodes) {
            // In the current step the integral up to the node k has the nodes k/m of that part.
            is_read[static_cast<std::size_t>(k * (m - l))] = true;
            for (std::size_t distance = 1; distance < steps; ++distance)
                is_read[distance * static_cast<std::size_t>(m * m) + static_cast<std::size_t>(k * m) -
                        static_cast<std::size_t>(l * m)] = true;
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
        const double weight = polynomial.sum_of_absolute_weights();
        for (std::size_t c = 0; c < columns.size(); ++c) {
            if (ranges[c] == 0.0)
                continue; // a constant
            const double difference = std::abs(columns[c][row] - polynomial.value(columns[c]));
            // Samples that are not finite are reported by themselves.
            if (std::isfinite(difference) && difference > unread_tolerance * ranges[c] * weight + rounding * largest &&
                (!worst || difference / ranges[c] > worst->part_of_range))
                worst = {c, row, difference / ranges[c], unread_tolerance * weight};
        }
    }
    return worst;
}

} // namespace quenta_program
