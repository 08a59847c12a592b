// Newton's method for the nonlinear equations of a step, and the choice among their solutions.
#include "quenta_equations/step_equations.hpp"

#include "quenta_equations/finite.hpp"
#include "quenta_solvers/dense_solve.hpp" // eps

#include <algorithm>
#include <cmath>

namespace quenta {

namespace {

constexpr int most_iterations = 40, most_halvings = 10;
constexpr double keep_matrix_below = 0.1; // of the residual before the iteration

// The solution is traced unless the feedback is at most this, or the solution differs from the guess by at most this
// part of its unit.
constexpr double small_feedback = 0.5, small_change = 0.1;

// A stage of a trace is short enough if every correction is at most this part of the one before, until a correction is
// below the accuracy. (Near a point where two solutions meet, a correction is half of the one before.)
constexpr double contraction = 0.25, stage_accuracy = 1e-6;
constexpr int most_stage_iterations = 8;
constexpr double shortest_stage = 1e-4, shortest_first_stage = 1e-40;
constexpr int most_stages = 400;

} // namespace

// Rounding X alone changes the residual by eps times |J X|, and the additions in it by eps times their magnitude.
bool step_equations::residual_is_rounding() const {
    const double tolerance = 4.0 * (n_sys + 2) * eps;
    for (int R = 0; R < n_sys; ++R)
        if (!(std::fabs(residual[R]) <= tolerance * (magnitude[R] + jacobian_magnitude[R])))
            return false;
    return true;
}

double step_equations::residual_norm() const {
    double norm = 0.0;
    for (int R = 0; R < n_sys; ++R)
        if (residual[R] != 0.0)
            norm = std::max(norm, std::fabs(residual[R]) / (magnitude[R] + jacobian_magnitude[R]));
    return norm;
}

// Newton's method with steps that are halved until the residual decreases. A matrix is kept for the next iteration if
// the residual decreased fast.
equation_status step_equations::newton(double* X) {
    if (!evaluate(X))
        return equation_status::not_finite;
    bool kept_matrix = false;
    for (int iteration = 0; iteration < most_iterations; ++iteration) {
        const bool current_matrix = !kept_matrix;
        if (current_matrix) {
            form_jacobian(X);
            if (!are_finite(jacobian_magnitude))
                return equation_status::not_finite;
            if (!system.eliminate())
                return equation_status::singular_step;
        }
        if (residual_is_rounding()) // after the matrix, which says how large rounding is
            return equation_status::solved;
        const double before = residual_norm();
        correction = residual;
        system.solve(correction.data());
        bool finite = false, reduced = false;
        double fraction = 1.0;
        for (int halving = 0; halving < most_halvings && !reduced; ++halving, fraction *= 0.5) {
            for (int R = 0; R < n_sys; ++R)
                trial[R] = X[R] - fraction * correction[R];
            finite = evaluate(trial.data());
            reduced = finite && (residual_is_rounding() || residual_norm() < before);
            if (kept_matrix)
                break;
        }
        if (reduced)
            std::copy_n(trial.data(), n_sys, X);
        else if (current_matrix)
            return finite ? equation_status::no_convergence : equation_status::not_finite;
        else
            static_cast<void>(evaluate(X));
        if (reduced && residual_is_rounding())
            return equation_status::solved;
        kept_matrix = reduced && residual_norm() < keep_matrix_below * before;
    }
    return equation_status::no_convergence;
}

// Whether X may be another solution than the one that is meant: T depends strongly on X, and X is far from the guess.
bool step_equations::leaves_the_guess(const double* X) const {
    if (feedback <= small_feedback)
        return false;
    for (int R = 0; R < n_sys; ++R)
        if (!(std::fabs(X[R] - guess[R]) <= small_change * unit[R % D]))
            return true;
    return false;
}

// One stage of a trace: Newton's method from `trial`. It must converge at once, so that it finds the solution that
// continues the one of the stage before, and no other.
equation_status step_equations::advance_trace() {
    double last = 0.0;
    for (int iteration = 0;; ++iteration) {
        if (!evaluate(trial.data()))
            return equation_status::not_finite;
        form_jacobian(trial.data());
        if (!are_finite(jacobian_magnitude))
            return equation_status::not_finite;
        if (!system.eliminate())
            return equation_status::singular_step;
        correction = residual;
        system.solve(correction.data());
        double size = 0.0;
        for (int R = 0; R < n_sys; ++R) {
            trial[R] -= correction[R];
            if (correction[R] != 0.0)
                size = std::max(size, std::fabs(correction[R]) / unit[R % D]);
        }
        if (size <= stage_accuracy)
            return stability.eigenvalues_are_positive(jacobian) ? equation_status::solved
                                                                : equation_status::no_convergence;
        // GCOVR_EXCL_BR_START: no equation of the tests takes the most iterations
        if (iteration > 0 && (iteration + 1 == most_stage_iterations || !(size <= contraction * last)))
            return equation_status::no_convergence;
        // GCOVR_EXCL_BR_STOP
        last = size;
    }
}

// Follows the solution from a step without T, X_i = g(t_ni) + Q_i or f(t_ni, y_n) + Q_i, to the whole step: `part`, a
// factor of what depends on X in T (and of h in Y, for an integro-differential equation), increases from 0 to 1. The
// matrix of Newton's method is I at first. If the solution ends on the way, or if an eigenvalue of the matrix loses its
// positive real part, the step is too long. Before a time at which the solution becomes infinite, the equations of such
// a step may have another solution, but it is not near the solution of the equation.
equation_status step_equations::trace_step(double* X) {
    std::copy(constant.begin(), constant.end(), X); // g + Q. An integro-differential equation starts from 0 instead
    double reached = 0.0, length = 1.0;
    // GCOVR_EXCL_BR_START: no equation of the tests takes the most stages
    for (int stage = 0; stage < most_stages && reached < 1.0; ++stage) {
        // GCOVR_EXCL_BR_STOP
        part = std::min(1.0, reached + length);
        const double factor = equation.solves_for_derivative() ? reached / part : 1.0; // leaves Y as it was
        for (int R = 0; R < n_sys; ++R)
            trial[R] = factor * X[R];
        const equation_status status = advance_trace();
        if (status == equation_status::solved) {
            std::copy_n(trial.data(), n_sys, X);
            reached = part;
            length *= 2.0;
        } else {
            length *= 0.25;
            if (length < std::max(shortest_first_stage, shortest_stage * reached)) {
                part = 1.0;
                return status;
            }
        }
    }
    part = 1.0;
    // GCOVR_EXCL_BR_START: as above; and the last stage has checked the eigenvalues near X
    const equation_status status = reached < 1.0 ? equation_status::no_convergence : newton(X);
    return status == equation_status::solved && !stability.eigenvalues_are_positive(jacobian)
               ? equation_status::no_convergence
               : status;
    // GCOVR_EXCL_BR_STOP
}

// Without T the equations of the first kind contain no unknown, so there is no trace: the solution near the guess is
// taken.
equation_status step_equations::solve_nonlinear(double* X) {
    std::copy_n(X, n_sys, guess.data());
    const equation_status status = newton(X);
    if (equation.kind == equation_kind::first)
        return status;
    if (status == equation_status::solved && system.determinant_is_positive() && !leaves_the_guess(X))
        return status;
    // The functions are finite at a solution that was found.
    const equation_status traced = trace_step(X);
    // GCOVR_EXCL_BR_START: in the tests no trace to a known solution comes to values that are not finite
    return status == equation_status::solved && traced == equation_status::not_finite ? equation_status::no_convergence
                                                                                      : traced;
    // GCOVR_EXCL_BR_STOP
}

} // namespace quenta
