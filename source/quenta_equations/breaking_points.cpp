#include "quenta_equations/breaking_points.hpp"

#include "quenta_equations/delay_terms.hpp" // same_time

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace quenta {

namespace {

// A time, and the order of the derivative of y that has a jump there.
struct breaking_point {
    double time;
    int order;
};

void check_count(double count, int most) {
    if (!(count <= most))
        throw solve_ended{equation_status::steps_above_delay};
}

// Sorts the points, and keeps one of those that differ by rounding only, with the smallest order of them.
void unite(std::vector<breaking_point>& points, double rounding) {
    std::sort(points.begin(), points.end(), [](const auto& a, const auto& b) { return a.time < b.time; });
    std::size_t kept = 0;
    for (const breaking_point& point : points)
        if (kept > 0 && point.time - points[kept - 1].time <= rounding)
            points[kept - 1].order = std::min(points[kept - 1].order, point.order);
        else
            points[kept++] = point;
    points.resize(kept);
}

// Those that are shorter than t_end.
std::vector<double> distinct_delays(const quenta_equation& equation, double t_end) {
    std::vector<double> delays;
    for (const delay_term& term : equation.delays)
        if (term.delay < t_end)
            delays.push_back(term.delay);
    std::sort(delays.begin(), delays.end());
    delays.erase(std::unique(delays.begin(), delays.end()), delays.end());
    return delays;
}

bool are_multiples(const std::vector<double>& delays) {
    return std::all_of(delays.begin(), delays.end(), [&](double delay) {
        const double ratio = delay / delays.front();
        return std::fabs(ratio - double(std::int64_t(ratio + 0.5))) <= same_time * ratio;
    });
}

// The times k tau and t_end - k tau.
std::vector<breaking_point> periodic_points(double tau, int smoothing, double t_end) {
    std::vector<breaking_point> points;
    for (int k = 0; k * tau < t_end; ++k) {
        points.push_back({k * tau, k * smoothing});
        points.push_back({t_end - k * tau, no_jump});
    }
    return points;
}

// The sums of delays, of up to most_order.
std::vector<breaking_point> sums_of(const std::vector<double>& delays, int smoothing, double t_end, int most_order,
                                    int most) {
    std::vector<breaking_point> sums{{0.0, 0}, {t_end, no_jump}};
    std::size_t distinct = sums.size();
    const auto keep_distinct = [&] {
        unite(sums, same_time * t_end);
        distinct = sums.size();
        check_count(double(distinct), most);
    };
    for (const double delay : delays) {
        const std::vector<breaking_point> without = sums;
        for (int k = 1; k * delay < t_end; ++k) {
            for (const auto& [time, order] : without)
                if (order <= most_order - k * smoothing && time + k * delay < t_end)
                    sums.push_back({time + k * delay, order + k * smoothing});
            if (sums.size() > 2 * distinct + 1000)
                keep_distinct();
        }
        keep_distinct();
    }
    return sums;
}

} // namespace

std::vector<mesh_piece> pieces_between_breaks(const quenta_equation& equation, double t_end, int P, int most) {
    check_count(t_end / equation.shortest_delay(), most);
    const std::vector<double> delays = distinct_delays(equation, t_end);
    if (delays.empty())
        return {{0.0, t_end, 0}};
    const int smoothing = equation.solves_for_derivative() ? 1 : 0;
    std::vector<breaking_point> points = are_multiples(delays) ? periodic_points(delays.front(), smoothing, t_end)
                                                               : sums_of(delays, smoothing, t_end, P + 2, most);
    unite(points, same_time * t_end);
    points.back().time = t_end;
    check_count(double(points.size()) - 1.0, most);
    std::vector<mesh_piece> pieces;
    for (std::size_t i = 1; i < points.size(); ++i)
        pieces.push_back({points[i - 1].time, points[i].time, points[i - 1].order});
    return pieces;
}

} // namespace quenta
