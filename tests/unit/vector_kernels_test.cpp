#include "toeplitz_history/vector_kernels.hpp"

#include "reference/toeplitz_history.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"
#include "toeplitz_history/toeplitz_history.hpp"
#include "utility/instruction_sets.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::equal_bits;
using quenta_tests::random_data;

TEST(vector_kernels, a_history_uses_the_widest_table_of_the_processor) {
    EXPECT_EQ(ToeplitzHistory{}.kernels, &widest_table<vector_kernels>());
}

std::vector<double> test_values(random_data& data, std::size_t count, bool special) {
    return special ? data.sprinkled(count, 16) : data.wide(count);
}

// Values without -0.0. The sums of a history start at 0.0 and never become -0.0.
std::vector<double> test_sums(random_data& data, std::size_t count, bool special) {
    std::vector<double> sums = test_values(data, count, special);
    for (double& sum : sums)
        sum += 0.0;
    return sums;
}

// The arrays have exactly the size of the block, so that a sanitizer detects an access outside it.
void expect_scalar_sums(const vector_kernels& kernels, random_data& data, int targets, int sources, bool special) {
    std::vector<double> sums = test_sums(data, std::size_t(targets), special);
    std::vector<double> expected = sums;
    // The lags from that of the first target and the last source to that of the last target and the first source.
    const std::vector<double> kernel = test_values(data, std::size_t(targets + sources - 1), special);
    const std::vector<double> x = test_values(data, std::size_t(sources), special);
    const double* const first_lag = kernel.data() + sources - 1;
    for (int t = 0; t < targets; ++t)
        for (int k = 0; k < sources; ++k)
            expected[std::size_t(t)] = expected[std::size_t(t)] + (0.0 + first_lag[t - k] * x[std::size_t(k)]);
    kernels.add_scalar_sums(sums.data(), first_lag, x.data(), targets, sources);
    EXPECT_TRUE(equal_bits(expected, sums))
        << kernels.name << ", targets " << targets << ", sources " << sources << ", special " << special;
}

void expect_block_products(const vector_kernels& kernels, random_data& data, int pairs, int p, int q, bool special) {
    std::vector<double> sums = test_sums(data, std::size_t(pairs * p), special);
    std::vector<double> expected = sums;
    const int stride = static_cast<int>(padded_rows(p));
    const std::vector<double> block = test_values(data, std::size_t(q * stride), special); // any value in the padding
    const std::vector<double> x = test_values(data, std::size_t(pairs * q), special);
    for (int pair = 0; pair < pairs; ++pair)
        for (int R = 0; R < p; ++R) {
            double dot = 0.0;
            for (int C = 0; C < q; ++C)
                dot = dot + block[std::size_t(C * stride + R)] * x[std::size_t(pair * q + C)];
            expected[std::size_t(pair * p + R)] = expected[std::size_t(pair * p + R)] + dot;
        }
    kernels.add_block_products(sums.data(), block.data(), x.data(), pairs, p, q);
    EXPECT_TRUE(equal_bits(expected, sums))
        << kernels.name << ", pairs " << pairs << ", p " << p << ", q " << q << ", special " << special;
}

TEST(vector_kernels, block_products_are_bit_identical_to_the_formula) {
    random_data data(41);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (int p = 1; p <= 48; ++p)
            for (const int q : {1, 2, 3, 4, 5, 7, 8, 9, 16, 24, 40, 48})
                for (int pairs = 1; pairs <= 32; pairs += pairs < 17 ? 1 : 14)
                    expect_block_products(*kernels, data, pairs, p, q, (p + q + pairs) % 4 == 0);
}

TEST(vector_kernels, copy_columns_writes_the_columns_of_a_block_and_their_padding) {
    random_data data(46);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (std::size_t p = 1; p <= 48; ++p)
            for (std::size_t q = 1; q <= 48; q += q < 17 ? 1 : 5) {
                const auto stride = std::size_t(padded_rows(std::int64_t(p)));
                // The padding is read up to a whole register, which has at most 4 lanes for p <= 4.
                const std::size_t width = kernels == &vector_kernels::of<baseline>()  ? baseline::width
                                          : kernels->name == std::string_view{"avx2"} ? 4
                                                                                      : 8;
                const std::size_t lanes = p <= 4 ? std::min<std::size_t>(width, 4) : width;
                const std::vector<double> rows = data.uniform(p * q);
                std::vector<double> columns(q * stride, std::numeric_limits<double>::quiet_NaN());
                kernels->copy_columns(columns.data(), rows.data(), std::int64_t(p), std::int64_t(q));
                for (std::size_t C = 0; C < q; ++C) {
                    for (std::size_t R = 0; R < p; ++R)
                        ASSERT_TRUE(equal_bits(rows[R * q + C], columns[C * stride + R]))
                            << kernels->name << ", p " << p << ", q " << q << ", row " << R << ", column " << C;
                    for (std::size_t R = p; R % lanes != 0; ++R)
                        ASSERT_FALSE(std::isnan(columns[C * stride + R]))
                            << kernels->name << ", p " << p << ", q " << q;
                }
            }
}

