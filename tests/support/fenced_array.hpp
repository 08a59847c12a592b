// An output array of a call that shows what was written: every element, and a fence on both sides, starts with a mark.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace quenta_tests {

// A NaN that no arithmetic operation produces.
inline constexpr std::uint64_t mark = 0x7FFCA5A5A5A5A5A5;

inline bool is_marked(double cell) {
    return std::bit_cast<std::uint64_t>(cell) == mark;
}

class fenced_array {
public:
    explicit fenced_array(std::size_t length) : fence{width}, cells(length + 2 * fence, std::bit_cast<double>(mark)) {}

    double* data() { return cells.data() + fence; }
    std::span<const double> values() const { return std::span{cells}.subspan(fence, cells.size() - 2 * fence); }

    bool fences_hold() const {
        return std::all_of(cells.begin(), cells.begin() + fence, is_marked) &&
               std::all_of(cells.end() - fence, cells.end(), is_marked);
    }
    bool untouched() const { return std::all_of(cells.begin(), cells.end(), is_marked); }

    // The width of the fences of new arrays. With 0, an array ends at the end of its memory block.
    static inline std::ptrdiff_t width = 32;

private:
    std::ptrdiff_t fence;
    std::vector<double> cells;
};

} // namespace quenta_tests
