#include "toeplitz_history/vector_kernels.hpp"

#include "reference/toeplitz_history.hpp"
#include "support/bits.hpp"
#include "support/random_data.hpp"
#include "toeplitz_history/toeplitz_history.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::equal_bits;
using quenta_tests::random_data;

TEST(vector_kernels, solvers_use_the_table_for_the_processor_at_hand) {
    EXPECT_EQ(ToeplitzHistory{}.kernels, &widest_table<vector_kernels>());
}

// One block of direct sums by its formula.
void add_sums_plainly(double* sums, const double* kernel, const double* x, int targets, int sources, int p, int q) {
    for (int t = 0; t < targets; ++t)
        for (int j = 0; j < sources; ++j)
            for (int r = 0; r < p; ++r) {
                double dot = 0.0;
                for (int c = 0; c < q; ++c)
                    dot = dot + kernel[((t - j) * p + r) * q + c] * x[j * q + c];
                sums[t * p + r] = sums[t * p + r] + dot;
            }
}

// The arrays have just the size of the block, so that a sanitizer sees an access beside it.
void expect_direct_sums(const vector_kernels& kernels, random_data& data, int targets, int sources, int p, int q,
                        bool special) {
    const auto values = [&](int count) {
        const auto size = static_cast<std::size_t>(count);
        return special ? data.sprinkled(size, 16) : data.wide(size);
    };
    std::vector<double> sums = values(targets * p);
    for (double& sum : sums)
        sum += 0.0; // no -0: sums start at 0 and never become it
    std::vector<double> expected = sums;
    // From the lag of the first target and the last source to that of the last target and the first source.
    const std::vector<double> kernel = values((targets + sources - 1) * p * q), x = values(sources * q);
    const double* const first_lag = kernel.data() + (sources - 1) * p * q;
    add_sums_plainly(expected.data(), first_lag, x.data(), targets, sources, p, q);
    kernels.add_direct_sums(sums.data(), first_lag, x.data(), targets, sources, p, q);
    EXPECT_TRUE(equal_bits(expected, sums)) << kernels.name << ", targets " << targets << ", sources " << sources
                                            << ", p " << p << ", q " << q << ", special " << special;
}

TEST(vector_kernels, direct_sums_of_every_small_block_have_the_bits_of_the_formula) {
    random_data data(41);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (const int sources : {1, 2, 4, 8, 16})
            for (int targets = 1; targets <= sources; ++targets)
                for (int p = 1; p <= 12; ++p)
                    for (int q = 1; q <= 12; ++q)
                        expect_direct_sums(*kernels, data, targets, sources, p, q, (p + q + targets) % 4 == 0);
}

TEST(vector_kernels, direct_sums_of_scalars_have_the_bits_of_the_formula) {
    random_data data(42);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (int sources = 1; sources <= 128; sources *= 2)
            for (int targets = 1; targets <= std::min(sources, 70); ++targets)
                for (const bool special : {false, true})
                    expect_direct_sums(*kernels, data, targets, sources, 1, 1, special);
}

TEST(vector_kernels, direct_sums_of_large_systems_have_the_bits_of_the_formula) {
    random_data data(43);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (const int p : {1, 5, 24, 40})
            for (const int q : {1, 7, 24, 40})
                for (const int sources : {1, 32, 128})
                    for (const int targets : {1, 2, 31, 32})
                        expect_direct_sums(*kernels, data, std::min(targets, sources), sources, p, q, false);
}

TEST(vector_kernels, products_of_spectra_have_the_bits_of_the_formula) {
    random_data data(44);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (const std::size_t length : {8, 16, 24, 64, 128, 512})
            for (const std::size_t columns : {1, 2, 3, 5, 12})
                for (const bool special : {false, true})
                    for (const bool from_zero : {false, true}) {
                        const auto values = [&](std::size_t count) {
                            return special ? data.sprinkled(count, 16) : data.wide(count);
                        };
                        const std::vector<double> k_re = values(length * columns), k_im = values(length * columns),
                                                  x_re = values(length * columns), x_im = values(length * columns);
                        std::vector<double> acc_re = values(length), acc_im = values(length);
                        std::vector<double> expected_re = acc_re, expected_im = acc_im;
                        for (std::size_t u = 0; u < length; ++u) {
                            if (from_zero)
                                expected_re[u] = expected_im[u] = 0.0;
                            for (std::size_t c = 0; c < columns; ++c) {
                                const std::size_t at = c * length + u;
                                expected_re[u] = expected_re[u] + (k_re[at] * x_re[at] - k_im[at] * x_im[at]);
                                expected_im[u] = expected_im[u] + (k_im[at] * x_re[at] + k_re[at] * x_im[at]);
                            }
                        }
                        kernels->multiply_spectra(acc_re.data(), acc_im.data(), k_re.data(), k_im.data(), x_re.data(),
                                                  x_im.data(), std::int64_t(length), std::int64_t(columns), from_zero);
                        EXPECT_TRUE(equal_bits(expected_re, acc_re))
                            << "re, " << kernels->name << ", length " << length << ", columns " << columns;
                        EXPECT_TRUE(equal_bits(expected_im, acc_im))
                            << "im, " << kernels->name << ", length " << length << ", columns " << columns;
                    }
}

// A table that hands every call on and counts the work in it.
struct work {
    std::size_t direct_pairs, transformed_rows, spectrum_points;
};
work counted;
const vector_kernels* inspected = nullptr;

constexpr vector_kernels counting_kernels{
    "counting",
    [](double* re, double* im, std::int64_t n, std::int64_t rows, bool inverse) {
        counted.transformed_rows += std::size_t(rows);
        inspected->transform_rows(re, im, n, rows, inverse);
    },
    [](double* sums, const double* kernel, const double* x, std::int64_t targets, std::int64_t sources, std::int64_t p,
       std::int64_t q) {
        counted.direct_pairs += std::size_t(targets * sources);
        inspected->add_direct_sums(sums, kernel, x, targets, sources, p, q);
    },
    [](double* acc_re, double* acc_im, const double* kernel_re, const double* kernel_im, const double* x_re,
       const double* x_im, std::int64_t length, std::int64_t columns, bool from_zero) {
        counted.spectrum_points += std::size_t(length * columns);
        inspected->multiply_spectra(acc_re, acc_im, kernel_re, kernel_im, x_re, x_im, length, columns, from_zero);
    }};

TEST(vector_kernels, a_history_does_all_its_work_through_its_table) {
    constexpr int p = 2, q = 3;
    random_data data(45);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (const int n : {20, 64, 100, 200, 1000}) {
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
                const std::vector<double> x = data.uniform(q);
                expected.push(x);
                history.push({x.size(), x.data()});
            }
            EXPECT_TRUE(equal_bits(expected.sums, history.sums)) << kernels->name << ", n " << n;
            // q + p transforms a block, and those of the kernel once for a level that fits: no more, and no fewer.
            EXPECT_EQ(counted.direct_pairs, expected.direct_pairs) << kernels->name << ", n " << n;
            EXPECT_EQ(counted.transformed_rows, expected.transformed_rows) << kernels->name << ", n " << n;
            EXPECT_EQ(counted.spectrum_points, expected.spectrum_points) << kernels->name << ", n " << n;
            EXPECT_GT(counted.direct_pairs, 0u);
            EXPECT_EQ(counted.transformed_rows > 0, n >= 64);
        }
}

} // namespace
} // namespace quenta
