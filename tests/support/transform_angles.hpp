// The angles at which the transforms call `cos` and `sin`.
#pragma once

#include <cstdint>
#include <vector>

namespace quenta_tests {

// The angles of all transforms of up to n points in one direction, each once. n is a power of two, and `turn` is 2 pi
// with the sign of the direction.
inline std::vector<double> transform_angles(std::int64_t n, double turn) {
    std::vector<double> angles;
    // From one twiddle of a stage to the next.
    for (std::int64_t length = 2; length <= n; length *= 2)
        angles.push_back(turn / double(length));
    // The starts of runs of twiddles. The longest stage includes those of the shorter stages. Powers of two are already
    // in the list.
    for (std::int64_t first = 32; first < n / 2; first += 32)
        if ((first & (first - 1)) != 0)
            angles.push_back(double(first) * (turn / double(n)));
    return angles;
}

} // namespace quenta_tests
