#include "sample_grid.hpp"

#include "messages.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>

namespace quenta_program {

namespace {

constexpr std::size_t largest_index = std::numeric_limits<int>::max();
constexpr std::size_t largest_root = 46340; // of largest_index, rounded down

// The value nearby with the fewest digits.
double shortened(double value, double largest_change) {
    for (int digits = 0; digits < 17; ++digits) {
        char text[32];
        const char* const end =
            std::to_chars(text, text + sizeof text, value, std::chars_format::scientific, digits).ptr;
        double read = 0.0;
        std::from_chars(text, end, read);
        if (std::abs(read - value) <= largest_change)
            return read;
    }
    return value;
}

// The first row that deviates from the grid, with the expected time and where it comes from. The expected time has
// enough digits to differ from the time of the row.
struct misplaced {
    std::size_t row;
    double expected;
    std::string origin;
};
misplaced find_misplaced(const std::vector<double>& t, double mean_spacing) {
    std::vector<double> spacings(t.size() - 1);
    for (std::size_t row = 1; row < t.size(); ++row)
        spacings[row - 1] = t[row] - t[row - 1];
    const auto middle = spacings.begin() + static_cast<std::ptrdiff_t>(spacings.size() / 2);
    std::nth_element(spacings.begin(), middle, spacings.end());
    // A row is compared with the row before and the median spacing: a missing row changes the mean, and with it the
    // grid of all rows. Twice the tolerance, because both times may be rounded.
    const double change = 0.5 * grid_tolerance * *middle;
    for (std::size_t row = 1; row < t.size(); ++row)
        if (!(std::abs(t[row] - t[row - 1] - *middle) <= 2.0 * grid_tolerance * *middle))
            return {row, shortened(t[row - 1] + *middle, change),
                    sentence("the time before plus the median spacing ", shortened(*middle, change))};
    // Each spacing is within the tolerance, but their sum is not.
    std::size_t row = 1;
    const auto on_grid = [&] {
        return static_cast<double>(row) * mean_spacing;
    };
    while (row + 1 < t.size() && std::abs(t[row] - on_grid()) <= grid_tolerance * mean_spacing)
        ++row;
    return {row, shortened(on_grid(), 0.5 * grid_tolerance * mean_spacing), sentence(row, " times the mean spacing")};
}

bool is_uniform(const std::vector<double>& t, double spacing) {
    for (std::size_t row = 0; row < t.size(); ++row)
        if (!(std::abs(t[row] - static_cast<double>(row) * spacing) <= grid_tolerance * spacing))
            return false;
    return true;
}

} // namespace

int whole_steps(const std::string& source, std::size_t samples, const setting& chosen, std::size_t dimension) {
    // The current step reads the kernel up to lag h, so the samples of one whole step are enough.
    const std::size_t per_step = static_cast<std::size_t>(chosen.samples_per_step());
    if (samples < per_step + 1)
        throw bad_input(sentence(source, ": expected at least ", per_step + 1, " samples, one step of the setting ",
                                 chosen.text(), ", got ", samples));
    const std::string of_system = dimension == 1 ? "" : sentence(" in ", dimension, " dimensions");
    const std::size_t most_samples = largest_index / dimension / dimension;
    if (samples > most_samples)
        throw bad_input(
            sentence(source, ": expected at most ", most_samples, " samples", of_system, ", got ", samples));
    const std::size_t powers = static_cast<std::size_t>(chosen.count()) + 1, width = powers * dimension;
    if (width > largest_root)
        throw bad_input(sentence(source, ": expected at most ", largest_root / powers, " dimensions with the setting ",
                                 chosen.text(), ", got ", dimension));
    const std::size_t steps = (samples - 1) / per_step, most_steps = largest_index / width;
    if (steps > most_steps)
        throw bad_input(sentence(source, ": expected at most ", (most_steps + 1) * per_step, " samples", of_system,
                                 " with the setting ", chosen.text(), ", got ", samples));
    return static_cast<int>(steps);
}

double uniform_spacing(const csv_table& table) {
    const std::vector<double>& t = table.column("t");
    const auto field = [&](std::size_t row) {
        return in_quotes(table.first_field(row));
    };
    for (std::size_t row = 0; row < t.size(); ++row)
        if (!std::isfinite(t[row]))
            throw bad_input(sentence(table.place(row), "expected a finite t, got ", field(row)));
    for (std::size_t row = 1; row < t.size(); ++row)
        if (!(t[row] > t[row - 1]))
            throw bad_input(
                sentence(table.place(row), "expected t to increase, got ", field(row), " after ", field(row - 1)));
    if (!(std::abs(t[0]) <= grid_tolerance * (t[1] - t[0])))
        throw bad_input(
            sentence(table.place(0), "expected t to start at 0, because t is also the lag of K, got ", field(0)));
    const double spacing = t.back() / static_cast<double>(t.size() - 1);
    if (!is_uniform(t, spacing)) {
        const misplaced wrong = find_misplaced(t, spacing);
        throw bad_input(sentence(table.place(wrong.row), "expected t = ", wrong.expected, ", ", wrong.origin,
                                 ", because samples are equally spaced to within ", grid_tolerance,
                                 " of the spacing, got ", field(wrong.row),
                                 "; if the times were rounded, write more digits; if they are unequal, interpolate the "
                                 "samples to equal steps first"));
    }
    return spacing;
}

} // namespace quenta_program
