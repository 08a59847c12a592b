// The other two loops of the history: direct sums against the plain nested loop, and pointwise products of spectra
// against one read of their inputs.

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
    for (std::int64_t sample = 0; sample < count; ++sample) {
        const double t = 16.0 * double(sample) / double(count);
        values[sample] = std::exp(-rate * t) * std::cos(3.0 * t + rate);
    }
    return values;
}

// sums[target] += K[target - source] x[source], with lags relative to that between the first target and first source.
void plain_direct_sums(double* sums, const double* kernel, const double* x, std::int64_t targets, std::int64_t sources,
                       std::int64_t order) {
    for (std::int64_t target = 0; target < targets; ++target)
        for (std::int64_t source = 0; source < sources; ++source)
            for (std::int64_t R = 0; R < order; ++R) {
                double product = 0.0;
                for (std::int64_t C = 0; C < order; ++C)
                    product += kernel[((target - source) * order + R) * order + C] * x[source * order + C];
                sums[target * order + R] += product;
            }
}

// The same for `size` sources and targets, lag by lag. The blocks are stored by columns: lag d at
// d * order * padded_rows(order).
void our_direct_sums(double* sums, const double* columns, const double* x, std::int64_t size, std::int64_t order) {
    for (std::int64_t d = 2 * size - 1; d > 0; --d) {
        const std::int64_t first = std::max<std::int64_t>(0, d - size), last = std::min(size, d);
        widest_table<vector_kernels>().add_block_products(sums + first * order,
                                                          columns + d * order * quenta::padded_rows(order),
                                                          x + (first + size - d) * order, last - first, order, order);
    }
}

// The blocks of 2 * size lags by columns, padded for the vector kernels.
aligned_vector blocks_by_columns(const aligned_vector& kernel, std::int64_t size, std::int64_t order) {
    const std::int64_t stride = quenta::padded_rows(order);
    aligned_vector columns(2 * size * order * stride, 0.0);
    for (std::int64_t d = 0; d < 2 * size; ++d)
        for (std::int64_t R = 0; R < order; ++R)
            for (std::int64_t C = 0; C < order; ++C)
                columns[(d * order + C) * stride + R] = kernel[(d * order + R) * order + C];
    return columns;
}

// One dyadic block of a push: `size` sources and `size` targets.
void direct_sums(benchmark::State& state, std::int64_t size, std::int64_t order) {
    const aligned_vector kernel = decaying_oscillation(2 * size * order * order, 0.1);
    const aligned_vector x = decaying_oscillation(size * order, 0.2);
    const aligned_vector columns = blocks_by_columns(kernel, size, order);
    aligned_vector sums(size * order), peer_sums(size * order);
    const double* const first_pair = kernel.data() + size * order * order; // lag between first target and first source
    const auto ours = [&] {
        if (order == 1)
            widest_table<vector_kernels>().add_scalar_sums(sums.data(), first_pair, x.data(), size, size);
        else
            our_direct_sums(sums.data(), columns.data(), x.data(), size, order);
    };
    const auto peer = [&] {
        plain_direct_sums(peer_sums.data(), first_pair, x.data(), size, size, order);
    };
    const auto clear = [&] {
        std::fill(sums.begin(), sums.end(), 0.0);
        std::fill(peer_sums.begin(), peer_sums.end(), 0.0);
    };
    clear();
    ours();
    peer();
    const std::int64_t batch = std::clamp<std::int64_t>(200000 / (size * size * order * order), 1, 5000);
    if (agree(state, sums.data(), peer_sums.data(), size * order, 1e-14))
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
    for (std::int64_t C = 0; C < columns; ++C)
        for (std::int64_t f = 0; f < length; ++f) {
            const std::int64_t tiled =
                (f / quenta::spectrum_tile * columns + C) * quenta::spectrum_tile + f % quenta::spectrum_tile;
            expected[f] += kernel_re[tiled] * x_re[C * length + f] - kernel_im[tiled] * x_im[C * length + f];
        }
    const std::int64_t batch = std::clamp<std::int64_t>(400000 / (length * columns), 1, 2000);
    if (agree(state, acc_re.data(), expected.data(), length, 1e-14))
        compare(
            state, no_limit, static_cast<int>(batch), [] {}, ours, peer);
}

const bool registered = [] {
    for (const std::int64_t order : {1, 2, 3, 5, 8, 16, 40})
        for (const std::int64_t size : {1, 2, 4, 8, 16}) {
            const std::string block = std::to_string(order) + 'x' + std::to_string(order);
            register_line("direct sums, " + block + " / plain loop", size, 101,
                          [=](benchmark::State& state) { direct_sums(state, size, order); });
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
