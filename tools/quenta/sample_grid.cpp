#include "sample_grid.hpp"

#include "messages.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quenta_program {

namespace {

constexpr long long largest_index = std::numeric_limits<int>::max();

// The row where a grid that is not uniform goes wrong, with the time that should stand there. The typical spacing is
// the median: with a row missing, the mean is right nowhere.
struct misplaced {
    std::size_t row;
    double expected;
};
misplaced find_misplaced(const std::vector<double>& t, double mean_spacing) {
    std::vector<double> spacings(t.size() - 1);
    for (std::size_t i = 1; i < t.size(); ++i)
        spacings[i - 1] = t[i] - t[i - 1];
    const auto middle = spacings.begin() + static_cast<std::ptrdiff_t>(spacings.size() / 2);
    std::nth_element(spacings.begin(), middle, spacings.end());
    // Two times may each be off by the tolerance.
    for (std::size_t i = 1; i < t.size(); ++i)
        if (!(std::abs(t[i] - t[i - 1] - *middle) <= 2.0 * grid_tolerance * std::abs(*middle)))
            return {i, t[i - 1] + *middle};
    // Every spacing looks right, but they drift.
    for (std::size_t i = 1; i < t.size(); ++i)
        if (!(std::abs(t[i] - static_cast<double>(i) * mean_spacing) <= grid_tolerance * mean_spacing))
            return {i, static_cast<double>(i) * mean_spacing};
    return {t.size() - 1, static_cast<double>(t.size() - 1) * mean_spacing};
}

bool is_uniform(const std::vector<double>& t, double spacing) {
    for (std::size_t i = 0; i < t.size(); ++i)
        if (!(std::abs(t[i] - static_cast<double>(i) * spacing) <= grid_tolerance * spacing))
            return false;
    return true;
}

} // namespace

int whole_steps(const std::string& source, std::size_t samples, const setting& chosen, std::size_t dimension) {
    // The present step of the scheme reads the kernel up to the end of the first step, so that the samples of one
    // whole step are always enough.
    const std::size_t per_step = static_cast<std::size_t>(chosen.samples_per_step());
    if (samples < per_step + 1)
        throw bad_input(sentence(source, " has ", samples, samples == 1 ? " sample" : " samples",
                                 "; expected at least ", per_step + 1, ", one step of the setting ", chosen.text()));
    const std::string of_system = dimension == 1 ? "" : sentence(" in ", dimension, " dimensions");
    const std::size_t most_samples = static_cast<std::size_t>(largest_index) / dimension / dimension;
    if (samples > most_samples)
        throw bad_input(sentence(source, " has ", samples, " samples; expected at most ", most_samples, of_system));
    const std::size_t steps = (samples - 1) / per_step;
    const std::size_t width = (static_cast<std::size_t>(chosen.count()) + 1) * dimension;
    if (width > static_cast<std::size_t>(largest_index) / width)
        throw bad_input(
            sentence(source, " has ", dimension, " dimensions; expected fewer under the setting ", chosen.text()));
    const std::size_t most_steps = static_cast<std::size_t>(largest_index) / width;
    if (steps > most_steps)
        throw bad_input(sentence(source, " has ", samples, " samples; expected at most ", (most_steps + 1) * per_step,
                                 of_system, " under the setting ", chosen.text()));
    return static_cast<int>(steps);
}

double uniform_spacing(const csv_table& table) {
    const std::vector<double>& t = table.column("t");
    for (std::size_t i = 0; i < t.size(); ++i)
        if (!std::isfinite(t[i]))
            throw bad_input(sentence(table.place(i), "t is ", t[i], "; expected a finite time"));
    for (std::size_t i = 1; i < t.size(); ++i)
        if (!(t[i] > t[i - 1]))
            throw bad_input(
                sentence(table.place(i), "t is ", t[i], " after ", t[i - 1], "; expected times that ascend"));
    if (!(std::abs(t[0]) <= grid_tolerance * (t[1] - t[0])))
        throw bad_input(sentence(table.place(0), "t starts at ", t[0],
                                 "; expected 0, since t is also the lag at which K is given"));
    const double spacing = t.back() / static_cast<double>(t.size() - 1);
    if (!is_uniform(t, spacing)) {
        const misplaced wrong = find_misplaced(t, spacing);
        throw bad_input(sentence(table.place(wrong.row), "t is ", t[wrong.row], "; expected ", wrong.expected,
                                 ", since the samples must be equally spaced, to ", grid_tolerance, " of the spacing"));
    }
    return spacing;
}

} // namespace quenta_program
