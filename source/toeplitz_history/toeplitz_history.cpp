#include "toeplitz_history/toeplitz_history.hpp"

#include "utility/integers.hpp"

#include <algorithm>
#include <bit>
#include <limits>
#include <stdexcept>
#include <utility>

namespace quenta {

namespace {

// From this block size, and this number of targets, the transform is cheaper than direct sums.
constexpr std::int64_t transform_threshold = 32;

// The length of an array of a * b * c doubles. Throws std::length_error if no array can have this length.
std::size_t array_length(std::int64_t a, std::int64_t b, std::int64_t c = 1) {
    const int128 length = int128{a} * b * c;
    if (std::min({a, b, c}) < 0 || length > std::numeric_limits<std::ptrdiff_t>::max() / std::int64_t{sizeof(double)})
        throw std::length_error{"ToeplitzHistory: expected sizes of at least 0 with arrays of less than 2^63 bytes"};
    return static_cast<std::size_t>(length);
}

// The number of blocks in near_columns for n steps: the lags below n/4 and below 32 are kept; at least one block is
// needed as scratch.
//
// A lag from 2^k to 2^(k+1) - 1 is read by all direct blocks of 2^k, 2^(k+1), .. 16 sources, about n * (2^-k - 2^-5)
// times, and at most once more by a longer block that the end of the march clips. So every lag that is kept is read at
// least 3 times, and every other at most 6 times.
//
// The copies do not count against cache_budget: for n = 64, 192, 448, .. the cached levels use all of it.
std::int64_t near_places(std::int64_t n, std::int64_t p, std::int64_t q) {
    if (n < 2 || p * q < 2) // no lag is read, or none by columns
        return 0;
    return std::clamp(n / 4, std::int64_t{1}, transform_threshold);
}

// Part `index` of an array that has `parts` parts of `width` doubles.
view<double> part(double* array, std::int64_t index, std::int64_t parts, std::int64_t width,
                  code_position where = code_position::here()) {
    if (std::uint64_t(index) >= std::uint64_t(parts)) // a negative index is larger than any other
        fail_index(std::uint64_t(index) * std::uint64_t(width), std::uint64_t(parts) * std::uint64_t(width), where);
    return {std::uint64_t(width), array + index * width};
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
    ToeplitzHistory begun;
    begun.kernels = kernels;
    *this = ToeplitzHistory{}; // empty if an allocation below fails
    kernels = begun.kernels;
    begun.kernel.assign(array_length(n_, p_, q_), 0.0);
    begun.sums.assign(array_length(n_, p_), 0.0);
    begun.pushed.assign(array_length(n_, q_), 0.0);
    begun.near_lags = near_places(n_, p_, q_);
    begun.near_columns = aligned_vector(array_length(begun.near_lags, q_, padded_rows(p_)));
    begun.n = n_;
    begun.p = p_;
    begun.q = q_;
    begun.next_block = n_; // without a provider, no block is ever requested
    begun.cache_budget = 2 * begun.kernel.size();
    *this = std::move(begun);
}

void ToeplitzHistory::set_kernel_provider(void* context, kernel_provider function) {
    provider_context = context;
    provider = function;
    next_block = 1; // lag 0 belongs to the current step
    kept_lags = 1;
}

view<double> ToeplitzHistory::history_at(std::int32_t t) {
    return part(sums.data(), t, n, p);
}

view<double> ToeplitzHistory::kernel_block(std::int32_t d) {
    return part(kernel.data(), d, n, std::int64_t{p} * q);
}

view<double> ToeplitzHistory::kernel_row(std::int32_t d, std::int32_t r) {
    return part(kernel_block(d).pointer, r, p, q);
}

void ToeplitzHistory::push(view<const double> values) {
    const view<double> place = part(pushed.data(), count, n, q);
    std::copy_n(values.slice(0, q).pointer, q, place.pointer);
    const std::int64_t i = ++count;
    if (i >= n)
        return; // the last value has no target

    const std::int64_t s = i & -i; // the lowest set bit
    const dyadic_block block{i, s, std::min<std::int64_t>(i + s, n)};
    const bool transform = s >= transform_threshold && block.targets() >= transform_threshold;
    // The transform of the kernel reads every lag below 2 * s, even for few targets.
    const std::int64_t last_lag = std::min<std::int64_t>((transform ? 2 * s : block.targets() + s) - 1, n - 1);
    if (provider != nullptr)
        for (; next_block <= last_lag; ++next_block)
            provider(provider_context, next_block, *this);

    if (p == 0 || q == 0)
        return; // every dot product is 0.0, and so are the sums
    if (transform)
        convolve_fft(block);
    else
        convolve_direct(block);
}

void ToeplitzHistory::convolve_direct(const dyadic_block& block) {
    const auto [i, s, end] = block;
    const std::int64_t first_source = i - s;
    if (p == 1 && q == 1) {
        kernels->add_scalar_sums(sums.data() + i, kernel.data() + s, pushed.data() + first_source, block.targets(), s);
        return;
    }
    // For each lag, all pairs with this lag. The lags descend, so that the sources ascend for every target.
    for (std::int64_t lag = end - 1 - first_source; lag > 0; --lag) {
        const std::int64_t first_target = std::max(i, first_source + lag);
        const std::int64_t pairs = std::min(end, i + lag) - first_target;
        kernels->add_block_products(sums.data() + first_target * p, columns_of_lag(lag),
                                    pushed.data() + (first_target - lag) * q, pairs, p, q);
    }
}

// The block of a lag, stored by columns. Without a provider no copy is kept, because the kernel may change between
// pushes.
const double* ToeplitzHistory::columns_of_lag(std::int64_t lag) {
    if (lag >= kept_lags) {
        if (provider == nullptr || lag >= near_lags) {
            copy_columns(lag, 0);
            return near_columns.data();
        }
        for (; kept_lags <= lag; ++kept_lags)
            copy_columns(kept_lags, kept_lags);
    }
    return near_columns.data() + lag * q * padded_rows(p);
}

void ToeplitzHistory::copy_columns(std::int64_t lag, std::int64_t place) {
    kernels->copy_columns(near_columns.data() + place * q * padded_rows(p), kernel.data() + lag * p * q, p, q);
}

void ToeplitzHistory::convolve_fft(const dyadic_block& block) {
    const auto [i, s, end] = block;
    const std::int64_t m = 2 * s;
    grow(x_re, x_im, m * q);
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

    if (cached) {
        kernels->multiply_spectra(acc_re.data(), acc_im.data(), cache_re[level].data(), cache_im[level].data(),
                                  x_re.data(), x_im.data(), m, p, q, true);
    } else {
        grow(k_re, k_im, m);
        for (std::int64_t r = 0; r < p; ++r)
            for (std::int64_t c = 0; c < q; ++c) {
                transform_kernel_entries(r * q + c, 1, m);
                kernels->multiply_spectra(acc_re.data() + r * m, acc_im.data() + r * m, k_re.data(), k_im.data(),
                                          x_re.data() + c * m, x_im.data() + c * m, m, 1, 1, c == 0);
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

// Level `level` holds the transformed kernel for m points, by tiles. Returns whether it is cached. The smaller levels
// are requested first and used most, and so they get the budget.
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
    const std::int64_t max_together = std::min<std::int64_t>(entries, 8);
    grow(k_re, k_im, max_together * m);
    for (std::int64_t first = 0; first < entries; first += max_together) {
        const std::int64_t together = std::min(max_together, entries - first);
        transform_kernel_entries(first, together, m);
        for (std::int64_t f = 0; f < m; f += spectrum_tile)
            for (std::int64_t e = 0; e < together; ++e) {
                std::copy_n(k_re.data() + e * m + f, spectrum_tile,
                            re.data() + f * entries + (first + e) * spectrum_tile);
                std::copy_n(k_im.data() + e * m + f, spectrum_tile,
                            im.data() + f * entries + (first + e) * spectrum_tile);
            }
    }
    cache_re[level] = std::move(re);
    cache_im[level] = std::move(im);
    return true;
}

// Fills k_re and k_im with rows of m complex numbers: the transformed entries first .. first + entries - 1 of the
// blocks. Lag 0 and the lags from n on are taken as zero.
void ToeplitzHistory::transform_kernel_entries(std::int64_t first, std::int64_t entries, std::int64_t m) {
    const std::int64_t block = std::int64_t{p} * q;
    const std::int64_t lags = std::min<std::int64_t>(m, n);
    std::fill_n(k_re.data(), entries * m, 0.0);
    std::fill_n(k_im.data(), entries * m, 0.0);
    // A transposition, one cache line of lags at a time.
    constexpr std::int64_t line = 8;
    for (std::int64_t from = 1; from < lags; from += line)
        for (std::int64_t e = 0; e < entries; ++e)
            for (std::int64_t u = from; u < std::min(from + line, lags); ++u)
                k_re[e * m + u] = kernel[u * block + first + e];
    kernels->transform_rows(k_re.data(), k_im.data(), m, entries, false);
}

} // namespace quenta
