// An array that a call may write, under watch: every cell, and a fence on both sides, holds a mark beforehand.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace quenta_tests {

// A NaN that no arithmetic makes.
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

    // Of the fences of arrays that are made from now on: 0 for arrays that end where their memory does.
    static inline std::ptrdiff_t width = 32;

private:
    std::ptrdiff_t fence;
    std::vector<double> cells;
};

} // namespace quenta_tests
