// The subsets of a fixed size of a short list, in lexicographic order of their sorted positions.
//
// The order matters for the results: it is the order in which sums over subsets are rounded.
#pragma once

#include "utility/bit_test.hpp"

#include <bit>
#include <cstdint>

namespace quenta {

// One subset. Iteration visits its elements in ascending position.
class subset {
public:
    struct end_marker {};

    class iterator {
    public:
        constexpr iterator(std::uint32_t of, const double* first) : bits{of}, element{first} { skip_absent(); }
        constexpr double operator*() const { return *element; }
        constexpr iterator& operator++() {
            bits >>= 1;
            ++element;
            skip_absent();
            return *this;
        }
        constexpr bool operator==(end_marker) const { return bits == 0; }

    private:
        constexpr void skip_absent() {
            while (bits != 0 && !bit_test(bits, 0)) {
                bits >>= 1;
                ++element;
            }
        }

        std::uint32_t bits;
        const double* element;
    };

    constexpr subset(std::uint32_t of, const double* list) : bits{of}, elements{list} {}
    constexpr iterator begin() const { return {bits, elements}; }
    constexpr end_marker end() const { return {}; }
    constexpr int size() const { return std::popcount(bits); } // for tests

private:
    std::uint32_t bits;
    const double* elements;
};

struct subset_range {
    static constexpr std::uint32_t exhausted = 0x80000000;

    std::uint32_t bits;     // bit i set: element i belongs to the current subset
    std::uint64_t length;   // of the list, at most 31
    const double* elements; // the list

    constexpr subset_range(int size, const double* list, std::uint64_t list_length)
        : bits{(1u << size) - 1}, length{list_length}, elements{list} {}

    constexpr bool empty() const { return bit_test(bits, 31); }

    constexpr subset front() const {
        require(!empty());
        require(bits >> length == 0, "1 bits found in positions not corresponsing to elements in set");
        return {bits, elements};
    }

    constexpr void pop_front() {
        require(!empty());
        const std::uint32_t all = (1u << length) - 1;
        const int top = static_cast<int>(length) - 1;
        // The unbroken run of ones at the top of the list. Two shifts, because an empty list needs a shift by 32.
        const int run = std::countl_one(bits << 1 << (30 - top));
        if (run == std::popcount(bits)) { // all ones are at the top: this was the last subset
            bits = exhausted;
            return;
        }
        // The highest one below the run moves up by one position, and the run follows it.
        const std::uint32_t below = bits & (all >> run);
        const int moving = std::bit_width(below) - 1;
        const std::uint32_t kept = below & ~(1u << moving);
        bits = kept | (((1u << (run + 1)) - 1) << (moving + 1));
    }
};

} // namespace quenta
