#include "toeplitz_history/toeplitz_history.hpp"

#include "reference/toeplitz_history.hpp"
#include "support/bits.hpp"
#include "support/failures.hpp"
#include "support/random_data.hpp"
#include "utility/instruction_sets.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <span>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

namespace quenta {
namespace {

using quenta_tests::equal_bits;
using quenta_tests::failure_of;
using quenta_tests::random_data;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

std::size_t size(int number) {
    return static_cast<std::size_t>(number);
}

view<const double> view_of(const std::vector<double>& values) {
    return {values.size(), values.data()};
}

// The input of a run: the kernel blocks of all lags, and the values that the steps push.
struct march_input {
    int n, p, q;
    std::vector<double> kernel; // in the layout of the history
    std::vector<double> x;      // q values per step

    std::span<const double> block(int lag) const {
        return std::span{kernel}.subspan(size(lag) * size(p * q), size(p * q));
    }
    std::vector<double> value(int step) const {
        const double* const first = x.data() + size(step) * size(q);
        return {first, first + q};
    }
};

using generator = std::function<std::vector<double>(random_data&, std::size_t)>;

march_input make_input(random_data& data, int n, int p, int q, const generator& values) {
    return {n, p, q, values(data, size(n) * size(p * q)), values(data, size(n) * size(q))};
}

// What a run reads from its history.
struct march_record {
    std::vector<std::vector<int>> asked; // [step]: the lags that the push of this step requested
    std::vector<double> history;         // the sums of step t, read before step t is pushed
    std::vector<double> sums;            // at the end
    std::vector<double> kernel;          // at the end
};

// A provider that writes the blocks of an input and records the lags. Even lags are written as a whole, odd ones row by
// row.
struct recording_provider {
    const march_input* input;
    std::vector<int> asked;

