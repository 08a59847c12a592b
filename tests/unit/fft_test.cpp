#include "toeplitz_history/fft.hpp"

#include "reference/fft.hpp"
#include "support/bits.hpp"
#include "support/failures.hpp"
#include "support/long_tests.hpp"
#include "support/random_data.hpp"
#include "toeplitz_history/vector_kernels.hpp"
#include "utility/instruction_sets.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::equal_bits;
using quenta_tests::failure_of;
using quenta_tests::random_data;

constexpr std::size_t longest = std::size_t{1} << 14;

struct complex_row {
    std::vector<double> re, im;

    view<double> re_view() { return {re.size(), re.data()}; }
    view<double> im_view() { return {im.size(), im.data()}; }
};

complex_row transformed_by_reference(complex_row row, std::size_t n, bool inverse) {
    for (std::size_t first = 0; first < row.re.size(); first += n)
        reference::fft(row.re.data() + first, row.im.data() + first, n, inverse);
    return row;
}

struct kind_of_data {
    const char* name;
    std::function<std::vector<double>(random_data&, std::size_t)> values;
};

// One special value affects every value of a transform. So some inputs have only one, and some have none but overflow
// or underflow in the transform.
const std::vector<kind_of_data> kinds{
    {"uniform",
     [](random_data& data, std::size_t n) {
         return data.uniform(n);
     }},
    {"wide",
     [](random_data& data, std::size_t n) {
         return data.wide(n, 300);
     }},
    {"huge",
     [](random_data& data, std::size_t n) {
         return data.uniform(n, 0x1p1020, 0x1p1023);
     }},
    {"subnormal",
     [](random_data& data, std::size_t n) {
         return data.uniform(n, -0x1p-1040, 0x1p-1040);
     }},
    {"negative zeros",
     [](random_data&, std::size_t n) {
         return std::vector<double>(n, -0.0);
     }},
    {"many special values",
     [](random_data& data, std::size_t n) {
         return data.sprinkled(n, 4);
     }},
    {"one special value",
     [](random_data& data, std::size_t n) {
         std::vector<double> values = data.uniform(n);
         if (n > 0)
             values[data.below(n)] = data.special_value();
         return values;
     }},
};

// Calls visit(n, inverse, kind, input) for every length, direction and kind of data.
template <class visitor>
void for_all_inputs(std::size_t rows, visitor&& visit) {
    random_data data(31 + rows);
    for (std::size_t n = 0; n <= longest; n = n == 0 ? 1 : 2 * n)
        for (const bool inverse : {false, true})
            for (const kind_of_data& kind : kinds) {
                complex_row input{kind.values(data, n * rows), kind.values(data, n * rows)};
                visit(n, inverse, kind.name, std::move(input));
            }
}

TEST(fft, is_bit_identical_to_the_reference_for_every_length_up_to_16384) {
    std::size_t lengths = 0;
    for_all_inputs(1, [&](std::size_t n, bool inverse, const char* kind, complex_row row) {
        ++lengths;
        const complex_row expected = transformed_by_reference(row, std::max<std::size_t>(n, 1), inverse);
        fft_inplace(row.re_view(), row.im_view(), inverse);
        EXPECT_TRUE(equal_bits(expected.re, row.re)) << "re, n " << n << ", inverse " << inverse << ", " << kind;
        EXPECT_TRUE(equal_bits(expected.im, row.im)) << "im, n " << n << ", inverse " << inverse << ", " << kind;
    });
    EXPECT_EQ(lengths, 16 * 2 * kinds.size());
}

TEST(fft, is_bit_identical_to_the_reference_on_every_instruction_set) {
    const std::size_t max_rows_of_long_ones = quenta_tests::long_tests() ? 5 : 1;
    std::size_t tables = 0;
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>()) {
        ++tables;
        for (const std::size_t rows : {1, 2, 3, 5, 9})
            for_all_inputs(rows, [&](std::size_t n, bool inverse, const char* kind, complex_row row) {
                if (n < shortest_vector_transform || (rows > max_rows_of_long_ones && n > 1024))
                    return;
                const complex_row expected = transformed_by_reference(row, n, inverse);
                kernels->transform_rows(row.re.data(), row.im.data(), std::int64_t(n), std::int64_t(rows), inverse);
                EXPECT_TRUE(equal_bits(expected.re, row.re)) << "re, " << kernels->name << ", rows " << rows << ", n "
                                                             << n << ", inverse " << inverse << ", " << kind;
                EXPECT_TRUE(equal_bits(expected.im, row.im)) << "im, " << kernels->name << ", rows " << rows << ", n "
                                                             << n << ", inverse " << inverse << ", " << kind;
            });
    }
    EXPECT_GE(tables, 1u);
}

