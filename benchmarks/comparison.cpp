// The main function of the benchmark programs, and the table that it prints.

#include "comparison.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace {

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::string readable_time(double seconds) {
    struct unit {
        double seconds;
        const char* name;
    };
    char text[32];
    for (const unit candidate : {unit{1.0, "s "}, unit{1e-3, "ms"}, unit{1e-6, "us"}, unit{1e-9, "ns"}})
        if (seconds >= candidate.seconds || candidate.seconds == 1e-9) {
            std::snprintf(text, sizeof text, "%.3g %s", seconds / candidate.seconds, candidate.name);
            break;
        }
    return text;
}

// Prints one line for each benchmark when it finishes.
class table_reporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override {
        std::printf("%-44s %9s %10s %10s %8s %7s\n", "benchmark", "size", "ours", "peer", "ratio", "limit");
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const std::string full_name = run.run_name.function_name;
            const std::size_t slash = full_name.rfind('/');
            print(run, full_name.substr(0, slash), std::stoll(full_name.substr(slash + 1)));
            std::fflush(stdout);
        }
    }

    int lines = 0, errors = 0, limits = 0, limits_exceeded = 0;

private:
    void print(const Run& run, const std::string& name, long long size) {
        ++lines;
        std::printf("%-44s %9lld ", name.c_str(), size);
        if (run.error_occurred) {
            ++errors;
            std::printf("ERROR: %s\n", run.error_message.c_str());
            return;
        }
        const double ours = run.counters.at("ours");
        std::printf("%10s ", readable_time(ours).c_str());
        if (run.counters.count("peer") == 0)
            print_growth(name, size, ours);
        else
            print_comparison(run);
    }

    void print_comparison(const Run& run) {
        const double ratio = run.counters.at("ratio");
        const double limit = run.counters.at("limit");
        std::printf("%10s %8.3f ", readable_time(run.counters.at("peer")).c_str(), ratio);
        if (limit == no_limit) {
            std::printf("%7s\n", "-");
            return;
        }
        ++limits;
        limits_exceeded += ratio > limit;
        std::printf("%7.2f%s\n", limit, ratio > limit ? "  OVER" : "");
    }

    // The exponent e of time ~ size^e, from the previous line if it has the same name.
    void print_growth(const std::string& name, long long size, double seconds) {
        std::printf("%10s per step", readable_time(seconds / double(size)).c_str());
        if (name == last_name)
            std::printf(", exponent %.2f", std::log(seconds / last_seconds) / std::log(double(size) / last_size));
        std::printf("\n");
        last_name = name;
        last_size = double(size);
        last_seconds = seconds;
    }

    std::string last_name;
    double last_size = 0.0, last_seconds = 0.0;
};

} // namespace

void report_comparison(benchmark::State& state, const std::vector<double>& ours, const std::vector<double>& peer,
                       double limit) {
    std::vector<double> ratios;
    std::transform(ours.begin(), ours.end(), peer.begin(), std::back_inserter(ratios), std::divides<>());
    state.counters["peer"] = median(peer);
    state.counters["ratio"] = median(ratios);
    state.counters["limit"] = limit;
    report_alone(state, ours);
}

void report_alone(benchmark::State& state, const std::vector<double>& ours) {
    state.counters["ours"] = median(ours);
}

bool agree(benchmark::State& state, const double* ours, const double* peer, std::int64_t count, double tolerance) {
    double largest = 0.0, difference = 0.0;
    bool finite = true;
    for (std::int64_t i = 0; i < count; ++i) {
        largest = std::max(largest, std::fabs(peer[i]));
        difference = std::max(difference, std::fabs(ours[i] - peer[i]));
        finite = finite && std::isfinite(ours[i]) && std::isfinite(peer[i]);
    }
    if (finite && largest > 0.0 && difference <= tolerance * largest)
        return true;
    char text[128];
    std::snprintf(text, sizeof text,
                  "expected equal results of ours and peer, got a difference of %.3g at a size of %.3g%s", difference,
                  largest, finite ? "" : ", and some values are not finite");
    state.SkipWithError(text);
    return false;
}

// The exit code if a filter selects only lines of the other program.
constexpr int nothing_measured = 2;

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    table_reporter table;
    benchmark::RunSpecifiedBenchmarks(&table);
    std::printf("%d of %d limits kept, %d errors\n", table.limits - table.limits_exceeded, table.limits, table.errors);
    return table.lines == 0 ? nothing_measured : table.errors != 0;
}
