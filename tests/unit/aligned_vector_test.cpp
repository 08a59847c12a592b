#include "utility/aligned_vector.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace quenta {
namespace {

TEST(aligned_vector, starts_at_a_multiple_of_64_bytes) {
    for (std::size_t count = 1; count < 200; ++count) {
        const aligned_vector values(count, -1.0);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(values.data()) % 64, 0u) << count;
        for (const double value : values)
            EXPECT_EQ(value, -1.0);
    }
}

} // namespace
} // namespace quenta
