#include "first_kind_trial.hpp"

#include "finite_values.hpp"
#include "messages.hpp"
#include "quenta_native.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace quenta_program {

namespace {

// Half of the steps. The number is large enough for decaying modes to vanish, and small enough to avoid overflow.
constexpr std::size_t half = 50;

// Names the three nearest settings that work without growth.
std::string settings_that_work(const setting& asked, bool continuous) {
    std::string text;
    int found = 0;
    for (const setting& one : nearest_settings(asked)) {
        const first_kind_trial tried = try_first_kind(one, continuous);
        if (tried.verdict != first_kind_verdict::solvable || tried.grows())
            continue;
        text.append(found == 0 ? "" : " or ").append(one.text());
        if (++found == 3)
            break;
    }
    return text;
}

} // namespace

first_kind_trial try_first_kind(const setting& chosen, bool continuous) {
    const std::size_t per_step = static_cast<std::size_t>(chosen.samples_per_step());
    const std::size_t samples = 2 * half * per_step + 1;
    const std::vector<double> kernel(samples, 1.0);
    std::vector<double> forcing(samples, 0.0);
    for (std::size_t sample = 0; sample <= per_step; ++sample)
        forcing[sample] = 1.0 / static_cast<double>(sample + 1); // excites every mode of the step
    std::vector<double> y(samples);
    const std::size_t per_half = half * (static_cast<std::size_t>(chosen.count()) + 1);
    std::vector<double> coefficients(2 * per_half);
    int steps = 0;
    const int status = quenta_solve_vie1(forcing.data(), kernel.data(), static_cast<int>(samples), 1.0,
                                         1.0 / static_cast<double>(per_step), chosen.m, chosen.nodes.data(),
                                         chosen.count(), 1, continuous, y.data(), coefficients.data(), &steps);
    if (status == QUENTA_UNSUPPORTED_SETTING)
        return {first_kind_verdict::refused, 0.0};
    if (status == QUENTA_SINGULAR_BLOCK)
        return {first_kind_verdict::singular, 0.0};
    if (status != QUENTA_SOLVED)
        throw std::logic_error(sentence("internal error: the library returned status ", status,
                                        " for a trial of the setting ", chosen.text()));
    if (!all_finite(coefficients))
        return {first_kind_verdict::without_basis, 0.0};

    const auto smaller = [](double left, double right) {
        return std::abs(left) < std::abs(right);
    };
    const auto middle = coefficients.begin() + static_cast<std::ptrdiff_t>(per_half);
    const double before = std::abs(*std::max_element(coefficients.begin(), middle, smaller));
    const double after = std::abs(*std::max_element(middle, coefficients.end(), smaller));
    return {first_kind_verdict::solvable, std::pow(after / before, 1.0 / static_cast<double>(half))};
}

void require_first_kind(const setting& chosen, bool continuous) {
    const auto refuse = [&](std::string_view why) {
        throw bad_input(sentence("the setting ", chosen.text(), " ", why, "; expected for example ",
                                 settings_that_work(chosen, continuous)));
    };
    switch (try_first_kind(chosen, continuous).verdict) {
    case first_kind_verdict::refused:
        return refuse("amplifies every error of a first-kind equation and is not supported");
    case first_kind_verdict::singular:
        return refuse("has the node 0, where a first-kind equation contains no unknown of the step");
    case first_kind_verdict::without_basis:
        return refuse("has the node 0, which the continuous form already contains");
    case first_kind_verdict::solvable:
        return;
    }
}

void warn_of_growth(const setting& chosen, bool continuous) {
    const first_kind_trial tried = try_first_kind(chosen, continuous);
    if (tried.grows())
        warning("with the setting ", chosen.text(), " errors grow by a factor of about ",
                std::round(tried.growth * 100.0) / 100.0, " in every step of the continuous form; expected a setting ",
                "without growth, for example ", settings_that_work(chosen, continuous));
}

} // namespace quenta_program
