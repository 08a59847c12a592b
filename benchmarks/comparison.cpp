// The main function of the benchmark programs, and the table that it prints.

#include "comparison.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

namespace {

// The value below which a part of the values lies.
double quantile(std::vector<double> values, double part) {
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(part * double(values.size()));
    std::nth_element(values.begin(), place, values.end());
    return *place;
}
double median(const std::vector<double>& values) {
    return quantile(values, 0.5);
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

std::string readable_ratio(double ratio) {
    char text[32];
    std::snprintf(text, sizeof text, ratio < 0.01 ? "%.1e" : "%.3f", ratio);
    return text;
}

// The exponent e of time ~ size^e, by least squares.
double fitted_exponent(const std::vector<double>& log_size, const std::vector<double>& log_seconds) {
    const double count = double(log_size.size());
    const double mean_size = std::accumulate(log_size.begin(), log_size.end(), 0.0) / count;
    double covariance = 0.0, variance = 0.0;
    for (std::size_t i = 0; i < log_size.size(); ++i) {
        covariance += (log_size[i] - mean_size) * log_seconds[i];
        variance += (log_size[i] - mean_size) * log_size[i];
    }
    return covariance / variance;
}

// Prints one line for each benchmark when it finishes.
class table_reporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override {
        std::printf("%-44s %9s %10s %10s %8s %16s %7s\n", "benchmark", "size", "ours", "peer", "ratio", "quartiles",
                    "limit");
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
            print_growth(run, name, size, ours);
        else
            print_comparison(run);
    }

    void print_comparison(const Run& run) {
        const double ratio = run.counters.at("ratio");
        const double limit = run.counters.at("limit");
        const std::string quartiles =
            readable_ratio(run.counters.at("lower_quartile")) + ' ' + readable_ratio(run.counters.at("upper_quartile"));
        std::printf("%10s %8s %16s ", readable_time(run.counters.at("peer")).c_str(), readable_ratio(ratio).c_str(),
                    quartiles.c_str());
        if (limit == no_limit)
            std::printf("%7s", "-");
        else {
            ++limits;
            limits_exceeded += ratio > limit;
            std::printf("%7.2g%s", limit, ratio > limit ? "  OVER" : "");
        }
        std::printf("%s%s\n", run.report_label.empty() ? "" : "  ", run.report_label.c_str());
    }

    // With the exponent of all lines of this name so far.
    void print_growth(const Run& run, const std::string& name, long long size, double seconds) {
        if (name != last_name)
            log_size.clear(), log_seconds.clear();
        last_name = name;
        log_size.push_back(std::log(double(size)));
        log_seconds.push_back(std::log(seconds));
        std::printf("%10s per step", readable_time(seconds / double(size)).c_str());
        if (run.counters.count("bytes") != 0)
            std::printf(", %.0f bytes per step", run.counters.at("bytes") / double(size));
        if (log_size.size() > 1)
            std::printf(", exponent %.2f", fitted_exponent(log_size, log_seconds));
        std::printf("\n");
    }

    std::string last_name;
    std::vector<double> log_size, log_seconds;
};

} // namespace

void report_comparison(benchmark::State& state, const std::vector<double>& ours, const std::vector<double>& peer,
                       double limit) {
    std::vector<double> ratios;
    std::transform(ours.begin(), ours.end(), peer.begin(), std::back_inserter(ratios), std::divides<>());
    state.counters["peer"] = median(peer);
    state.counters["ratio"] = median(ratios);
    state.counters["lower_quartile"] = quantile(ratios, 0.25);
    state.counters["upper_quartile"] = quantile(ratios, 0.75);
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
