// The two other loops of the history: the direct sums beside the plain nested loop, the pointwise products beside one
// read of their inputs.

#include "comparison.hpp"
#include "plain_read.hpp"

#include "toeplitz_history/vector_kernels.hpp"
#include "utility/aligned_vector.hpp"
#include "utility/instruction_sets.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

namespace {

using quenta::aligned_vector;
using quenta::vector_kernels;
using quenta::widest_table;

aligned_vector decaying_oscillation(std::int64_t count, double rate) {
    aligned_vector values(count);
    for (std::int64_t j = 0; j < count; ++j) {
        const double t = 16.0 * double(j) / double(count);
        values[j] = std::exp(-rate * t) * std::cos(3.0 * t + rate);
    }
    return values;
}

// The sums as one would first write them.
void plain_direct_sums(double* sums, const double* kernel, const double* x, std::int64_t targets, std::int64_t sources,
                       std::int64_t p, std::int64_t q) {
    for (std::int64_t t = 0; t < targets; ++t)
        for (std::int64_t j = 0; j < sources; ++j)
            for (std::int64_t r = 0; r < p; ++r) {
                double product = 0.0;
                for (std::int64_t c = 0; c < q; ++c)
                    product += kernel[((t - j) * p + r) * q + c] * x[j * q + c];
                sums[t * p + r] += product;
            }
}

// The same lag by lag, on blocks in the order in which the kernels read them: lag d at d * q * padded_rows(p).
void our_direct_sums(double* sums, const double* columns, const double* x, std::int64_t s, std::int64_t p,
                     std::int64_t q) {
    for (std::int64_t lag = 2 * s - 1; lag > 0; --lag) {
        const std::int64_t first = std::max<std::int64_t>(0, lag - s), last = std::min(s, lag);
        widest_table<vector_kernels>().add_block_products(sums + first * p, columns + lag * q * quenta::padded_rows(p),
                                                          x + (first + s - lag) * q, last - first, p, q);
    }
}

// A square block of s sources and s targets, as a push makes it.
void direct_sums(benchmark::State& state, std::int64_t s, std::int64_t order) {
    const std::int64_t p = order, q = order, stride = quenta::padded_rows(p);
    const aligned_vector kernel = decaying_oscillation(2 * s * p * q, 0.1);
    const aligned_vector x = decaying_oscillation(s * q, 0.2);
    aligned_vector columns(2 * s * q * stride, 0.0);
    for (std::int64_t lag = 0; lag < 2 * s; ++lag)
        for (std::int64_t r = 0; r < p; ++r)
            for (std::int64_t c = 0; c < q; ++c)
                columns[(lag * q + c) * stride + r] = kernel[(lag * p + r) * q + c];
    aligned_vector sums(s * p), peer_sums(s * p);
    const double* const first_pair = kernel.data() + s * p * q; // the lag between the first target and the first source
    const auto ours = [&] {
        if (order == 1)
            widest_table<vector_kernels>().add_scalar_sums(sums.data(), first_pair, x.data(), s, s);
        else
            our_direct_sums(sums.data(), columns.data(), x.data(), s, p, q);
    };
    const auto peer = [&] {
        plain_direct_sums(peer_sums.data(), first_pair, x.data(), s, s, p, q);
    };
    const auto clear = [&] {
        std::fill(sums.begin(), sums.end(), 0.0);
        std::fill(peer_sums.begin(), peer_sums.end(), 0.0);
    };
    clear();
    ours();
    peer();
    const std::int64_t batch = std::clamp<std::int64_t>(200000 / (s * s * p * q), 1, 5000);
    if (agree(state, sums.data(), peer_sums.data(), s * p, 1e-14))
        compare(state, no_limit, static_cast<int>(batch), clear, ours, peer);
}

void spectra(benchmark::State& state, std::int64_t length, std::int64_t columns) {
    const aligned_vector kernel_re = decaying_oscillation(columns * length, 0.1);
    const aligned_vector kernel_im = decaying_oscillation(columns * length, 0.2);
    const aligned_vector x_re = decaying_oscillation(columns * length, 0.3);
    const aligned_vector x_im = decaying_oscillation(columns * length, 0.4);
    aligned_vector acc_re(length), acc_im(length);
    const auto ours = [&] {
        widest_table<vector_kernels>().multiply_spectra(acc_re.data(), acc_im.data(), kernel_re.data(),
                                                        kernel_im.data(), x_re.data(), x_im.data(), length, 1, columns,
                                                        true);
    };
    const auto peer = [&] {
        double sum = 0.0;
        for (const aligned_vector* const values : {&kernel_re, &kernel_im, &x_re, &x_im})
            sum += read_all(values->data(), std::int64_t(values->size()));
        benchmark::DoNotOptimize(sum);
    };
    ours();
    aligned_vector expected(length, 0.0);
    for (std::int64_t c = 0; c < columns; ++c)
        for (std::int64_t u = 0; u < length; ++u) {
            const std::int64_t k =
                (u / quenta::spectrum_tile * columns + c) * quenta::spectrum_tile + u % quenta::spectrum_tile;
            expected[u] += kernel_re[k] * x_re[c * length + u] - kernel_im[k] * x_im[c * length + u];
        }
    const std::int64_t batch = std::clamp<std::int64_t>(400000 / (length * columns), 1, 2000);
    if (agree(state, acc_re.data(), expected.data(), length, 1e-14))
        compare(
            state, no_limit, static_cast<int>(batch), [] {}, ours, peer);
}

const bool registered = [] {
    for (const std::int64_t order : {1, 2, 3, 5, 8, 16, 40})
        for (const std::int64_t s : {1, 2, 4, 8, 16}) {
            const std::string block = std::to_string(order) + 'x' + std::to_string(order);
            register_line("direct sums, " + block + " / plain loop", s, 101,
                          [=](benchmark::State& state) { direct_sums(state, s, order); });
        }
    for (const std::int64_t columns : {1, 3, 16})
        for (const std::int64_t length : {64, 1024, 16384, 262144})
            register_line("products, " + std::to_string(columns) + (columns == 1 ? " column" : " columns") +
                              " / one read of inputs",
                          length, length > 100000 ? 15 : 101,
                          [=](benchmark::State& state) { spectra(state, length, columns); });
    return true;
}();

} // namespace