TEST(fft, accepts_arrays_of_any_alignment_and_writes_nothing_around_them) {
    constexpr double guard = 12345.678;
    constexpr std::size_t margin = 9;
    random_data data(32);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (std::size_t n = shortest_vector_transform; n <= 4096; n *= 2)
            for (std::size_t rows = 1; rows <= 2; ++rows)
                for (const auto& [re_at, im_at] : {std::pair{0, 1}, {1, 0}, {3, 6}, {7, 7}, {8, 5}}) {
                    complex_row row{data.uniform(n * rows), data.uniform(n * rows)};
                    complex_row expected = transformed_by_reference(row, n, false);
                    const auto surround = [&](std::vector<double>& values, int first) {
                        values.insert(values.begin(), static_cast<std::size_t>(first), guard);
                        values.insert(values.end(), margin, guard);
                    };
                    surround(row.re, re_at), surround(expected.re, re_at);
                    surround(row.im, im_at), surround(expected.im, im_at);
                    kernels->transform_rows(row.re.data() + re_at, row.im.data() + im_at, std::int64_t(n),
                                            std::int64_t(rows), false);
                    EXPECT_TRUE(equal_bits(expected.re, row.re)) << "re, " << kernels->name << ", n " << n;
                    EXPECT_TRUE(equal_bits(expected.im, row.im)) << "im, " << kernels->name << ", n " << n;
                }
}

TEST(fft, is_bit_identical_to_the_reference_for_lengths_larger_than_the_caches) {
    random_data data(34);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (std::size_t n = 2 * longest; n <= 16 * longest; n *= 2)
            for (const bool inverse : {false, true}) {
                complex_row row{data.uniform(n), data.uniform(n)};
                const complex_row expected = transformed_by_reference(row, n, inverse);
                kernels->transform_rows(row.re.data(), row.im.data(), std::int64_t(n), 1, inverse);
                EXPECT_TRUE(equal_bits(expected.re, row.re)) << "re, " << kernels->name << ", n " << n;
                EXPECT_TRUE(equal_bits(expected.im, row.im)) << "im, " << kernels->name << ", n " << n;
            }
}

TEST(fft, a_length_that_is_not_a_power_of_two_raises_an_assertion_failure_and_changes_nothing) {
    random_data data(33);
    const std::vector<double> original_re = data.uniform(longest), original_im = data.uniform(longest);
    std::vector<double> re = original_re, im = original_im;
    std::size_t refused = 0;
    for (std::uint64_t n = 0; n <= longest; ++n) {
        if (std::popcount(n) <= 1)
            continue;
        for (const bool inverse : {false, true})
            refused += failure_of<assertion_failure>([&] {
                           fft_inplace({n, re.data()}, {n, im.data()}, inverse);
                       }).has_value();
        ASSERT_TRUE(re == original_re && im == original_im) << "n " << n;
    }
    EXPECT_EQ(refused, 2 * (longest + 1 - 16));
}

TEST(fft, different_lengths_of_re_and_im_raise_an_assertion_failure_and_change_nothing) {
    random_data data(34);
    const std::vector<double> original_re = data.uniform(64), original_im = data.uniform(64);
    std::vector<double> re = original_re, im = original_im;
    const std::uint64_t lengths[] = {0, 1, 2, 3, 4, 8, 32, 64};
    for (const std::uint64_t n_re : lengths)
        for (const std::uint64_t n_im : lengths) {
            if (n_re == n_im)
                continue;
            const auto raised = failure_of<assertion_failure>([&] {
                fft_inplace({n_re, re.data()}, {n_im, im.data()}, false);
            });
            ASSERT_TRUE(raised) << "re " << n_re << ", im " << n_im;
            EXPECT_STREQ(raised->what(), "");
        }
    EXPECT_TRUE(re == original_re && im == original_im);
}

TEST(fft, lengths_of_zero_and_one_change_nothing) {
    EXPECT_NO_THROW(fft_inplace({}, {}, false));
    EXPECT_NO_THROW(fft_inplace({}, {}, true));
    for (const double value : quenta_tests::special_values)
        for (const bool inverse : {false, true}) {
            complex_row row{{value}, {-value}};
            fft_inplace(row.re_view(), row.im_view(), inverse);
            EXPECT_TRUE(equal_bits(value, row.re[0]));
            EXPECT_TRUE(equal_bits(-value, row.im[0]));
        }
}