TEST(vector_kernels, scalar_sums_are_bit_identical_to_the_formula) {
    random_data data(42);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (int sources = 1; sources <= 128; sources *= 2)
            for (int targets = 1; targets <= std::min(sources, 70); ++targets)
                for (const bool special : {false, true})
                    expect_scalar_sums(*kernels, data, targets, sources, special);
}

// The position of entry (R, C) at frequency f in the spectrum of a kernel with p rows and q columns.
std::size_t in_tiles(std::size_t f, std::size_t R, std::size_t C, std::size_t p, std::size_t q) {
    const auto tile = std::size_t(spectrum_tile);
    return ((f / tile * p + R) * q + C) * tile + f % tile;
}

void expect_spectrum_products(const vector_kernels& kernels, random_data& data, std::size_t length, std::size_t p,
                              std::size_t q, bool special, bool from_zero) {
    const auto values = [&](std::size_t count) {
        return test_values(data, count, special);
    };
    const std::vector<double> k_re = values(length * p * q), k_im = values(length * p * q), x_re = values(length * q),
                              x_im = values(length * q);
    std::vector<double> acc_re = values(length * p), acc_im = values(length * p);
    std::vector<double> expected_re = acc_re, expected_im = acc_im;
    for (std::size_t R = 0; R < p; ++R)
        for (std::size_t f = 0; f < length; ++f) {
            double& re = expected_re[R * length + f];
            double& im = expected_im[R * length + f];
            if (from_zero)
                re = im = 0.0;
            for (std::size_t C = 0; C < q; ++C) {
                const std::size_t k = in_tiles(f, R, C, p, q), x = C * length + f;
                re = re + (k_re[k] * x_re[x] - k_im[k] * x_im[x]);
                im = im + (k_im[k] * x_re[x] + k_re[k] * x_im[x]);
            }
        }
    kernels.multiply_spectra(acc_re.data(), acc_im.data(), k_re.data(), k_im.data(), x_re.data(), x_im.data(),
                             std::int64_t(length), std::int64_t(p), std::int64_t(q), from_zero);
    SCOPED_TRACE(::testing::Message() << kernels.name << ", length " << length << ", p " << p << ", q " << q);
    EXPECT_TRUE(equal_bits(expected_re, acc_re)) << "re";
    EXPECT_TRUE(equal_bits(expected_im, acc_im)) << "im";
}

TEST(vector_kernels, spectrum_products_are_bit_identical_to_the_formula) {
    random_data data(44);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (const std::size_t length : {64, 128, 512})
            for (const std::size_t p : {1, 2, 5})
                for (const std::size_t q : {1, 2, 3, 12})
                    for (const bool special : {false, true})
                        for (const bool from_zero : {false, true})
                            expect_spectrum_products(*kernels, data, length, p, q, special, from_zero);
}

TEST(vector_kernels, transforms_with_a_table_of_twiddles_have_the_same_bits) {
    random_data data(46);
    int compared = 0;
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (const std::int64_t block : {64, 512, 2048}) {
            std::vector<double> twiddle_re(std::size_t(block), 0.0), twiddle_im(twiddle_re);
            kernels->fill_block_twiddles(twiddle_re.data(), twiddle_im.data(), block);
            for (std::int64_t n = 64; n <= (block == transform_block ? 16384 : block); n *= 2)
                for (const std::int64_t rows : {1, 3})
                    for (const bool inverse : {false, true}) {
                        std::vector<double> re = data.wide(std::size_t(n * rows)), im = data.wide(re.size());
                        std::vector<double> expected_re = re, expected_im = im;
                        kernels->transform_rows(expected_re.data(), expected_im.data(), n, rows, inverse);
                        kernels->transform_rows_by_table(re.data(), im.data(), n, rows, inverse,
                                                         {twiddle_re.data(), twiddle_im.data()});
                        EXPECT_TRUE(equal_bits(expected_re, re) && equal_bits(expected_im, im))
                            << kernels->name << ", n " << n << ", rows " << rows << ", inverse " << inverse;
                        ++compared;
                    }
        }
    EXPECT_GE(compared, (1 + 4 + 9) * 4);
}

