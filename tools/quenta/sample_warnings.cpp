#include "sample_warnings.hpp"

#include "messages.hpp"
#include "unread_samples.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace quenta_program {

namespace {

std::string percent(double part) {
    return two_digits(100.0 * part) + " percent";
}

std::string advice(const setting& chosen, bool first_kind) {
    if (!first_kind)
        return sentence("the setting ", every_sample_setting, " reads every sample");
    if (chosen.text() == every_sample_first_kind_setting)
        return "no setting of a first-kind equation reads the first sample of g and the last of K";
    return sentence("the setting ", every_sample_first_kind_setting,
                    " reads every sample except the first of g and the last of K");
}

} // namespace

bool warn_of_non_finite(const csv_table& table, const sample_columns& checked, const setting& chosen) {
    bool any_is_read = false;
    for (std::size_t column = checked.first; column < checked.first + checked.count; ++column) {
        const std::vector<double>& values = table.columns[column];
        bool reported[] = {false, false};
        for (std::size_t row = 0; row < values.size(); ++row) {
            const bool is_read = row < checked.is_read.size() && checked.is_read[row];
            if (std::isfinite(values[row]) || std::exchange(reported[is_read], true))
                continue;
            if (is_read)
                warning(table.place(row), table.names[column], " is ", values[row],
                        ", so the solution will not be finite");
            else
                warning(table.place(row), table.names[column], " is ", values[row], ", and the setting ", chosen.text(),
                        " does not read this sample");
        }
        any_is_read = any_is_read || reported[true];
    }
    return any_is_read;
}

void warn_of_differences(const csv_table& table, const sample_columns& checked, const setting& chosen,
                         bool first_kind) {
    const std::span<const std::vector<double>> columns(table.columns.data() + checked.first, checked.count);
    const std::optional<unread_difference> found = largest_difference(columns, checked.is_read);
    if (!found)
        return;
    warning(table.place(found->row), "the setting ", chosen.text(), " does not read ",
            std::count(checked.is_read.begin(), checked.is_read.end(), false), " of ", checked.is_read.size(),
            " samples of ", checked.argument,
            ", and they contradict the samples that it reads: at t = ", table.columns[0][found->row], " ",
            table.names[checked.first + found->column], " is ", columns[found->column][found->row],
            ", which differs from the polynomial through its neighbours by ", percent(found->part_of_range),
            " of the range; expected at most ", percent(found->allowed), ", and ", advice(chosen, first_kind));
}

} // namespace quenta_program
