// Compares the equation solvers with the fractional Adams method at the same error, for D^a y = f(t, y). The method is
// compiled with all instructions of this machine, once with direct sums and once with sums by FFTW.
//
// An error is the largest at the mesh points in the second half of 0 .. 1. Near 0 the errors of both are larger, and
// those of the Adams method decrease more slowly, so the whole interval would be worse for it.
//
// The errors of the Adams method are measured with up to 2^18 steps, and extrapolated by the last observed order. The
// method runs at most 60,000 steps with direct sums, and 2^18 with FFTW. The time of more is extrapolated, by the
// square of their number with direct sums, and by their number with FFTW, which is too short. The labels say which are
// run.

#include "comparison.hpp"
#include "fractional_adams_fftw.hpp"

#include "equations/singular_problems.hpp"

#include "quenta_equations.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr double t_end = 1.0;
constexpr int most_direct_steps = 60000, most_fftw_steps = 1 << 18, wanted_digits = 9;

// D^a y = f(t, y) as an equation of the second kind.
template <class problem>
quenta::equation fractional() {
    return quenta::second_kind([](double) { return problem::y0; })
        .lag_memory(quenta::weakly_singular(1.0 - problem::a, [](double) { return 1.0 / std::tgamma(problem::a); }),
                    problem::f, problem::df_dy);
}

// D^0.6 y = -y, y(0) = 1. The solution is E_0.6(-t^0.6).
struct relaxation {
    static constexpr const char* name = "Mittag-Leffler";
    static constexpr double a = 0.6, y0 = 1.0;
    static double f(double, double y) { return -y; }
    static double exact(double t) {
        static const quenta_test::mittag_leffler E(a);
        return E(std::pow(t, a));
    }
    static quenta::equation equation() {
        return quenta::second_kind(quenta_test::one).lag_memory(quenta::weakly_singular(1.0 - a, [](double) {
            return -1.0 / std::tgamma(a);
        }));
    }
};

// The test problem of Diethelm, Ford and Freed (2004) for a = 1/2, as in singular_problems.hpp. Roots are faster than
// powers.
struct test_problem {
    static constexpr const char* name = "D6";
    static constexpr double a = 0.5, y0 = 0.0;
    static double f(double s, double y) {
        static const double first = 40320.0 / std::tgamma(8.5), second = 3.0 * std::tgamma(5.25) / std::tgamma(4.75),
                            third = 2.25 * std::tgamma(1.5);
        const double root = std::sqrt(s), fourth_root = std::sqrt(root), cube = s * s * s;
        const double base = 1.5 * fourth_root - cube * s, size = std::fabs(y);
        return first * cube * cube * s * root - second * cube * root * fourth_root + third + base * base * base -
               size * std::sqrt(size);
    }
    static double df_dy(double, double y) { return -1.5 * std::copysign(std::sqrt(std::fabs(y)), y); }
    static double exact(double t) { return std::pow(t, 8) - 3.0 * std::pow(t, 4.25) + 2.25 * std::sqrt(t); }
    static quenta::equation equation() { return fractional<test_problem>(); }
};

// D^0.6 y = 1 + 2 y - y^2, y(0) = 0. The solution is calculated with many steps.
struct riccati {
    static constexpr const char* name = "Riccati";
    static constexpr double a = 0.6, y0 = 0.0;
    static double f(double, double y) { return 1.0 + 2.0 * y - y * y; }
    static double df_dy(double, double y) { return 2.0 - 2.0 * y; }
    static double exact(double t) {
        static const quenta::solution y = equation().solve(t_end, quenta::steps(256));
        return y(t);
    }
    static quenta::equation equation() { return fractional<riccati>(); }
};

template <class problem>
double error_of(const quenta::solution& y) {
    double largest = 0.0;
    for (std::size_t n = 0; n < y.mesh().size(); ++n)
        if (y.mesh()[n] >= t_end / 2)
            largest = std::max(largest, std::fabs(y.values()[n] - problem::exact(y.mesh()[n])));
    return largest;
}

// At about 1,000 of the points.
template <class problem>
double error_of(const std::vector<double>& y) {
    const std::size_t steps = y.size() - 1, stride = std::max<std::size_t>(1, steps / 1024);
    double largest = 0.0;
    for (std::size_t n = steps; n >= steps / 2; n -= stride)
        largest = std::max(largest, std::fabs(y[n] - problem::exact(t_end * double(n) / double(steps))));
    return largest;
}

// The first `run` steps of `steps`, with the weights.
template <class problem>
std::vector<double> direct_adams(int steps, int run) {
    const fractional_adams::weights weights(problem::a, run);
    fractional_adams::direct_sums<double> sums(weights, run);
    return fractional_adams::solve(problem::a, problem::f, problem::y0, t_end / steps, run, weights, sums);
}

