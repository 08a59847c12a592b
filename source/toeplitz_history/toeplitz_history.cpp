#include "toeplitz_history/toeplitz_history.hpp"

#include <algorithm>
#include <bit>
#include <utility>

namespace quenta {

namespace {

// From this block size, and this number of targets, the transform is cheaper than direct sums.
constexpr std::int64_t transform_threshold = 32;

// A view of a vector, for a checked slice.
view<double> whole(aligned_vector& array) {
    return {array.size(), array.data()};
}

// Replaces arrays that are too short. Nothing of the old content is kept.
void grow(aligned_vector& re, aligned_vector& im, std::int64_t length) {
    if (std::min(re.size(), im.size()) >= std::uint64_t(length))
        return;
    for (aligned_vector* array : {&re, &im}) {
        *array = aligned_vector{}; // the old one goes before the new one comes
        array->resize(length);
    }
}

} // namespace

void ToeplitzHistory::init(std::int32_t n_, std::int32_t p_, std::int32_t q_) {
    n = n_;
    p = p_;
    q = q_;
    const std::int64_t steps = n;
    kernel.assign(steps * p * q, 0.0);
    sums.assign(steps * p, 0.0);
    pushed.assign(steps * q, 0.0);
    count = 0;
    provider_context = nullptr;
    provider = nullptr;
    next_block = n; // without a provider, no block is ever asked for
    cache_re.clear();
    cache_im.clear();
    cache_tried.clear();
    cache_budget = 2 * kernel.size();
}

void ToeplitzHistory::set_kernel_provider(void* context, kernel_provider function) {
    provider_context = context;
    provider = function;
    next_block = 1; // lag 0 belongs to the present step
}

view<double> ToeplitzHistory::history_at(std::int32_t t) {
    return whole(sums).slice(std::int64_t{t} * p, p);
}

view<double> ToeplitzHistory::kernel_block(std::int32_t d) {
    const std::int64_t size = std::int64_t{p} * q;
    return whole(kernel).slice(d * size, size);
}

view<double> ToeplitzHistory::kernel_row(std::int32_t d, std::int32_t r) {
    return kernel_block(d).slice(std::int64_t{r} * q, q);
}

void ToeplitzHistory::push(view<const double> values) {
    const view<double> place = whole(pushed).slice(std::int64_t{count} * q, q);
    std::copy_n(values.slice(0, q).pointer, q, place.pointer);
    const std::int64_t i = ++count;
    if (i >= n)
        return; // the last value has no target

    const std::int64_t s = i & -i; // the lowest set bit
    const dyadic_block block{i, s, std::min<std::int64_t>(i + s, n)};
    const bool transform = s >= transform_threshold && block.targets() >= transform_threshold;
    // The transform of the kernel reads every lag of its size, however few the targets are.
    const std::int64_t last_lag = std::min<std::int64_t>((transform ? 2 * s : block.targets() + s) - 1, n - 1);
    if (provider != nullptr)
        for (; next_block <= last_lag; ++next_block)
            provider(provider_context, next_block, *this);

    if (transform)
        convolve_fft(block);
    else
        convolve_direct(block);
}

void ToeplitzHistory::convolve_direct(const dyadic_block& block) {
    const auto [i, s, end] = block;
    // The lag between the first target and the first source of the block is s.
    kernels->add_direct_sums(sums.data() + i * p, kernel.data() + s * p * q, pushed.data() + (i - s) * q,
                             block.targets(), s, p, q);
}

void ToeplitzHistory::convolve_fft(const dyadic_block& block) {
    const auto [i, s, end] = block;
    const std::int64_t m = 2 * s;
    grow(x_re, x_im, m * q);
    grow(k_re, k_im, m);
    grow(acc_re, acc_im, m * p);
    const std::size_t level = std::countr_zero(std::uint64_t(s / transform_threshold));
    const bool cached = ensure_kernel_transform(level, m);

    // The sources fill the lower half of their rows; the cyclic convolution is then exact in the upper half.
    for (std::int64_t c = 0; c < q; ++c) {
        const double* const source = pushed.data() + (i - s) * q + c;
        double* const row = x_re.data() + c * m;
        for (std::int64_t u = 0; u < s; ++u)
            row[u] = source[u * q];
        std::fill_n(row + s, s, 0.0);
    }
    std::fill_n(x_im.data(), m * q, 0.0);
    kernels->transform_rows(x_re.data(), x_im.data(), m, q, false);

    for (std::int64_t r = 0; r < p; ++r) {
        double* const row_re = acc_re.data() + r * m;
        double* const row_im = acc_im.data() + r * m;
        if (cached) {
            kernels->multiply_spectra(row_re, row_im, cache_re[level].data() + q * r * m,
                                      cache_im[level].data() + q * r * m, x_re.data(), x_im.data(), m, q, true);
        } else {
            for (std::int64_t c = 0; c < q; ++c) {
                fill_kernel_rows(k_re, k_im, r * q + c, 1, m);
                kernels->transform_rows(k_re.data(), k_im.data(), m, 1, false);
                kernels->multiply_spectra(row_re, row_im, k_re.data(), k_im.data(), x_re.data() + c * m,
                                          x_im.data() + c * m, m, 1, c == 0);
            }
        }
    }
    kernels->transform_rows(acc_re.data(), acc_im.data(), m, p, true);

    const double scale = 1.0 / double(m);
    for (std::int64_t r = 0; r < p; ++r) {
        const double* const row = acc_re.data() + r * m + s;
        double* const sum = sums.data() + i * p + r;
        for (std::int64_t t = 0; t < block.targets(); ++t)
            sum[t * p] += row[t] * scale;
    }
}

// Level `level` has the transformed kernel for m points: entry (r, c) of all lags in row q*r + c. Returns whether it is
// there; the smaller levels, which come first and are used most, take the budget.
bool ToeplitzHistory::ensure_kernel_transform(std::size_t level, std::int64_t m) {
    if (level >= cache_tried.size()) {
        cache_re.resize(level + 1);
        cache_im.resize(level + 1);
        cache_tried.resize(level + 1);
    }
    if (cache_tried[level])
        return !cache_re[level].empty();
    cache_tried[level] = true;
    const std::int64_t entries = std::int64_t{p} * q;
    const std::uint64_t cost = 2 * std::uint64_t(entries * m);
    if (cache_budget < cost)
        return false;
    cache_budget -= cost;
    aligned_vector re(entries * m), im(entries * m);
    fill_kernel_rows(re, im, 0, entries, m);
    kernels->transform_rows(re.data(), im.data(), m, entries, false);
    cache_re[level] = std::move(re);
    cache_im[level] = std::move(im);
    return true;
}

// Rows of m complex numbers that hold the lags of the entries first .. first + entries - 1 of a block. Lag 0 stays
// zero, and so do the lags that no step has.
void ToeplitzHistory::fill_kernel_rows(aligned_vector& re, aligned_vector& im, std::int64_t first, std::int64_t entries,
                                       std::int64_t m) const {
    const std::int64_t block = std::int64_t{p} * q;
    const std::int64_t lags = std::min<std::int64_t>(m, n);
    std::fill_n(re.data(), entries * m, 0.0);
    std::fill_n(im.data(), entries * m, 0.0);
    // A transposition, by a cache line of lags at a time.
    constexpr std::int64_t line = 8;
    for (std::int64_t from = 1; from < lags; from += line)
        for (std::int64_t e = 0; e < entries; ++e)
            for (std::int64_t u = from; u < std::min(from + line, lags); ++u)
                re[e * m + u] = kernel[u * block + first + e];
}

} // namespace quenta
