// The transforms call `cos` and `sin` at exactly the angles that other_platform compares.
#include "support/transform_angles.hpp"
#include "toeplitz_history/fft.hpp"
#include "toeplitz_history/vector_kernels.hpp"
#include "utility/instruction_sets.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>
#include <vector>

namespace {

std::set<double> angles_of_cos, angles_of_sin;

} // namespace

// The linker replaces `cos` and `sin` by functions that record the angles.
extern "C" double __real_cos(double angle);
extern "C" double __real_sin(double angle);
extern "C" double __wrap_cos(double angle) {
    angles_of_cos.insert(angle);
    return __real_cos(angle);
}
extern "C" double __wrap_sin(double angle) {
    angles_of_sin.insert(angle);
    return __real_sin(angle);
}

namespace quenta {

namespace {

constexpr double turn = 6.283185307179586;

TEST(transform_angles, are_exactly_those_at_which_transforms_call_cos_and_sin) {
    // Long enough for runs of twiddles within one block and across blocks.
    for (const std::int64_t longest : {2, 16, 64, 128, 4096, 65536})
        for (const bool inverse : {false, true}) {
            const std::vector<double> listed = quenta_tests::transform_angles(longest, inverse ? turn : -turn);
            const std::set<double> expected{listed.begin(), listed.end()};
            EXPECT_EQ(expected.size(), listed.size()) << "expected every angle once";
            angles_of_cos.clear();
            angles_of_sin.clear();
            for (std::int64_t n = 2; n <= longest; n *= 2) {
                std::vector<double> re(std::size_t(n), 1.0), im(std::size_t(n), 1.0);
                fft_inplace({re.size(), re.data()}, {im.size(), im.data()}, inverse);
                if (n >= shortest_vector_transform)
                    for (const vector_kernels* const kernels : runnable_tables<vector_kernels>())
                        kernels->transform_rows(re.data(), im.data(), n, 1, inverse);
            }
            EXPECT_EQ(angles_of_cos, expected) << "up to " << longest << " points";
            EXPECT_EQ(angles_of_sin, expected) << "up to " << longest << " points";
        }
}

} // namespace

} // namespace quenta