    static void provide(void* context, std::int32_t lag, ToeplitzHistory& history) {
        auto* const self = static_cast<recording_provider*>(context);
        self->asked.push_back(lag);
        const std::span<const double> block = self->input->block(lag);
        if (lag % 2 == 0)
            std::copy(block.begin(), block.end(), history.kernel_block(lag).pointer);
        else
            for (int R = 0; R < history.p; ++R)
                std::copy_n(block.data() + R * history.q, history.q, history.kernel_row(lag, R).pointer);
    }
};

// Lag 0 and the lags that have not been requested yet are NaN, so that reading one of them changes the sums.
march_record march(const march_input& input, const vector_kernels& kernels, ToeplitzHistory& history) {
    march_record record;
    recording_provider provider{&input, {}};
    history.kernels = &kernels;
    history.init(input.n, input.p, input.q);
    std::fill(history.kernel.begin(), history.kernel.end(), nan);
    history.set_kernel_provider(&provider, recording_provider::provide);
    for (int t = 0; t < input.n; ++t) {
        const view<double> now = history.history_at(t);
        record.history.insert(record.history.end(), now.pointer, now.pointer + now.length);
        history.push(view_of(input.value(t)));
        record.asked.push_back(std::exchange(provider.asked, {}));
    }
    record.sums.assign(history.sums.begin(), history.sums.end());
    record.kernel.assign(history.kernel.begin(), history.kernel.end());
    return record;
}

march_record march_by_reference(const march_input& input, reference::toeplitz_history& history) {
    march_record record;
    std::vector<int> asked;
    std::fill(history.kernel.begin(), history.kernel.end(), nan);
    history.set_kernel_provider([&](int lag, reference::toeplitz_history& self) {
        asked.push_back(lag);
        const std::span<const double> block = input.block(lag);
        for (int R = 0; R < input.p; ++R)
            for (int C = 0; C < input.q; ++C)
                self.kernel_at(lag, R, C) = block[size(R * input.q + C)];
    });
    for (int t = 0; t < input.n; ++t) {
        for (int R = 0; R < input.p; ++R)
            record.history.push_back(history.sum_at(t, R));
        history.push(input.value(t));
        record.asked.push_back(std::exchange(asked, {}));
    }
    record.sums = history.sums;
    record.kernel = history.kernel;
    return record;
}

void expect_same_cache(const reference::toeplitz_history& expected, const ToeplitzHistory& history) {
    EXPECT_EQ(history.cache_budget, expected.cache_budget);
    const std::size_t levels =
        expected.cached_level.empty() ? 0 : static_cast<std::size_t>(expected.cached_level.rbegin()->first) + 1;
    ASSERT_EQ(history.cache_tried.size(), levels);
    ASSERT_EQ(history.cache_re.size(), levels);
    ASSERT_EQ(history.cache_im.size(), levels);
    for (std::size_t level = 0; level < levels; ++level) {
        const auto found = expected.cached_level.find(static_cast<int>(level));
        const bool tried = found != expected.cached_level.end();
        const std::size_t length = tried && found->second ? (size(history.p) * size(history.q) * 64) << level : 0;
        EXPECT_EQ(history.cache_tried[level], tried) << "level " << level;
        EXPECT_EQ(history.cache_re[level].size(), length) << "level " << level;
        EXPECT_EQ(history.cache_im[level].size(), length) << "level " << level;
    }
}

// Expects the bits of the reference on every instruction set.
void expect_reference_bits(const march_input& input) {
    SCOPED_TRACE(::testing::Message() << "n " << input.n << ", p " << input.p << ", q " << input.q);
    reference::toeplitz_history reference_history(input.n, input.p, input.q);
    const march_record expected = march_by_reference(input, reference_history);
    ASSERT_TRUE(equal_bits(expected.history, expected.sums)) << "the reference changed a sum after it was read";
    int tables = 0;
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>()) {
        ++tables;
        ToeplitzHistory history;
        const march_record record = march(input, *kernels, history);
        EXPECT_TRUE(equal_bits(expected.history, record.history)) << "sums as read, " << kernels->name;
        EXPECT_TRUE(equal_bits(expected.sums, record.sums)) << "sums at the end, " << kernels->name;
        EXPECT_TRUE(equal_bits(expected.kernel, record.kernel)) << "kernel at the end, " << kernels->name;
        EXPECT_EQ(expected.asked, record.asked) << "requested lags, " << kernels->name;
        EXPECT_EQ(history.next_block, reference_history.next_block) << kernels->name;
        EXPECT_EQ(history.count, input.n);
        expect_same_cache(reference_history, history);
    }
    EXPECT_GE(tables, 1);
}

const generator uniform = [](random_data& data, std::size_t count) {
    return data.uniform(count);
};

// Numbers of steps on both sides of every boundary of the schedule of blocks.
const std::vector<int> boundary_lengths{0,  1,  2,  31, 32,  33,  40,  63,  64,  65,  66,  67,  68,  69,  70,
                                        96, 97, 98, 99, 100, 127, 128, 129, 130, 255, 256, 257, 258, 259, 260};

// The parameter is p. q runs from 1 to 12, except q = p where 3 divides p.
class blocks_of_rows : public ::testing::TestWithParam<int> {};

TEST_P(blocks_of_rows, all_numbers_of_columns_and_steps_are_bit_identical_to_the_reference) {
    const int p = GetParam();
    int marches = 0;
    for (int q = 1; q <= 12; ++q)
        for (const int n : boundary_lengths) {
            if (p == q && p % 3 == 0)
                continue;
            ++marches;
            random_data data(size(p * 100000 + q * 1000 + n));
            expect_reference_bits(make_input(data, n, p, q, uniform));
        }
    EXPECT_GT(marches, 300);
}

INSTANTIATE_TEST_SUITE_P(toeplitz_history, blocks_of_rows, ::testing::Range(1, 13),
                         ::testing::PrintToStringParamName());

TEST(toeplitz_history, gives_the_same_bits_on_every_instruction_set_for_1000_steps) {
    for (const auto& [p, q] : {std::pair{1, 1}, {1, 2}, {2, 1}, {3, 3}, {3, 5}, {5, 3}, {1, 12}, {12, 1}, {8, 7}}) {
        random_data data(size(51 + p + 20 * q));
        expect_reference_bits(make_input(data, 1000, p, q, uniform));
    }
}

TEST(toeplitz_history, gives_the_same_bits_on_every_instruction_set_around_powers_of_two) {
    for (const int n : {511, 512, 513, 543, 544, 545, 1023, 1024, 1025, 1056, 2048 + 31, 2048 + 32, 5000}) {
        random_data data(size(52 + n));
        expect_reference_bits(make_input(data, n, 1, 1, uniform));
        expect_reference_bits(make_input(data, n, 2, 1, uniform));
    }
}

TEST(toeplitz_history, gives_the_same_bits_on_every_instruction_set_for_special_values) {
    const std::vector<generator> kinds{
        [](random_data& data, std::size_t count) { return data.sprinkled(count, 8); },
        [](random_data& data, std::size_t count) { return data.sprinkled(count, 500); },
        [](random_data& data, std::size_t count) { return data.wide(count, 300); },
        [](random_data& data, std::size_t count) { return data.uniform(count, -0x1p-1040, 0x1p-1040); },
        [](random_data& data, std::size_t count) { return data.uniform(count, 0x1p500, 0x1p520); },
        [](random_data& data, std::size_t count) {
            std::vector<double> signed_zeros = data.uniform(count);
            for (double& value : signed_zeros)
                value = std::copysign(0.0, value);
            return signed_zeros;
        },
    };
    random_data data(53);
    for (std::size_t kind = 0; kind < kinds.size(); ++kind)
        for (const auto& [p, q] : {std::pair{1, 1}, {2, 3}, {5, 2}})
            for (const int n : {33, 64, 100, 260}) {
                SCOPED_TRACE(::testing::Message() << "kind " << kind);
                expect_reference_bits(make_input(data, n, p, q, kinds[kind]));
            }
}

TEST(toeplitz_history, gives_the_same_bits_on_every_instruction_set_for_one_infinity_or_nan) {
    random_data data(54);
    for (const int step : {0, 5, 40, 70}) {
        march_input input = make_input(data, 100, 2, 3, uniform);
        input.x[size(step * 3 + 1)] = HUGE_VAL;
        expect_reference_bits(input);
        march_input lag = make_input(data, 100, 2, 3, uniform);
        lag.kernel[size((step + 1) * 6 + 2)] = nan;
        expect_reference_bits(lag);
    }
}

TEST(toeplitz_history, equals_the_double_sum_within_rounding) {
    random_data data(55);
    for (const vector_kernels* kernels : runnable_tables<vector_kernels>())
        for (const auto& [p, q] : {std::pair{1, 1}, {2, 3}, {4, 1}, {12, 7}})
            for (const int n : {1, 2, 40, 64, 70, 100, 128, 260, 1000}) {
                const march_input input = make_input(data, n, p, q, uniform);
                ToeplitzHistory history;
                const march_record record = march(input, *kernels, history);
                for (int t = 0; t < n; ++t)
                    for (int R = 0; R < p; ++R) {
                        long double sum = 0;
                        for (int k = 0; k < t; ++k)
                            for (int C = 0; C < q; ++C)
                                sum += static_cast<long double>(input.block(t - k)[size(R * q + C)]) *
                                       static_cast<long double>(input.x[size(k * q + C)]);
                        ASSERT_NEAR(double(sum), record.history[size(t * p + R)], 1e-15 * (100 + n * q))
                            << kernels->name << ", n " << n << ", p " << p << ", q " << q << ", t " << t;
                    }
            }
}

TEST(toeplitz_history, the_sums_of_the_first_step_stay_zero) {
    random_data data(56);
    const march_input input = make_input(data, 100, 3, 2, uniform);
    ToeplitzHistory history;
    history.init(100, 3, 2);
    history.kernel.assign(input.kernel.begin(), input.kernel.end());
    for (int t = 0; t < 100; ++t) {
        history.push(view_of(input.value(t)));
        const view<double> first = history.history_at(0);
        EXPECT_TRUE(equal_bits(std::vector<double>(3), std::span{first.pointer, first.length})) << "after push " << t;
    }
}

// With a kernel of ones and x[k] = 2^k, the bits of a sum are its sources.
TEST(toeplitz_history, each_of_the_first_pushes_adds_its_sources_to_its_targets) {
    constexpr int n = 16;
    std::vector<int> asked;
    ToeplitzHistory history;
    history.init(n, 1, 1);
    history.set_kernel_provider(&asked, [](void* context, std::int32_t lag, ToeplitzHistory& self) {
        static_cast<std::vector<int>*>(context)->push_back(lag);
        self.kernel_block(lag).at(0) = 1.0;
    });
    struct expected_push {
        int first_target, last_target;
        unsigned sources;
        std::vector<int> lags;
    };
    const std::vector<expected_push> table{
        {1, 1, 0b1, {1}},      {2, 3, 0b11, {2, 3}},
        {3, 3, 0b100, {}},     {4, 7, 0b1111, {4, 5, 6, 7}},
        {5, 5, 0b10000, {}},   {6, 7, 0b110000, {}},
        {7, 7, 0b1000000, {}}, {8, 15, 0b11111111, {8, 9, 10, 11, 12, 13, 14, 15}},
    };
    std::vector<unsigned> expected(n, 0);
    for (std::size_t push = 0; push < table.size(); ++push) {
        const double x = std::ldexp(1.0, static_cast<int>(push));
        history.push({1, &x});
        const expected_push& row = table[push];
        for (int t = row.first_target; t <= row.last_target; ++t)
            expected[size(t)] += row.sources;
        EXPECT_EQ(std::exchange(asked, {}), row.lags) << "push " << push + 1;
        for (int t = 0; t < n; ++t)
            EXPECT_EQ(history.history_at(t).at(0), expected[size(t)]) << "push " << push + 1 << ", sum " << t;
    }
    EXPECT_EQ(history.history_at(7).at(0), 0b1111111);
}

// The lags that push i of n requests.
std::vector<int> lags_of_push(int n, int i) {
    random_data data(57);
    ToeplitzHistory history;
    const march_record record = march(make_input(data, n, 1, 1, uniform), widest_table<vector_kernels>(), history);
    return record.asked.at(size(i - 1));
}

std::vector<int> lags(int first, int last) {
    std::vector<int> all;
    for (int lag = first; lag <= last; ++lag)
        all.push_back(lag);
    return all;
}

TEST(toeplitz_history, a_push_requests_only_the_lags_that_its_block_needs) {
    // With six steps, push 4 has two targets and push 6 has none.
    EXPECT_EQ(lags_of_push(6, 4), lags(4, 5));
    EXPECT_EQ(lags_of_push(6, 5), lags(1, 0));
    EXPECT_EQ(lags_of_push(6, 6), lags(1, 0));
    EXPECT_EQ(lags_of_push(40, 32), lags(32, 39));  // direct: 8 targets
    EXPECT_EQ(lags_of_push(64, 32), lags(32, 63));  // transform: 32 targets
    EXPECT_EQ(lags_of_push(70, 64), lags(64, 69));  // direct: 6 targets
    EXPECT_EQ(lags_of_push(100, 64), lags(64, 99)); // transform: 36 targets
    EXPECT_EQ(lags_of_push(1000, 64), lags(64, 127));
}

TEST(toeplitz_history, blocks_with_fewer_than_32_targets_are_summed_directly) {
    for (const auto& [n, first_level_tried, levels] :
         {std::tuple{40, false, 0}, {63, false, 0}, {64, true, 1}, {70, true, 1}, {95, true, 1}, {96, true, 2}}) {
        random_data data(58);
        ToeplitzHistory history;
        march(make_input(data, n, 1, 1, uniform), widest_table<vector_kernels>(), history);
        EXPECT_EQ(history.cache_tried.size(), size(levels)) << "n " << n;
        EXPECT_EQ(!history.cache_tried.empty() && history.cache_tried[0], first_level_tried) << "n " << n;
    }
}

// Expects that a cached level has the transforms of all entries of the kernel, in tiles of frequencies. Lag 0 counts as
// zero.
void expect_transformed_kernel(const ToeplitzHistory& history, const march_input& input, int level) {
    const std::size_t m = std::size_t{64} << level, tile = std::size_t(spectrum_tile),
                      entries = size(input.p * input.q);
    ASSERT_EQ(history.cache_re.at(size(level)).size(), m * entries);
    ASSERT_EQ(history.cache_im.at(size(level)).size(), m * entries);
    for (std::size_t entry = 0; entry < entries; ++entry) {
        std::vector<double> re(m), im(m);
        for (std::size_t u = 1; u < m; ++u)
            re[u] = input.kernel[u * entries + entry];
        reference::fft(re.data(), im.data(), m, false);
        for (std::size_t f = 0; f < m; f += tile) {
            const std::size_t first = f * entries + entry * tile;
            EXPECT_TRUE(equal_bits(std::span{re}.subspan(f, tile),
                                   std::span{history.cache_re[size(level)]}.subspan(first, tile)));
            EXPECT_TRUE(equal_bits(std::span{im}.subspan(f, tile),
                                   std::span{history.cache_im[size(level)]}.subspan(first, tile)));
        }
    }
}

TEST(toeplitz_history, the_cache_stores_the_levels_that_fit_its_budget_and_tries_the_next_one_once) {
    constexpr int n = 100, p = 2, q = 3;
    random_data data(59);
    const march_input input = make_input(data, n, p, q, uniform);
    ToeplitzHistory history;
    history.init(n, p, q);
    history.kernel.assign(input.kernel.begin(), input.kernel.end());
    EXPECT_EQ(history.cache_budget, 200u * p * q);
    for (int i = 1; i <= n; ++i) {
        history.push(view_of(input.value(i - 1)));
        SCOPED_TRACE(::testing::Message() << "push " << i);
        ASSERT_EQ(history.cache_tried.size(), i < 32 ? 0u : i < 64 ? 1u : 2u);
        ASSERT_EQ(history.cache_budget, (i < 32 ? 200u : 72u) * p * q);
        if (i >= 32) {
            ASSERT_EQ(history.cache_re[0].size(), 64u * p * q);
            ASSERT_EQ(history.cache_im[0].size(), 64u * p * q);
        }
        if (i >= 64) {
            EXPECT_TRUE(history.cache_tried[1]);
            EXPECT_TRUE(history.cache_re[1].empty() && history.cache_im[1].empty());
        }
    }
    expect_transformed_kernel(history, input, 0);
}

TEST(toeplitz_history, every_cached_level_is_the_transformed_kernel_in_tiles) {
    random_data data(69);
    for (const auto& [n, p, q, levels] : {std::tuple{192, 2, 3, 2}, {448, 3, 5, 3}, {960, 1, 1, 4}, {960, 9, 1, 4}}) {
        const march_input input = make_input(data, n, p, q, uniform);
        ToeplitzHistory history;
        march(input, widest_table<vector_kernels>(), history);
        ASSERT_EQ(history.cache_budget, 0u);
        for (int level = 0; level < levels; ++level) {
            SCOPED_TRACE(::testing::Message() << "n " << n << ", level " << level);
            expect_transformed_kernel(history, input, level);
        }
    }
}

TEST(toeplitz_history, without_a_provider_the_contents_of_the_kernel_are_used) {
    random_data data(60);
    for (const int n : {1, 33, 100}) {
        const march_input input = make_input(data, n, 2, 3, uniform);
        reference::toeplitz_history expected(n, 2, 3);
        ToeplitzHistory history;
        history.init(n, 2, 3);
        EXPECT_EQ(history.next_block, n);
        expected.kernel = input.kernel;
        history.kernel.assign(input.kernel.begin(), input.kernel.end());
        for (int t = 0; t < n; ++t) {
            expected.push(input.value(t));
            history.push(view_of(input.value(t)));
        }
        EXPECT_TRUE(equal_bits(expected.sums, history.sums)) << "n " << n;
        EXPECT_EQ(history.next_block, n);
    }
}

TEST(toeplitz_history, without_a_provider_the_kernel_may_change_between_pushes) {
    random_data data(64);
    for (const auto& [n, p, q] : {std::tuple{2, 2, 3}, {31, 5, 2}, {64, 2, 2}, {100, 2, 3}, {130, 1, 1}, {130, 9, 2}}) {
        reference::toeplitz_history expected(n, p, q);
        ToeplitzHistory history;
        history.init(n, p, q);
        for (int t = 0; t < n; ++t) {
            const std::vector<double> kernel = data.uniform(history.kernel.size()), x = data.uniform(size(q));
            expected.kernel = kernel;
            std::copy(kernel.begin(), kernel.end(), history.kernel.begin());
            expected.push(x);
            history.push(view_of(x));
        }
        EXPECT_TRUE(equal_bits(expected.sums, history.sums)) << "n " << n << ", p " << p << ", q " << q;
    }
}

// After set_kernel_provider, the blocks of the new provider are used, or the current kernel if there is no provider.
TEST(toeplitz_history, discards_its_copies_when_the_provider_changes) {
    struct provided {
        std::vector<double> kernel;
    };
    constexpr int n = 63, p = 2, q = 3; // no transform
    random_data data(66);
    for (const bool with_another : {false, true}) {
        provided first{data.uniform(size(n * p * q))}, second{data.uniform(size(n * p * q))};
        const auto provide = [](void* context, std::int32_t lag, ToeplitzHistory& to) {
            const view<double> block = to.kernel_block(lag);
            std::copy_n(static_cast<provided*>(context)->kernel.begin() + std::ptrdiff_t(lag) * p * q, p * q,
                        block.pointer);
        };
        reference::toeplitz_history expected(n, p, q);
        expected.kernel = first.kernel;
        ToeplitzHistory history;
        history.init(n, p, q);
        history.set_kernel_provider(&first, provide);
        for (int t = 0; t < n; ++t) {
            if (t == 20) {
                expected.kernel = second.kernel;
                if (with_another)
                    history.set_kernel_provider(&second, provide);
                else {
                    history.set_kernel_provider(nullptr, nullptr);
                    std::copy(second.kernel.begin(), second.kernel.end(), history.kernel.begin());
                }
            }
            const std::vector<double> x = data.uniform(size(q));
            expected.push(x);
            history.push(view_of(x));
        }
        EXPECT_TRUE(equal_bits(expected.sums, history.sums)) << (with_another ? "another provider" : "no provider");
    }
}

// A push stores and counts its value, then calls the provider, then adds its block of sums.
TEST(toeplitz_history, a_lag_at_which_the_provider_throws_is_requested_again_by_a_later_push) {
    constexpr int n = 130, p = 2, q = 3;
    struct provider_error {};
    struct failing_provider {
        recording_provider provider;
        int fails_at;

        void note(int lag) {
            if (lag != fails_at)
                return;
            fails_at = 0; // once
            provider.asked.push_back(lag);
            throw provider_error{};
        }
    };
    random_data data(65);
    const march_input input = make_input(data, n, p, q, uniform);
    reference::toeplitz_history undisturbed(n, p, q);
    const march_record again = march_by_reference(input, undisturbed);
    for (const int lag : {1, 2, 5, 31, 32, 40, 63, 64, 100, 129}) {
        SCOPED_TRACE(::testing::Message() << "lag " << lag);
        failing_provider ours{{&input, {}}, lag}, theirs = ours;
        ToeplitzHistory history;
        history.init(n, p, q);
        history.set_kernel_provider(&ours, [](void* context, std::int32_t asked, ToeplitzHistory& self) {
            static_cast<failing_provider*>(context)->note(asked);
            recording_provider::provide(&static_cast<failing_provider*>(context)->provider, asked, self);
        });
        reference::toeplitz_history reference_history(n, p, q);
        reference_history.set_kernel_provider([&](int asked, reference::toeplitz_history& self) {
            theirs.note(asked);
            theirs.provider.asked.push_back(asked);
            std::copy_n(input.block(asked).begin(), p * q, &self.kernel_at(asked, 0, 0));
        });
        int failures = 0;
        for (int t = 0; t < n; ++t) {
            const bool fails = failure_of<provider_error>([&] { history.push(view_of(input.value(t))); }).has_value();
            EXPECT_EQ(fails, failure_of<provider_error>([&] { reference_history.push(input.value(t)); }).has_value());
            failures += fails;
            ASSERT_EQ(history.count, t + 1);
            ASSERT_EQ(history.next_block, reference_history.next_block);
            EXPECT_TRUE(!fails || history.next_block == lag);
            ASSERT_TRUE(equal_bits(reference_history.pushed, history.pushed));
            ASSERT_TRUE(equal_bits(reference_history.sums, history.sums)) << "after push " << t + 1;
        }
        EXPECT_EQ(failures, 1);
        EXPECT_EQ(ours.provider.asked, theirs.provider.asked);
        const march_record record = march(input, widest_table<vector_kernels>(), history);
        EXPECT_TRUE(equal_bits(again.history, record.history));
        EXPECT_EQ(again.asked, record.asked);
    }
}

// The sums stay 0.0. The provider is still called.
TEST(toeplitz_history, blocks_without_rows_or_columns_add_nothing) {
    random_data data(66);
    for (const auto& [p, q] : {std::pair{3, 0}, {0, 3}, {0, 0}, {1, 0}, {0, 1}})
        for (const int n : {1, 2, 40, 100, 300}) {
            const march_input input = make_input(data, n, p, q, uniform);
            reference::toeplitz_history reference_history(n, p, q);
            const march_record expected = march_by_reference(input, reference_history);
            for (const vector_kernels* kernels : runnable_tables<vector_kernels>()) {
                ToeplitzHistory history;
                const march_record record = march(input, *kernels, history);
                EXPECT_TRUE(equal_bits(std::vector<double>(size(n * p)), record.sums));
                EXPECT_TRUE(equal_bits(expected.history, record.history));
                EXPECT_EQ(expected.asked, record.asked);
            }
        }
}

TEST(toeplitz_history, init_resets_everything_to_zero) {
    random_data data(61);
    ToeplitzHistory history;
    const march_input first = make_input(data, 260, 3, 4, uniform), second = make_input(data, 100, 2, 3, uniform);
    march(first, widest_table<vector_kernels>(), history);
    history.init(100, 2, 3);
    EXPECT_EQ(history.count, 0);
    EXPECT_EQ(history.provider, nullptr);
    EXPECT_EQ(history.provider_context, nullptr);
    EXPECT_EQ(history.next_block, 100);
    EXPECT_TRUE(history.cache_re.empty() && history.cache_im.empty() && history.cache_tried.empty());
    EXPECT_TRUE(equal_bits(std::vector<double>(600), history.kernel));
    EXPECT_TRUE(equal_bits(std::vector<double>(200), history.sums));
    EXPECT_TRUE(equal_bits(std::vector<double>(300), history.pushed));
    EXPECT_TRUE(history.x_re.empty() && history.k_re.empty() && history.acc_re.empty());
    reference::toeplitz_history reference_history(100, 2, 3);
    const march_record expected = march_by_reference(second, reference_history);
    EXPECT_TRUE(equal_bits(expected.sums, march(second, widest_table<vector_kernels>(), history).sums));
}

TEST(toeplitz_history, the_scratch_has_the_size_of_the_largest_transform_so_far) {
    constexpr int n = 300, p = 2, q = 5;
    random_data data(62);
    const march_input input = make_input(data, n, p, q, uniform);
    ToeplitzHistory history;
    history.init(n, p, q);
    history.kernel.assign(input.kernel.begin(), input.kernel.end());
    for (int i = 1; i <= n; ++i) {
        history.push(view_of(input.value(i - 1)));
        const std::size_t points = i < 32 ? 0 : i < 64 ? 64 : i < 128 ? 128 : i < 256 ? 256 : 512;
        ASSERT_EQ(history.x_re.size(), points * q) << i;
        ASSERT_EQ(history.x_im.size(), points * q) << i;
        // Eight entries of the kernel are transformed at a time for a cached level, and one for the larger levels.
        const std::size_t kernel_points = 8 * std::min<std::size_t>(points, 128);
        ASSERT_EQ(history.k_re.size(), kernel_points) << i;
        ASSERT_EQ(history.k_im.size(), kernel_points) << i;
        ASSERT_EQ(history.acc_re.size(), points * p) << i;
        ASSERT_EQ(history.acc_im.size(), points * p) << i;
    }
}

std::size_t doubles_of(std::initializer_list<const aligned_vector*> arrays) {
    std::size_t doubles = 0;
    for (const aligned_vector* array : arrays)
        doubles += array->capacity();
    return doubles;
}

// The doubles in the kernel and in the arrays that are made from its blocks.
std::size_t doubles_of_blocks(const ToeplitzHistory& history) {
    std::size_t doubles = doubles_of({&history.kernel, &history.near_columns});
    for (const std::vector<aligned_vector>* cache : {&history.cache_re, &history.cache_im})
        for (const aligned_vector& level : *cache)
            doubles += level.capacity();
    return doubles;
}

std::size_t doubles_of(const ToeplitzHistory& history) {
    return doubles_of_blocks(history) + doubles_of({&history.sums, &history.pushed, &history.x_re, &history.x_im,
                                                    &history.k_re, &history.k_im, &history.acc_re, &history.acc_im});
}

TEST(toeplitz_history, the_copies_for_direct_sums_take_at_most_a_quarter_of_the_padded_blocks_or_one_block) {
    random_data data(67);
    for (const int n : {0, 1, 2, 3, 4, 7, 8, 15, 16, 31, 32, 63, 64, 100, 127, 128, 200, 1000})
        for (const auto& [p, q] : {std::pair{1, 1}, {1, 2}, {2, 1}, {4, 4}, {8, 8}, {9, 3}, {24, 32}}) {
            ToeplitzHistory history;
            march(make_input(data, n, p, q, uniform), widest_table<vector_kernels>(), history);
            const std::size_t most = n < 2 || p * q == 1 ? 0 : size(std::max(1, n / 4) * q) * size(int(padded_rows(p)));
            EXPECT_LE(history.near_columns.capacity(), most) << "n " << n << ", p " << p << ", q " << q;
            EXPECT_EQ(history.near_columns.capacity() == 0, most == 0) << "n " << n << ", p " << p << ", q " << q;
            const std::size_t cached =
                doubles_of_blocks(history) - doubles_of({&history.kernel, &history.near_columns});
            EXPECT_EQ(cached + history.cache_budget, 2 * size(n * p * q));
            if (n < 64) { // no transform
                EXPECT_LE(doubles_of(history), size(n * (p * q + p + q)) + most);
            }
        }
}

// test_memory.py of the Python package has the same numbers.
TEST(toeplitz_history, the_blocks_take_the_documented_number_of_doubles) {
    random_data data(68);
    for (const auto& [n, p, q, doubles] : {std::tuple{0, 3, 3, 0},
                                           {1, 3, 3, 9},
                                           {2, 3, 3, 30},
                                           {31, 200, 200, 1520000},
                                           {31, 1, 1, 31},
                                           {63, 9, 10, 8070},
                                           {64, 3, 4, 2560},
                                           {64, 1, 1, 192},
                                           {100, 2, 3, 1668},
                                           {200, 8, 9, 44352},
                                           {1000, 5, 5, 74280},
                                           {1000, 1, 1, 2920}}) {
        ToeplitzHistory history;
        march(make_input(data, n, p, q, uniform), widest_table<vector_kernels>(), history);
        EXPECT_EQ(doubles_of_blocks(history), size(doubles)) << "n " << n << ", p " << p << ", q " << q;
    }
}

TEST(toeplitz_history, push_reads_only_the_first_q_values) {
    random_data data(63);
    const march_input input = make_input(data, 70, 2, 3, uniform);
    ToeplitzHistory exact, generous;
    for (ToeplitzHistory* history : {&exact, &generous}) {
        history->init(70, 2, 3);
        history->kernel.assign(input.kernel.begin(), input.kernel.end());
    }
    for (int t = 0; t < 70; ++t) {
        std::vector<double> values = input.value(t);
        exact.push(view_of(values));
        values.insert(values.end(), 4, nan);
        generous.push(view_of(values));
    }
    EXPECT_TRUE(equal_bits(input.x, generous.pushed));
    EXPECT_TRUE(equal_bits(exact.sums, generous.sums));
}

TEST(toeplitz_history, the_accessors_return_the_documented_positions) {
    ToeplitzHistory history;
    history.init(4, 2, 3);
    for (std::size_t i = 0; i < history.kernel.size(); ++i)
        history.kernel[i] = double(i);
    for (std::size_t i = 0; i < history.sums.size(); ++i)
        history.sums[i] = double(i);
    for (int d = 0; d < 4; ++d) {
        EXPECT_EQ(history.kernel_block(d).length, 6u);
        EXPECT_EQ(history.kernel_block(d).at(0), 6 * d);
        for (int R = 0; R < 2; ++R) {
            EXPECT_EQ(history.kernel_row(d, R).length, 3u);
            EXPECT_EQ(history.kernel_row(d, R).at(0), (d * 2 + R) * 3);
        }
        EXPECT_EQ(history.history_at(d).length, 2u);
        EXPECT_EQ(history.history_at(d).at(1), 2 * d + 1);
    }
}

TEST(toeplitz_history, an_access_out_of_range_raises_an_index_failure) {
    constexpr int n = 4, p = 2, q = 3;
    constexpr int lowest = std::numeric_limits<int>::min(), largest = std::numeric_limits<int>::max();
    ToeplitzHistory history;
    history.init(n, p, q);
    for (const int outside : {-1, n, n + 1, lowest, largest}) {
        EXPECT_TRUE(failure_of<index_failure>([&] { history.history_at(outside); })) << outside;
        EXPECT_TRUE(failure_of<index_failure>([&] { history.kernel_block(outside); })) << outside;
        EXPECT_TRUE(failure_of<index_failure>([&] { history.kernel_row(outside, 0); })) << outside;
    }
    for (const int outside : {-1, p, p + 1, lowest, largest})
        for (int d = 0; d < n; ++d)
            EXPECT_TRUE(failure_of<index_failure>([&] { history.kernel_row(d, outside); })) << outside;
}

TEST(toeplitz_history, a_lag_or_step_out_of_range_raises_an_index_failure_also_for_empty_blocks) {
    constexpr int n = 4, largest = std::numeric_limits<int>::max();
    for (const auto& [p, q] : {std::pair{2, 0}, {0, 2}, {0, 0}}) {
        ToeplitzHistory history;
        history.init(n, p, q);
        for (const int outside : {-1, n, largest}) {
            EXPECT_TRUE(failure_of<index_failure>([&] { history.history_at(outside); }));
            EXPECT_TRUE(failure_of<index_failure>([&] { history.kernel_block(outside); }));
        }
        EXPECT_TRUE(failure_of<index_failure>([&] { history.kernel_row(0, history.p); }));
        const std::vector<double> x(2);
        for (int t = 0; t < n; ++t)
            history.push(view_of(x));
        EXPECT_TRUE(failure_of<index_failure>([&] { history.push(view_of(x)); }));
    }
}

// With no steps there are no arrays, so that the blocks may have any size.
TEST(toeplitz_history, with_no_steps_every_access_raises_an_index_failure) {
    constexpr int largest = std::numeric_limits<int>::max();
    for (const int side : {0, 1, largest}) {
        ToeplitzHistory history;
        history.init(0, side, side);
        for (const int any : {-1, 0, largest}) {
            EXPECT_TRUE(failure_of<index_failure>([&] { history.history_at(any); }));
            EXPECT_TRUE(failure_of<index_failure>([&] { history.kernel_block(any); }));
            EXPECT_TRUE(failure_of<index_failure>([&] { history.kernel_row(any, any); }));
        }
        EXPECT_TRUE(failure_of<index_failure>([&] { history.push({}); }));
    }
}

TEST(toeplitz_history, negative_or_too_large_sizes_raise_a_length_error_and_leave_the_history_empty) {
    constexpr int lowest = std::numeric_limits<int>::min(), largest = std::numeric_limits<int>::max();
    for (const auto& [n, p, q] : {std::tuple{largest, largest, largest},
                                  {2, largest, largest},
                                  {1 << 30, 1 << 30, 1 << 4},
                                  {1 << 22, 1 << 21, 1 << 21},
                                  {-1, 1, 1},
                                  {1, -1, 1},
                                  {1, 1, -1},
                                  {-1, -1, 1},
                                  {1, -1, -1},
                                  {-1, -1, -1},
                                  {-1, 0, 0},
                                  {0, -1, 0},
                                  {0, 0, -1},
                                  {lowest, lowest, lowest},
                                  {lowest, lowest, 0},
                                  {lowest, 1, largest}}) {
        SCOPED_TRACE(::testing::Message() << "n " << n << ", p " << p << ", q " << q);
        ToeplitzHistory history;
        history.init(40, 1, 1);
        EXPECT_THROW(history.init(n, p, q), std::length_error);
        EXPECT_EQ(history.n, 0);
        EXPECT_EQ(history.p, 0);
        EXPECT_EQ(history.q, 0);
        EXPECT_EQ(doubles_of(history), 0u);
        EXPECT_TRUE(failure_of<index_failure>([&] { history.push({}); }));
    }
}

TEST(toeplitz_history, too_few_values_or_too_many_pushes_raise_an_index_failure) {
    const std::vector<double> x{1, 2, 3};
    for (const int n : {0, 1, 5, 64}) {
        ToeplitzHistory history;
        history.init(n, 2, 3);
        for (int t = 0; t < n; ++t) {
            EXPECT_TRUE(failure_of<index_failure>([&] { history.push({2, x.data()}); })) << n;
            EXPECT_TRUE(failure_of<index_failure>([&] { history.push({}); })) << n;
            history.push(view_of(x));
            EXPECT_EQ(history.count, t + 1);
        }
        EXPECT_TRUE(failure_of<index_failure>([&] { history.push(view_of(x)); })) << n;
        EXPECT_TRUE(failure_of<index_failure>([&] { history.history_at(n); })) << n;
    }
}

} // namespace
} // namespace quenta
