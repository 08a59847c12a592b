#include "settings_table.hpp"

#include "messages.hpp"
#include "quenta_native.h"
#include "unread_samples.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iomanip>
#include <numeric>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>

namespace quenta_program {

namespace {

// Parses an integer at the front of the text and removes it.
std::optional<int> take_int(std::string_view& text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc())
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
}

bool take_character(std::string_view& text, char expected) {
    if (!text.starts_with(expected))
        return false;
    text.remove_prefix(1);
    return true;
}

std::optional<setting> read_setting(std::string_view text) {
    const std::optional<int> m = take_int(text);
    if (!m || !take_character(text, ':'))
        return std::nullopt;
    setting read{*m, {}};
    do {
        const std::optional<int> node = take_int(text);
        if (!node)
            return std::nullopt;
        read.nodes.push_back(*node);
    } while (take_character(text, ','));
    if (!text.empty())
        return std::nullopt;
    return read;
}

// Sorts by the difference in m, then by the number of nodes that only one of the two settings has.
std::pair<long long, std::size_t> distance(const setting& asked, const setting& row) {
    const std::set<int> wanted(asked.nodes.begin(), asked.nodes.end());
    std::vector<int> different;
    std::set_symmetric_difference(wanted.begin(), wanted.end(), row.nodes.begin(), row.nodes.end(),
                                  std::back_inserter(different));
    return {std::llabs(static_cast<long long>(asked.m) - row.m), different.size()};
}

// The fraction in lowest terms.
std::string fraction(int numerator, int denominator) {
    const int divisor = std::gcd(numerator, denominator);
    if (divisor == denominator)
        return std::to_string(numerator / denominator);
    return std::to_string(numerator / divisor) + "/" + std::to_string(denominator / divisor);
}

// The part of the samples that is read in the second of three steps, and so in every inner step.
std::string part_read(const std::vector<bool>& of_three_steps, int per_step) {
    const auto step = of_three_steps.begin() + per_step;
    return fraction(static_cast<int>(std::count(step, step + per_step, true)), per_step);
}

template <class element, class shown>
std::string comma_separated(const std::vector<element>& elements, const shown& show) {
    std::string text;
    for (const element& one : elements)
        text.append(text.empty() ? "" : ",").append(show(one));
    return text;
}

} // namespace

std::string setting::text() const {
    return std::to_string(m) + ":" + comma_separated(nodes, [](int k_i) { return std::to_string(k_i); });
}

std::vector<setting> supported_settings() {
    const std::size_t stride = static_cast<std::size_t>(quenta_max_coll_params()) + 1;
    const std::size_t rows = static_cast<std::size_t>(quenta_num_supported_settings());
    std::vector<int> table(rows * stride);
    quenta_get_supported_settings(table.data());
    std::vector<setting> settings;
    for (auto row = table.begin(); row != table.end(); row += static_cast<std::ptrdiff_t>(stride)) {
        const auto end = row + static_cast<std::ptrdiff_t>(stride);
        settings.push_back({*row, {row + 1, std::find(row + 1, end, -1)}});
    }
    return settings;
}

std::vector<setting> nearest_settings(const setting& asked) {
    std::vector<setting> settings = supported_settings();
    std::stable_sort(settings.begin(), settings.end(), [&](const setting& left, const setting& right) {
        return distance(asked, left) < distance(asked, right);
    });
    return settings;
}

setting parse_setting(const std::string& text) {
    const std::optional<setting> asked = read_setting(text);
    if (!asked)
        throw bad_input(sentence("expected a setting m:k1,k2,.. such as ", default_setting, ", got ", in_quotes(text)));
    const std::vector<setting> settings = nearest_settings(*asked);
    if (settings.at(0) == *asked)
        return *asked;
    throw bad_input(sentence("expected a setting that 'quenta settings' lists, such as ", settings.at(0).text(), " or ",
                             settings.at(1).text(), " or ", settings.at(2).text(), ", got ", in_quotes(text)));
}

std::string settings_listing() {
    std::ostringstream listing;
    const auto line = [&](const auto& row, const auto& name, const auto& m, const auto& nodes, const auto& parameters,
                          const auto& samples, const auto& of_g, const auto& of_K, const auto& degree) {
        listing << std::right << std::setw(3) << row << "  " << std::left << std::setw(12) << name << std::setw(4) << m
                << std::setw(12) << nodes << std::setw(21) << parameters << std::right << std::setw(16) << samples
                << std::setw(14) << of_g << std::setw(11) << of_K << std::setw(8) << degree << '\n';
    };
    line("row", "setting", "m", "nodes k", "parameters c = k/m", "samples per step", "read of g, a", "read of K",
         "degree");
    int row = 0;
    for (const setting& one : supported_settings())
        line(row++, one.text(), one.m, comma_separated(one.nodes, [](int k_i) { return std::to_string(k_i); }),
             comma_separated(one.nodes, [&](int k_i) { return fraction(k_i, one.m); }), one.samples_per_step(),
             part_read(read_at_nodes(one, 3), one.samples_per_step()),
             part_read(read_at_lags(one, 3), one.samples_per_step()), one.count() - 1);
    return listing.str();
}

} // namespace quenta_program
