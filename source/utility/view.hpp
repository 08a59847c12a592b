// A view: a length and a pointer, the form in which a solver receives each array.
//
// Every access is checked against the length. A hot loop takes a slice once, before it starts, and then uses the
// pointer of the slice.
#pragma once

#include "utility/assumptions.hpp" // here, as every unit that computes sees it
#include "utility/failure.hpp"

#include <cstdint>
#include <type_traits>

namespace quenta {

template <class element>
struct view {
    std::uint64_t length = 0;
    element* pointer = nullptr;

    constexpr element& at(std::uint64_t index, code_position where = code_position::here()) const {
        if (index >= length)
            fail_index(index, length, where);
        return pointer[index];
    }

    // The `count` elements from `first` on. An empty slice may begin anywhere in the view, even at its end.
    constexpr view slice(std::uint64_t first, std::uint64_t count, code_position where = code_position::here()) const {
        if (count > length || first > length - count)
            fail_index(first < length ? length : first, length, where);
        return {count, pointer + first};
    }

    constexpr operator view<const element>() const requires(!std::is_const_v<element>) { return {length, pointer}; }
};

// An array with its length.
template <class array>
constexpr view<typename array::value_type> whole(array& elements) {
    return {elements.size(), elements.data()};
}

} // namespace quenta
