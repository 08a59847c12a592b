#include "quenta_equations/default_mesh.hpp"

#include "quenta_equations/delay_terms.hpp" // same_time
#include "quenta_equations/powers.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace quenta {

namespace {

// A larger exponent makes the first steps too short for the numbers, which is also avoided by log(t_end J^-r) >= -680.
constexpr double largest_grading = 100.0, log_of_shortest = -680.0;
constexpr double least_grading = 1.05; // after 0
// The number of steps is rounded up, except where only a rounding error makes it larger than an integer.
constexpr double almost_1 = 1.0 - 0x1p-40;

// beta.
double smoothness(const quenta_equation& equation) {
    double alpha = 0.0;
    for (const memory_term& term : equation.memory)
        alpha = std::max(alpha, term.singularity);
    return alpha == 0.0 || equation.kind != equation_kind::first ? 1.0 - alpha : alpha;
}

} // namespace

default_mesh::default_mesh(const quenta_equation& equation, double end, int P, int steps, int doublings, int most_steps)
    : beta{smoothness(equation)}, shortest_step{equation.delays.empty() ? 0.0 : 4.0 * same_time * end} {
    const double delay = equation.shortest_delay();
    double total = 0.0;
    for (const auto& [start, piece_end, order] : pieces_between_breaks(equation, end, P, most_steps)) {
        const double length = piece_end - start;
        const double wanted = almost_1 * std::max(steps * (length / end), length / delay);
        piece next{start, piece_end, 1 + int(wanted), 0, 1.0, 0.0, 0.0};
        if (const double r = P / (beta + order); beta < 1.0 && (start == 0.0 || r >= least_grading)) {
            if (!equation.delays.empty())
                next.steps = std::max(next.steps, 2);
            set_grading(next, r, doublings);
        }
        total += next.steps;
        pieces.push_back(next);
    }
    if (total > most_steps)
        throw solve_ended{equation_status::steps_above_delay};
}

// 4, 5 or 6 of 8 steps: the smaller beta is, the more the graded steps decide about the error. If the number of steps
// is a multiple of 8, twice as many steps have twice as many graded ones.
int default_mesh::graded_steps(int steps) const {
    const int of_eight = 4 + static_cast<int>(3.0 * (1.0 - beta));
    return static_cast<int>(std::int64_t{steps} * of_eight / 8);
}

// Grades the piece with the exponent r, or a smaller one if its steps would be too short.
void default_mesh::set_grading(piece& of, double r, int doublings) const {
    const std::int64_t J = graded_steps(of.steps), most_graded = J << doublings;
    r = std::min(r, largest_grading);
    if (of.start == 0.0) {
        if (most_graded > 1)
            r = std::min(r, (natural_log(of.end) - log_of_shortest) / natural_log(double(most_graded)));
    } else {
        // With this offset the first step is about as long as the shortest one.
        const double shortest_equal = (of.end - of.start) / std::ldexp(double(of.steps), doublings);
        if (shortest_equal <= 2.0 * shortest_step)
            return;
        of.offset = power(shortest_step / shortest_equal, 1.0 / (r - 1.0));
        of.offset_power = power(of.offset, r);
    }
    of.graded = r > 1.0 ? int(J) : 0;
    of.grading = r;
}

bool default_mesh::is_graded() const {
    return std::any_of(pieces.begin(), pieces.end(), [](const piece& of) { return of.graded > 0; });
}

void default_mesh::append(const piece& of, int doublings, std::vector<double>& mesh) const {
    std::int64_t n = of.steps, J = of.graded;
    const double length = of.end - of.start;
    for (int doubling = 0; doubling < doublings && length / double(2 * n) >= shortest_step; ++doubling) {
        n *= 2;
        J *= 2;
    }
    const double graded_length = double(J) / of.grading; // T / h
    const double T = length * (graded_length / (double(n - J) + graded_length));
    for (std::int64_t j = 1; j <= J; ++j) {
        const double x = of.offset + (1.0 - of.offset) * (double(j) / double(J));
        mesh.push_back(of.start + T * ((power(x, of.grading) - of.offset_power) / (1.0 - of.offset_power)));
    }
    for (std::int64_t m = J + 1; m < n; ++m)
        mesh.push_back(of.start + (T + (length - T) * (double(m - J) / double(n - J))));
    mesh.push_back(of.end);
}

std::vector<double> default_mesh::doubled(int doublings) const {
    std::vector<double> mesh{0.0};
    for (const piece& of : pieces)
        append(of, doublings, mesh);
    return mesh;
}

} // namespace quenta