TEST(fft, length_two_is_a_sum_and_a_difference) {
    for (const bool inverse : {false, true}) {
        complex_row row{{1.5, 0.25}, {-2.0, 7.0}};
        fft_inplace(row.re_view(), row.im_view(), inverse);
        EXPECT_TRUE(equal_bits(std::vector{1.75, 1.25}, row.re));
        EXPECT_TRUE(equal_bits(std::vector{5.0, -9.0}, row.im));
    }
}

TEST(fft, multiplies_by_the_first_twiddle_too) {
    // The imaginary part of the twiddle 1 + 0i gives 0 * infinity.
    complex_row row{{1.0, 1.0}, {0.0, HUGE_VAL}};
    fft_inplace(row.re_view(), row.im_view(), false);
    EXPECT_TRUE(std::isnan(row.re[0]) && std::isnan(row.re[1]));
}

// The first half of the transform of an impulse at position 1 has the twiddles of the last stage.
TEST(fft, takes_a_twiddle_from_cos_and_sin_after_every_32_butterflies) {
    constexpr std::size_t n = 128;
    const double theta = -6.283185307179586 / double(n);
    complex_row row{std::vector<double>(n), std::vector<double>(n)};
    row.re[1] = 1.0;
    fft_inplace(row.re_view(), row.im_view(), false);
    // Butterfly 33 uses cos and sin.
    EXPECT_TRUE(equal_bits(std::cos(32 * theta), row.re[32]));
    EXPECT_TRUE(equal_bits(std::sin(32 * theta), row.im[32]));
    // The other butterflies use the recurrence.
    for (const std::size_t start : {0, 32}) {
        double w_re = start == 0 ? 1.0 : std::cos(double(start) * theta);
        double w_im = start == 0 ? 0.0 : std::sin(double(start) * theta);
        for (std::size_t k = start; k < start + 32; ++k) {
            EXPECT_EQ(w_re, row.re[k]) << k;
            EXPECT_EQ(w_im, row.im[k]) << k;
            const double next = std::cos(theta) * w_re - std::sin(theta) * w_im;
            w_im = w_im * std::cos(theta) + w_re * std::sin(theta);
            w_re = next;
        }
        // The recurrence would have given another value to butterfly 33.
        if (start == 0) {
            EXPECT_NE(w_im, row.im[32]);
        }
    }
}

double norm_of(const complex_row& row) {
    double squares = 0;
    for (std::size_t i = 0; i < row.re.size(); ++i)
        squares += row.re[i] * row.re[i] + row.im[i] * row.im[i];
    return std::sqrt(squares);
}

TEST(fft, equals_the_discrete_fourier_transform_within_rounding) {
    random_data data(35);
    for (std::size_t n = 1; n <= 2048; n *= 2)
        for (const bool inverse : {false, true}) {
            complex_row row{data.uniform(n), data.uniform(n)};
            const complex_row x = row;
            fft_inplace(row.re_view(), row.im_view(), inverse);
            const double bound = 1e-14 * norm_of(x) * std::sqrt(double(n));
            for (std::size_t k = 0; k < n; ++k) {
                long double sum_re = 0, sum_im = 0;
                for (std::size_t j = 0; j < n; ++j) {
                    const long double angle = (inverse ? 2.0L : -2.0L) * std::acos(-1.0L) *
                                              static_cast<long double>(j * k % n) / static_cast<long double>(n);
                    const long double re = std::cos(angle), im = std::sin(angle);
                    sum_re += x.re[j] * re - x.im[j] * im;
                    sum_im += x.re[j] * im + x.im[j] * re;
                }
                ASSERT_NEAR(double(sum_re), row.re[k], bound) << "n " << n << ", k " << k;
                ASSERT_NEAR(double(sum_im), row.im[k], bound) << "n " << n << ", k " << k;
            }
        }
}

TEST(fft, a_forward_and_an_inverse_transform_multiply_by_the_length) {
    random_data data(36);
    for (std::size_t n = 1; n <= 65536; n *= 2) {
        complex_row row{data.uniform(n), data.uniform(n)};
        const complex_row x = row;
        fft_inplace(row.re_view(), row.im_view(), false);
        fft_inplace(row.re_view(), row.im_view(), true);
        for (std::size_t j = 0; j < n; ++j) {
            ASSERT_NEAR(x.re[j], row.re[j] / double(n), 1e-14) << "n " << n << ", j " << j;
            ASSERT_NEAR(x.im[j], row.im[j] / double(n), 1e-14) << "n " << n << ", j " << j;
        }
    }
}

} // namespace
} // namespace quenta
