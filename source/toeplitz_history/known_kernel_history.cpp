#include "toeplitz_history/known_kernel_history.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace quenta {

namespace {

std::int64_t rounded_up(std::int64_t count, std::int64_t unit) {
    return (count + unit - 1) / unit * unit;
}

// The sizes were found by measurement. Blocks are split at most 8 ways, except those of the last level. Of these there
// are more than half of the most, so that a nearly empty last block takes a small part of the time.
constexpr int most_bits = 3;

std::int64_t most_blocks_of_last_level(std::int64_t p, std::int64_t q) {
    return p * q == 1 ? 16 : 8;
}

std::int64_t direct_size(std::int64_t n, std::int64_t p, std::int64_t q) {
    const std::int64_t most = p * q == 1 ? 128 : 64;
    return std::clamp(std::int64_t(std::bit_ceil(std::uint64_t(n))), square_targets, most);
}

// exp(i pi k / (2 s)) for k < s. Every 32 numbers the recurrence starts again from `cos` and `sin`, at angles at which
// transforms of 4 s points also call them.
void fill_twist(aligned_vector& re, aligned_vector& im) {
    constexpr std::size_t run = 32;
    const double step = 6.283185307179586 / double(4 * re.size());
    const double step_re = std::cos(step), step_im = std::sin(step);
    for (std::size_t k = 0; k < re.size(); ++k)
        if (k % run == 0) {
            re[k] = k == 0 ? 1.0 : std::cos(double(k) * step);
            im[k] = k == 0 ? 0.0 : std::sin(double(k) * step);
        } else {
            re[k] = step_re * re[k - 1] - step_im * im[k - 1];
            im[k] = im[k - 1] * step_re + re[k - 1] * step_im;
        }
}

// Row c of `rows` becomes entry c of the blocks at the lags first .. first + count - 1; count is the length of a row
// and a multiple of 8. The entry is 0 at lag 0, and from lag n on. A transposition, one cache line of lags at a time.
void gather(double* rows, std::int64_t row_count, const double* first_entry, std::int64_t block, std::int64_t first,
            std::int64_t count, std::int64_t n) {
    constexpr std::int64_t line = 8;
    for (std::int64_t from = 0; from < count; from += line) {
        const std::int64_t begin = first + from == 0 ? 1 : 0, end = std::clamp(n - first - from, begin, line);
        for (std::int64_t c = 0; c < row_count; ++c) {
            double* const to = rows + c * count + from;
            for (std::int64_t k = begin; k < end; ++k)
                to[k] = first_entry[(first + from + k - 1) * block + c];
            std::fill_n(to, begin, 0.0);
            std::fill_n(to + end, line - end, 0.0);
        }
    }
}

void twist_in_place(double* re, double* im, const twist_factors& factors) {
    for (std::int64_t k = 0; k < factors.length; ++k) {
        const double low = re[k], high = im[k];
        re[k] = low * factors.re[k] - high * factors.im[k];
        im[k] = low * factors.im[k] + high * factors.re[k];
    }
}

// Rows of `length` complex numbers to tiles, `distance` apart, with the real and imaginary parts of all rows.
void copy_to_tiles(double* tiles, std::int64_t distance, const double* re, const double* im, std::int64_t length,
                   std::int64_t rows) {
    for (std::int64_t f = 0; f < length; f += spectrum_tile, tiles += distance)
        for (std::int64_t row = 0; row < rows; ++row) {
            std::copy_n(re + row * length + f, spectrum_tile, tiles + row * tile_numbers);
            std::copy_n(im + row * length + f, spectrum_tile, tiles + row * tile_numbers + spectrum_tile);
        }
}

} // namespace

known_kernel_history::known_kernel_history(std::int64_t steps, std::int64_t rows, std::int64_t columns,
                                           const double* blocks, const vector_kernels& of_transforms,
                                           const level_kernels& of_levels)
    : transforms{of_transforms}, loops{of_levels}, n{steps}, p{rows}, q{columns}, smallest{direct_size(n, p, q)},
      largest{smallest}, near_stride{rounded_up(near_targets + smallest, near_targets)}, near(p * q * near_stride),
      present(p, 0.0) {
    fill_near_kernel(blocks);
    while (largest * most_blocks_of_last_level(p, q) < n)
        largest *= 2;
    stride = largest + near_targets;
    sums.resize(p * stride);
    restart();
    pushed.resize(q * stride);
    if (smallest < n)
        make_levels(blocks);
}

void known_kernel_history::make_levels(const double* blocks) {
    re.resize(std::max(p, q) * largest);
    im.resize(re.size());
    twiddle_re.resize(std::min(largest, transform_block));
    twiddle_im.resize(twiddle_re.size());
    transforms.fill_block_twiddles(twiddle_re.data(), twiddle_im.data(), std::int64_t(twiddle_re.size()));
    const int bits = std::countr_zero(std::uint64_t(largest / smallest));
    const int inner = (bits + most_bits - 1) / most_bits;
    std::int64_t size = smallest;
    for (int l = 0; l < inner; ++l) {
        const int in_level = bits / inner + (l < bits % inner);
        add_level(size, std::int64_t{1} << in_level, blocks);
        size <<= in_level;
    }
    add_level(largest, rounded_up(n, largest) / largest, blocks);
}

