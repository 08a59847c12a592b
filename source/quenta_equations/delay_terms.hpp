// The delay terms of M(t): the sum over them of   w_r(t) phi_r(t - tau_r, y(t - tau_r)).
//
// y(t - tau) is the value of the polynomial of the step in which t - tau lies. No step is longer than the shortest
// delay, so that step is a previous one, and the term is known before the step of t is solved. Before 0, y is given by
// a function of the caller; without one the term is 0 there.
//
// y may have a jump at a mesh point t_m. Whether a time t - tau at t_m means the end of step m - 1 or the start of step
// m is decided by the step of t: all its times t - tau lie between t_n - tau and t_{n+1} - tau. An end of this interval
// is taken as the mesh point if it differs from it by rounding only.
//
// All memory is allocated by the constructor.
#pragma once

#include "quenta_equations/equation.hpp"
#include "quenta_equations/solution.hpp"

#include <cstdint>
#include <vector>

namespace quenta {

// A part of t_end. Two times that differ by less are the same breaking point.
inline constexpr double same_time = 0x1p-45;
// A mesh point and a time minus a delay are the same if they differ by less: both may have been replaced by the same
// time.
inline constexpr double same_delayed_time = 2.0 * same_time;

class delay_terms {
public:
    // Both objects must outlive this one. The solution may be one that is being solved: `add` needs the steps before
    // those of t - tau, and `add_to_step` the steps before n.
    delay_terms(const quenta_equation& equation, const quenta_solution& solution);

    // Adds the terms at `count` times t, each in or at an end of its step: D doubles for each time.
    void add(std::int64_t count, const std::int64_t* step, const double* t, double* sums);

    // The sums with the terms at the nodes of step n: P*D doubles at i*D + a. Evaluates them for as many steps at once
    // as are known.
    const double* add_to_step(std::int64_t n, const double* sums);

private:
    struct source {
        std::int64_t step; // -1: before 0
        double time;       // in this step, also after rounding
    };

    source source_of(std::int64_t step, double t, double delay) const;
    std::int64_t step_from(double s) const;
    std::int64_t step_to(double s) const;
    std::int64_t step_with(double s) const;
    std::int64_t mesh_point_at(double s) const;
    void add_term(const delay_term& term, std::int64_t count, const std::int64_t* step, const double* t, double* sums);
    void evaluate_y(std::int64_t count);
    void evaluate_batch(std::int64_t n);

    const quenta_equation& equation;
    const quenta_solution& solution;
    const int D, P;
    const std::int64_t most_points, batch_steps;
    const double shortest_delay, rounding;

    std::vector<source> sources; // of the times at which a term is not 0: the numbers of these times are in `targets`
    std::vector<std::int64_t> targets;
    std::vector<double> times, past, y, phi, weight;

    std::int64_t batch_first = 0, batch_end = 0;
    std::vector<std::int64_t> batch_step;
    std::vector<double> batch_times, batch_sums, total;
};

} // namespace quenta
