#include "quenta_equations/delay_terms.hpp"

#include <algorithm>
#include <cmath>

namespace quenta {

namespace {

// Of one call of a function: see direct_history.cpp.
constexpr std::int64_t most_batch_points = 1024, most_batch_values = 32768;

int widest_phi(const quenta_equation& equation) {
    int E = equation.delays.empty() ? 0 : equation.D;
    for (const delay_term& term : equation.delays)
        E = std::max(E, term.E);
    return E;
}

std::int64_t points_at_once(const quenta_equation& equation, std::int64_t P) {
    if (equation.delays.empty())
        return 0;
    const std::int64_t block = std::int64_t{equation.D} * widest_phi(equation);
    return std::max(P, std::min(most_batch_points, most_batch_values / block));
}

} // namespace

delay_terms::delay_terms(const quenta_equation& of, const quenta_solution& in)
    : equation{of}, solution{in}, D{of.D}, P{in.nodes.P}, most_points{points_at_once(of, P)},
      batch_steps{most_points / P}, shortest_delay{of.shortest_delay()}, rounding{same_delayed_time * in.mesh.back()},
      sources(most_points), targets(most_points), times(most_points), past(most_points * D), y(most_points * D),
      phi(most_points * widest_phi(of)), weight(most_points * D * widest_phi(of)), batch_step(most_points),
      batch_times(most_points), batch_sums(most_points * D), total(most_points > 0 ? P * D : 0) {}

// The solved step that contains s > 0, or the last one.
std::int64_t delay_terms::step_with(double s) const {
    return std::min(solution.step_at(s), std::int64_t{solution.steps} - 1);
}

// The mesh point that differs from s > 0 by rounding only, or -1.
std::int64_t delay_terms::mesh_point_at(double s) const {
    const std::int64_t k = step_with(s), m = s - solution.mesh[k] < solution.mesh[k + 1] - s ? k : k + 1;
    return std::fabs(s - solution.mesh[m]) <= rounding ? m : -1;
}

// The step of the times just after s, or before it.
std::int64_t delay_terms::step_from(double s) const {
    if (s <= rounding)
        return s < -rounding ? -1 : 0;
    const std::int64_t m = mesh_point_at(s);
    return m >= 0 ? m : step_with(s);
}
std::int64_t delay_terms::step_to(double s) const {
    if (s <= rounding)
        return -1;
    const std::int64_t m = mesh_point_at(s);
    return m >= 0 ? m - 1 : step_with(s);
}

delay_terms::source delay_terms::source_of(std::int64_t n, double t, double delay) const {
    const std::vector<double>& mesh = solution.mesh;
    const std::int64_t first = step_from(mesh[n] - delay), last = std::max(first, step_to(mesh[n + 1] - delay));
    const double s = t - delay;
    std::int64_t k = first;
    if (first < last)
        k = s < 0.0 ? first : std::clamp(step_with(s), first, last);
    k = std::min(k, std::int64_t{solution.steps} - 1);
    return {k, k < 0 ? std::min(s, 0.0) : std::clamp(s, mesh[k], mesh[k + 1])};
}

// y at the first `count` sources.
void delay_terms::evaluate_y(std::int64_t count) {
    std::int64_t before_0 = 0;
    for (std::int64_t p = 0; p < count; ++p)
        if (sources[p].step < 0)
            times[before_0++] = sources[p].time;
    if (before_0 > 0)
        equation.past(before_0, times.data(), nullptr, past.data());
    const double* from = past.data();
    for (std::int64_t p = 0; p < count; ++p) {
        const auto& [k, s] = sources[p];
        if (k < 0) {
            std::copy_n(from, D, y.data() + p * D);
            from += D;
        } else
            solution.value(k, (s - solution.mesh[k]) / solution.step_length(k), y.data() + p * D);
    }
}

void delay_terms::add_term(const delay_term& term, std::int64_t count, const std::int64_t* step, const double* t,
                           double* sums) {
    std::int64_t present = 0;
    for (std::int64_t p = 0; p < count; ++p) {
        sources[present] = source_of(step[p], t[p], term.delay);
        if (sources[present].step >= 0 || equation.past)
            targets[present++] = p;
    }
    if (present == 0)
        return;
    evaluate_y(present);
    const double* values = y.data();
    if (term.phi) {
        for (std::int64_t p = 0; p < present; ++p)
            times[p] = sources[p].time;
        term.phi(present, times.data(), y.data(), phi.data());
        values = phi.data();
    }
    if (term.weight) {
        for (std::int64_t p = 0; p < present; ++p)
            times[p] = t[targets[p]];
        term.weight(present, times.data(), nullptr, weight.data());
    }
    for (std::int64_t p = 0; p < present; ++p)
        for (int a = 0; a < D; ++a) {
            double sum = 0.0;
            if (!term.weight)
                sum = values[p * D + a];
            else
                for (int c = 0; c < term.E; ++c)
                    sum += weight[(p * D + a) * term.E + c] * values[p * term.E + c];
            sums[targets[p] * D + a] += sum;
        }
}

void delay_terms::add(std::int64_t count, const std::int64_t* step, const double* t, double* sums) {
    if (equation.delays.empty())
        return;
    for (std::int64_t first = 0; first < count; first += most_points)
        for (const delay_term& term : equation.delays)
            add_term(term, std::min(most_points, count - first), step + first, t + first, sums + first * D);
}

// The steps from n on whose times t - tau lie before the start of step n.
void delay_terms::evaluate_batch(std::int64_t n) {
    const std::vector<double>& mesh = solution.mesh;
    const std::int64_t steps = std::int64_t(mesh.size()) - 1;
    batch_first = n;
    batch_end = n + 1;
    while (batch_end < steps && batch_end - n < batch_steps && mesh[batch_end + 1] - shortest_delay <= mesh[n])
        ++batch_end;
    const std::int64_t points = (batch_end - n) * P;
    solution.node_times(n, batch_end - n, batch_times.data());
    for (std::int64_t p = 0; p < points; ++p)
        batch_step[p] = n + p / P;
    std::fill_n(batch_sums.data(), points * D, 0.0);
    add(points, batch_step.data(), batch_times.data(), batch_sums.data());
}

const double* delay_terms::add_to_step(std::int64_t n, const double* sums) {
    if (equation.delays.empty())
        return sums;
    if (n == batch_end)
        evaluate_batch(n);
    const double* const terms = batch_sums.data() + (n - batch_first) * P * D;
    for (std::size_t R = 0; R < total.size(); ++R)
        total[R] = sums[R] + terms[R];
    return total.data();
}

} // namespace quenta
