// How everything here is measured: ours and its peer take turns in one run, so that whatever else the machine does
// meets both alike. A figure is a median, and what counts is the median of the ratios of the pairs.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

// Where a comparison has no limit that it must keep.
constexpr double no_limit = 0.0;

// Registers one line of the table. `function` takes the benchmark::State and ends in `compare` or `time_alone`; `pairs`
// is how often they measure.
template <class function_type>
void register_line(const std::string& name, std::int64_t size, int pairs, function_type function) {
    const std::string full_name = name + '/' + std::to_string(size);
    benchmark::RegisterBenchmark(full_name.c_str(), function)->Iterations(pairs)->UseManualTime();
}

// The pairs that a line of so many steps, or as much work, takes.
inline int pairs_for(std::int64_t steps) {
    return static_cast<int>(std::clamp<std::int64_t>(2000000 / steps, 5, 101));
}

// The processor time of this thread: what the machine gives to others in between does not count.
inline double processor_seconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
}

// Seconds of one call. `prepare` runs outside the clock, once for the `batch` calls in it.
template <class prepare_type, class call_type>
double seconds_per_call(int batch, const prepare_type& prepare, const call_type& call) {
    prepare();
    benchmark::ClobberMemory();
    const double start = processor_seconds();
    for (int repeat = 0; repeat < batch; ++repeat) {
        call();
        benchmark::ClobberMemory();
    }
    return (processor_seconds() - start) / batch;
}

// Hands the figures of one line to the table.
void report_comparison(benchmark::State& state, const std::vector<double>& ours, const std::vector<double>& peer,
                       double limit);
void report_alone(benchmark::State& state, const std::vector<double>& ours);

template <class prepare_type, class ours_type, class peer_type>
void compare(benchmark::State& state, double limit, int batch, const prepare_type& prepare, const ours_type& ours,
             const peer_type& peer) {
    std::vector<double> ours_seconds, peer_seconds;
    for (auto _ : state) {
        ours_seconds.push_back(seconds_per_call(batch, prepare, ours));
        peer_seconds.push_back(seconds_per_call(batch, prepare, peer));
        state.SetIterationTime(batch * (ours_seconds.back() + peer_seconds.back()));
    }
    report_comparison(state, ours_seconds, peer_seconds, limit);
}

template <class ours_type>
void time_alone(benchmark::State& state, const ours_type& ours) {
    std::vector<double> seconds;
    for (auto _ : state) {
        seconds.push_back(seconds_per_call(
            1, [] {}, ours));
        state.SetIterationTime(seconds.back());
    }
    report_alone(state, seconds);
}

// Both sides must have computed the same before their times are worth comparing: the largest difference, relative to
// the largest value. On disagreement the benchmark ends with an error, and so does the program.
bool agree(benchmark::State& state, const double* ours, const double* peer, std::int64_t count, double tolerance);