void known_kernel_history::add_level(std::int64_t size, std::int64_t blocks, const double* kernel_blocks) {
    const std::int64_t tiles = size / spectrum_tile, distances = blocks - 1;
    level& added = levels.emplace_back(level{size, blocks, {}, {}, {}, {}});
    added.twist_re.resize(size);
    added.twist_im.resize(size);
    fill_twist(added.twist_re, added.twist_im);
    added.kernel.resize(tiles * p * distances * q * tile_numbers);
    added.sources.resize(tiles * distances * q * tile_numbers);
    transform_kernel(added, kernel_blocks);
}

void known_kernel_history::transform_kernel(level& at, const double* kernel_blocks) {
    const std::int64_t s = at.size, distances = at.blocks - 1, row_stride = distances * q * tile_numbers;
    for (std::int64_t d = 1; d <= distances; ++d)
        for (std::int64_t r = 0; r < p; ++r) {
            const double* const entries = kernel_blocks + r * q;
            gather(re.data(), q, entries, p * q, (d - 1) * s, s, n);
            gather(im.data(), q, entries, p * q, d * s, s, n);
            for (std::int64_t c = 0; c < q; ++c)
                twist_in_place(re.data() + c * s, im.data() + c * s, at.twist());
            transform(s, q, false);
            copy_to_tiles(at.kernel.data() + r * row_stride + (distances - d) * q * tile_numbers, p * row_stride,
                          re.data(), im.data(), s, q);
        }
}

void known_kernel_history::transform(std::int64_t points, std::int64_t rows_of_scratch, bool inverse) {
    transforms.transform_rows_by_table(re.data(), im.data(), points, rows_of_scratch, inverse,
                                       {twiddle_re.data(), twiddle_im.data()});
}

void known_kernel_history::fill_near_kernel(const double* kernel_blocks) {
    std::fill(near.begin(), near.end(), 0.0);
    for (std::int64_t lag = 1; lag < std::min(n, smallest); ++lag)
        for (std::int64_t entry = 0; entry < p * q; ++entry)
            near[entry * near_stride + near_targets - 1 + lag] = kernel_blocks[(lag - 1) * p * q + entry];
}

void known_kernel_history::restart() {
    done = place = 0;
    std::fill(sums.begin(), sums.end(), 0.0);
    std::fill(present.begin(), present.end(), 0.0);
}

void known_kernel_history::push(const double* x) {
    const std::int64_t at = place;
    for (std::int64_t c = 0; c < q; ++c)
        pushed[c * stride + at] = x[c];
    if (++done == n)
        return; // the last value has no target
    place = (at + 1) & (largest - 1);
    const std::int64_t source = at & (near_targets - 1);
    loops.add_source(sums.data() + at - source, stride, {near.data() + near_targets - 1 - source, near_stride, p, q},
                     x);
    if (source == near_targets - 1)
        start_block();
    read_sum();
}

// Adds to the sums of the next block what is known now and was not added before.
void known_kernel_history::start_block() {
    const std::int64_t in_block = place & (smallest - 1);
    if (in_block != 0) {
        add_direct(in_block % square_targets == 0 ? in_block : near_targets);
        return;
    }
    auto at = levels.begin();
    while (at + 1 != levels.end() && done % (at->size * at->blocks) == 0)
        ++at;
    add_transformed(*at, at + 1 == levels.end() ? done / at->size : done % (at->size * at->blocks) / at->size);
}

void known_kernel_history::add_direct(std::int64_t sources) {
    loops.add_sources(sums.data() + place, stride, {near.data() + near_targets - 1 + sources, near_stride, p, q},
                      pushed.data() + place - sources, stride, sources, sources == near_targets);
}

// `ended` blocks of the level have ended.
void known_kernel_history::add_transformed(level& at, std::int64_t ended) {
    const std::int64_t s = at.size, distances = at.blocks - 1;
    const std::int64_t first_target = place, first_source = (done - s) & (largest - 1);
    for (std::int64_t c = 0; c < q; ++c)
        loops.twist(re.data() + c * s, im.data() + c * s, pushed.data() + c * stride + first_source, at.twist());
    transform(s, q, false);
    copy_to_tiles(at.sources.data() + (ended - 1) * q * tile_numbers, distances * q * tile_numbers, re.data(),
                  im.data(), s, q);
    const std::int64_t row_stride = distances * q * tile_numbers;
    loops.sum_products(re.data(), im.data(),
                       {at.kernel.data() + (distances - ended) * q * tile_numbers, at.sources.data(), row_stride,
                        row_stride, p, ended * q, s});
    transform(s, p, true);
    for (std::int64_t r = 0; r < p; ++r) {
        double* const to = sums.data() + r * stride + first_target;
        if (first_target == 0)
            std::fill_n(to, s, 0.0);
        loops.add_untwisted(to, re.data() + r * s, im.data() + r * s, at.twist(), 1.0 / double(s));
    }
}

void known_kernel_history::read_sum() {
    for (std::int64_t r = 0; r < p; ++r)
        present[r] = sums[r * stride + place];
}

} // namespace quenta