template <class problem>
std::vector<double> fftw_adams(int steps, int run, fftw_adams_sums& sums) {
    const fractional_adams::weights weights(problem::a, run);
    sums.start(weights);
    return fractional_adams::solve(problem::a, problem::f, problem::y0, t_end / steps, run, weights, sums);
}

// The errors of the Adams method with 2^6 .. 2^18 steps.
template <class problem>
const std::map<double, double>& adams_errors() {
    static const std::map<double, double> errors = [] {
        std::map<double, double> found;
        for (int steps = 64; steps <= most_fftw_steps; steps *= 2) {
            fftw_adams_sums sums(steps);
            found[steps] = error_of<problem>(fftw_adams<problem>(steps, steps, sums));
        }
        return found;
    }();
    return errors;
}

// By the order that is observed at this error, or the last one.
template <class problem>
int adams_steps_for(double error) {
    const std::map<double, double>& errors = adams_errors<problem>();
    auto coarse = errors.begin(), fine = std::next(coarse);
    while (std::next(fine) != errors.end() && fine->second > error)
        coarse = fine++;
    const double order = std::log2(coarse->second / fine->second);
    return int(std::ceil(fine->first * std::pow(fine->second / error, 1.0 / order)));
}

// The fewest steps with five nodes.
template <class problem>
quenta::solve_options our_options_for(double error) {
    for (int steps = 4;; ++steps) {
        const auto options = quenta::steps(steps).nodes(QUENTA_RADAU, 5);
        if (error_of<problem>(problem::equation().solve(t_end, options)) <= error)
            return options;
    }
}

// `peer_scale`: how many times longer all steps of the peer take than those that are run.
template <class problem, class peer_type>
void compare_at(benchmark::State& state, const quenta::solve_options& options, double limit, double peer_scale,
                const peer_type& peer) {
    const quenta::equation equation = problem::equation();
    std::vector<double> ours_seconds, peer_seconds;
    const auto nothing = [] {
    };
    for (auto _ : state) {
        ours_seconds.push_back(
            seconds_per_call(20, nothing, [&] { benchmark::DoNotOptimize(equation.solve(t_end, options)); }));
        const double taken = seconds_per_call(1, nothing, peer);
        peer_seconds.push_back(taken * peer_scale);
        state.SetIterationTime(20 * ours_seconds.back() + taken);
    }
    report_comparison(state, ours_seconds, peer_seconds, limit);
}

std::string label(const quenta::solve_options& options, int run, int steps) {
    return std::to_string(options.steps) + " steps / " + std::to_string(run) + " of " + std::to_string(steps);
}

// What is wanted at 1e-9, and to be no slower at 1e-6.
double limit_at(int digits, double at_wanted_digits) {
    return digits == wanted_digits ? at_wanted_digits : digits == 6 ? 1.0 : no_limit;
}

template <class problem>
void against_direct(benchmark::State& state, int digits) {
    const double error = std::pow(10.0, -digits);
    const int steps = adams_steps_for<problem>(error), run = std::min(steps, most_direct_steps);
    const auto options = our_options_for<problem>(error);
    state.SetLabel(label(options, run, steps));
    const double part = double(steps) / run;
    compare_at<problem>(state, options, limit_at(digits, 1.0 / 1000.0), part * part,
                        [=] { benchmark::DoNotOptimize(direct_adams<problem>(steps, run)); });
}

template <class problem>
void against_fftw(benchmark::State& state, int digits) {
    const double error = std::pow(10.0, -digits);
    const int steps = adams_steps_for<problem>(error), run = std::min(steps, most_fftw_steps);
    const auto options = our_options_for<problem>(error);
    state.SetLabel(label(options, run, steps));
    fftw_adams_sums sums(run);
    compare_at<problem>(state, options, limit_at(digits, 1.0 / 15.0), double(steps) / run,
                        [&] { benchmark::DoNotOptimize(fftw_adams<problem>(steps, run, sums)); });
}

template <class problem>
void register_problem() {
    const std::string name = std::string("fractional ") + problem::name + ", 1e-N";
    for (const bool direct : {true, false})
        for (int digits = 3; digits <= wanted_digits; ++digits)
            register_line(name + (direct ? " / Adams" : " / Adams on FFTW"), digits, digits < 8 ? 11 : 5,
                          [=](benchmark::State& state) {
                              if (direct)
                                  against_direct<problem>(state, digits);
                              else
                                  against_fftw<problem>(state, digits);
                          });
}

const bool registered = [] {
    register_problem<relaxation>();
    register_problem<test_problem>();
    register_problem<riccati>();
    return true;
}();

} // namespace
