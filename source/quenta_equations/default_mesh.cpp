#include "quenta_equations/default_mesh.hpp"

#include "quenta_equations/powers.hpp"

#include <algorithm>
#include <cstdint>

namespace quenta {

namespace {

// A larger exponent makes the first steps too short for the numbers, which is also avoided by log(t_end J^-r) >= -680.
constexpr double largest_grading = 100.0, log_of_shortest = -680.0;

// beta.
double smoothness(const quenta_equation& equation) {
    double alpha = 0.0;
    for (const memory_term& term : equation.memory)
        alpha = std::max(alpha, term.singularity);
    return alpha == 0.0 || equation.kind != equation_kind::first ? 1.0 - alpha : alpha;
}

} // namespace

default_mesh::default_mesh(const quenta_equation& equation, double end, int P, int most_steps)
    : t_end{end}, beta{smoothness(equation)} {
    const int J = graded_steps(most_steps);
    if (J == 0)
        return;
    grading = std::min(P / beta, largest_grading);
    if (J > 1)
        grading = std::min(grading, (natural_log(t_end) - log_of_shortest) / natural_log(J));
    grading = std::max(grading, 1.0);
}

// 4, 5 or 6 of 8 steps: the smaller beta is, the more the graded steps decide about the error. If the number of steps
// is a multiple of 8, twice as many steps have twice as many graded ones.
int default_mesh::graded_steps(int steps) const {
    const int of_eight = 4 + static_cast<int>(3.0 * (1.0 - beta));
    return beta == 1.0 ? 0 : static_cast<int>(std::int64_t{steps} * of_eight / 8);
}

std::vector<double> default_mesh::of(int steps) const {
    std::vector<double> mesh(std::size_t(steps) + 1);
    const int J = is_graded() ? graded_steps(steps) : 0;
    if (J == 0) {
        for (int n = 0; n <= steps; ++n)
            mesh[n] = t_end * (double(n) / double(steps));
        return mesh;
    }
    const double graded_length = J / grading; // T / h
    const double T = t_end * (graded_length / (steps - J + graded_length));
    for (int j = 1; j <= J; ++j)
        mesh[j] = T * power(double(j) / double(J), grading);
    for (int n = J + 1; n <= steps; ++n)
        mesh[n] = T + (t_end - T) * (double(n - J) / double(steps - J));
    mesh[steps] = t_end;
    return mesh;
}

} // namespace quenta