// A table that counts the work and passes every call to another table.
struct work {
    std::size_t direct_pairs, copied_blocks, transformed_rows, spectrum_points;
};
work counted;
const vector_kernels* inspected = nullptr;

constexpr vector_kernels counting_kernels{
    "counting",
    [](double* re, double* im, std::int64_t n, std::int64_t rows, bool inverse) {
        counted.transformed_rows += std::size_t(rows);
        inspected->transform_rows(re, im, n, rows, inverse);
    },
    [](double* sums, const double* kernel, const double* x, std::int64_t targets, std::int64_t sources) {
        counted.direct_pairs += std::size_t(targets * sources);
        inspected->add_scalar_sums(sums, kernel, x, targets, sources);
    },
    [](double* sums, const double* block, const double* x, std::int64_t pairs, std::int64_t p, std::int64_t q) {
        counted.direct_pairs += std::size_t(pairs);
        inspected->add_block_products(sums, block, x, pairs, p, q);
    },
    [](double* columns, const double* rows, std::int64_t p, std::int64_t q) {
        ++counted.copied_blocks;
        inspected->copy_columns(columns, rows, p, q);
    },
    [](double* acc_re, double* acc_im, const double* kernel_re, const double* kernel_im, const double* x_re,
       const double* x_im, std::int64_t length, std::int64_t p, std::int64_t q, bool from_zero) {
        counted.spectrum_points += std::size_t(length * p * q);
        inspected->multiply_spectra(acc_re, acc_im, kernel_re, kernel_im, x_re, x_im, length, p, q, from_zero);
    },
    nullptr, // the history computes the twiddles for each transform
    nullptr};

TEST(vector_kernels, a_history_does_the_work_of_the_reference_through_its_table) {
    random_data data(45);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (const auto& [p, q, n] : {std::array{2, 3, 20},
                                      {2, 3, 64},
                                      {2, 3, 100},
                                      {2, 3, 200},
                                      {2, 3, 1000},
                                      {1, 1, 500},
                                      {5, 1, 200},
                                      {9, 12, 150}}) {
            inspected = kernels;
            counted = {};
            const std::vector<double> kernel = data.uniform(static_cast<std::size_t>(n * p * q));
            reference::toeplitz_history expected(n, p, q);
            expected.kernel = kernel;
            ToeplitzHistory history;
            history.kernels = &counting_kernels;
            history.init(n, p, q);
            history.kernel.assign(kernel.begin(), kernel.end());
            for (int t = 0; t < n; ++t) {
                const std::vector<double> x = data.uniform(static_cast<std::size_t>(q));
                expected.push(x);
                history.push({x.size(), x.data()});
            }
            EXPECT_TRUE(equal_bits(expected.sums, history.sums)) << kernels->name << ", n " << n;
            // A block needs q + p transforms. The kernel needs p q, once per cached level and otherwise once per block.
            EXPECT_EQ(counted.direct_pairs, expected.direct_pairs) << kernels->name << ", n " << n;
            EXPECT_EQ(counted.transformed_rows, expected.transformed_rows) << kernels->name << ", n " << n;
            EXPECT_EQ(counted.spectrum_points, expected.spectrum_points) << kernels->name << ", n " << n;
            EXPECT_GT(counted.direct_pairs, 0u);
            EXPECT_EQ(counted.transformed_rows > 0, n >= 64);
        }
}

TEST(vector_kernels, every_block_is_copied_once_with_a_provider_and_for_each_read_without_one) {
    inspected = &widest_table<vector_kernels>();
    for (const bool with_provider : {false, true}) {
        counted = {};
        ToeplitzHistory history;
        history.kernels = &counting_kernels;
        history.init(256, 2, 3);
        if (with_provider)
            history.set_kernel_provider(nullptr, [](void*, std::int32_t, ToeplitzHistory&) {});
        const std::array<double, 3> x{};
        for (int t = 0; t < 256; ++t)
            history.push({x.size(), x.data()});
        // For s = 1, 2, .. 16 there are 256 / (2 s) blocks of s sources. Each reads 2 s - 1 lags.
        EXPECT_EQ(counted.copied_blocks, with_provider ? 31u : 128u + 64 * 3 + 32 * 7 + 16 * 15 + 8 * 31);
    }
}

} // namespace
} // namespace quenta
