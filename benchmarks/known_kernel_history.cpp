// Compares the history of the equation solvers with the same sums on FFTW's real transforms, in a dyadic schedule and
// in its own. Histories, kernels and spectra are made beforehand on both sides. Also measures the growth of time and
// memory.

#include "comparison.hpp"
#include "fftw_block_schedule.hpp"
#include "fftw_schedule.hpp"
#include "peak_memory.hpp"

#include "toeplitz_history/known_kernel_history.hpp"

#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using quenta::known_kernel_history;

struct tables {
    const quenta::vector_kernels* transforms;
    const quenta::level_kernels* loops;
    bool is_avx512() const { return std::string_view{loops->name} == "avx512"; }
};

// The kernels of a history with blocks of P rows and columns, and what is pushed to it.
template <int P>
struct march_data {
    explicit march_data(std::int64_t n) : steps(n), blocks((n - 1) * P * P), x(n * P) {
        std::mt19937_64 generator(2026);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        for (std::vector<double>* const values : {&blocks, &x})
            for (double& value : *values)
                value = uniform(generator);
    }
    double kernel(int R, int C, std::int64_t lag) const { return blocks[((lag - 1) * P + R) * P + C]; }

    std::int64_t steps;
    std::vector<double> blocks, x;
};

template <int P>
void march(known_kernel_history& history, const march_data<P>& data, std::vector<double>& sums) {
    for (std::int64_t n = 0; n < data.steps; ++n) {
        std::copy_n(history.sum(), P, sums.data() + n * P);
        history.push(data.x.data() + n * P);
    }
}

template <int P, class peer_type>
void march(peer_type& history, const march_data<P>& data, std::vector<double>& sums) {
    for (std::int64_t n = 0; n < data.steps; ++n) {
        for (int R = 0; R < P; ++R)
            sums[n * P + R] = history.sums(R)[n];
        history.push(data.x.data() + n * P);
    }
}

template <int P>
known_kernel_history history_of(const march_data<P>& data, const tables& on) {
    return {data.steps, P, P, data.blocks.data(), *on.transforms, *on.loops};
}

template <int P>
std::unique_ptr<fftw_history<P, P>> dyadic_peer(const march_data<P>& data) {
    auto peer = std::make_unique<fftw_history<P, P>>(data.steps);
    for (int R = 0; R < P; ++R)
        for (int C = 0; C < P; ++C)
            for (std::int64_t lag = 1; lag < data.steps; ++lag)
                peer->kernel(R, C)[lag] = data.kernel(R, C, lag);
    peer->start();
    return peer;
}

// Both histories march from the start in each pair: ours is a copy of the one that was created before.
template <int P, class peer_type, class start_type>
void compare_marches(benchmark::State& state, const march_data<P>& data, const tables& on, double limit,
                     peer_type& peer, const start_type& start) {
    const known_kernel_history created = history_of(data, on);
    std::vector<double> sums(data.x.size()), peer_sums(data.x.size());
    known_kernel_history history = created;
    const auto prepare = [&] {
        history.restart();
        start();
    };
    const auto ours = [&] {
        march(history, data, sums);
    };
    const auto peers = [&] {
        march(peer, data, peer_sums);
    };
    peers(); // also transforms the kernel
    prepare();
    ours();
    if (agree(state, sums.data(), peer_sums.data(), std::int64_t(sums.size()), 1e-13))
        compare(state, limit, 1, prepare, ours, peers);
}

template <int P>
void against_dyadic(benchmark::State& state, std::int64_t steps, const tables& on, double limit) {
    const march_data<P> data(steps);
    const auto peer = dyadic_peer(data);
    compare_marches(state, data, on, limit, *peer, [&] { peer->start(false); });
}

template <int P>
void against_same_schedule(benchmark::State& state, std::int64_t steps, const tables& on, double limit) {
    const march_data<P> data(steps);
    fftw_block_history<P, P> peer(steps, [&](int R, int C, std::int64_t lag) { return data.kernel(R, C, lag); });
    compare_marches(state, data, on, limit, peer, [&] { peer.start(); });
}

// With the creation.
template <int P>
void growth(benchmark::State& state, std::int64_t steps, const tables& on) {
    const march_data<P> data(steps);
    std::vector<double> sums(data.x.size());
    start_peak_memory();
    time_alone(state, [&] {
        known_kernel_history history = history_of(data, on);
        march(history, data, sums);
    });
    state.counters["bytes"] = double(peak_memory());
}

template <int P>
std::string shape() {
    return std::to_string(P) + 'x' + std::to_string(P);
}

template <int P>
void register_dyadic(const tables& on, std::int64_t steps, double limit_avx512, double limit_avx2) {
    register_line("history " + shape<P>() + ", " + on.loops->name + " / dyadic FFTW", steps, pairs_for(steps * P),
                  [=](benchmark::State& state) {
                      against_dyadic<P>(state, steps, on, on.is_avx512() ? limit_avx512 : limit_avx2);
                  });
}

template <int P>
void register_same_schedule(const tables& on, std::int64_t steps) {
    register_line("history " + shape<P>() + ", " + on.loops->name + " / same on FFTW", steps, pairs_for(steps * P),
                  [=](benchmark::State& state) { against_same_schedule<P>(state, steps, on, 1.25); });
}

void register_lines(const tables& on) {
    for (const std::int64_t steps : {10000, 100000, 1000000}) {
        register_dyadic<1>(on, steps, 0.75, 1.05);
        register_dyadic<3>(on, steps, 1.0, 1.5);
        register_same_schedule<1>(on, steps);
        register_same_schedule<3>(on, steps);
    }
    register_dyadic<2>(on, 10000, 1.0, 1.0);
    register_dyadic<2>(on, 100000, 1.0, 1.0);
    register_dyadic<5>(on, 10000, 1.0, 1.0);
    register_dyadic<8>(on, 10000, 1.0, 1.0);
    register_dyadic<15>(on, 2000, 1.0, 1.0);
    for (const std::int64_t steps : {1000, 10000, 100000, 1000000})
        register_line(std::string{"history 1x1, "} + on.loops->name + ", growth", steps, 5,
                      [=](benchmark::State& state) { growth<1>(state, steps, on); });
    for (const std::int64_t steps : {1000, 10000, 100000, 1000000})
        register_line(std::string{"history 3x3, "} + on.loops->name + ", growth", steps, 3,
                      [=](benchmark::State& state) { growth<3>(state, steps, on); });
}

const bool registered = [] {
    const auto transforms = quenta::runnable_tables<quenta::vector_kernels>();
    const auto loops = quenta::runnable_tables<quenta::level_kernels>();
    for (std::size_t set = 1; set < loops.count; ++set)
        register_lines({transforms.tables[set], loops.tables[set]});
    return true;
}();

} // namespace
