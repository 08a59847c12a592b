// The measurement of all benchmarks: our code and its peer run alternately, so that other load on the machine affects
// both equally. Times are medians; the ratio is the median of the ratios of the pairs.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

// For comparisons without a limit.
constexpr double no_limit = 0.0;

// Registers one line of the table. `function` takes the benchmark::State and ends with `compare` or `time_alone`, which
// measure `pairs` times.
template <class function_type>
void register_line(const std::string& name, std::int64_t size, int pairs, function_type function) {
    const std::string full_name = name + '/' + std::to_string(size);
    benchmark::RegisterBenchmark(full_name.c_str(), function)->Iterations(pairs)->UseManualTime();
}

// The number of pairs for a line whose work is that of so many scalar steps.
inline int pairs_for(std::int64_t steps) {
    return static_cast<int>(std::clamp<std::int64_t>(2000000 / steps, 5, 101));
}

// The processor time of this thread; time of other threads and processes does not count.
inline double processor_seconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
}

// Seconds per call, averaged over `batch` calls. `prepare` runs once before the clock starts.
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

// Passes the times of one line to the table.
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

// Checks before a comparison that the results agree: the largest difference, relative to the largest value, must be
// within the tolerance. Otherwise the benchmark and the program end with an error.
bool agree(benchmark::State& state, const double* ours, const double* peer, std::int64_t count, double tolerance);
