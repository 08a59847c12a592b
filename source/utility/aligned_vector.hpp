// A vector of doubles that starts on a cache line, so that a full-width vector load never straddles two.
#pragma once

#include <cstddef>
#include <new>
#include <utility>
#include <vector>

namespace quenta {

template <class element>
struct cache_line_allocator {
    using value_type = element;
    static constexpr std::align_val_t alignment{64};

    cache_line_allocator() = default;
    template <class other>
    cache_line_allocator(const cache_line_allocator<other>&) {}

    element* allocate(std::size_t count) {
        return static_cast<element*>(::operator new(count * sizeof(element), alignment));
    }
    void deallocate(element* pointer, std::size_t) { ::operator delete(pointer, alignment); }

    // Elements without a value stay uninitialized. Code that needs zeros writes them; scratch is not written twice.
    template <class other>
    void construct(other* place) {
        ::new (static_cast<void*>(place)) other;
    }
    template <class other, class... arguments>
    void construct(other* place, arguments&&... values) {
        ::new (static_cast<void*>(place)) other(std::forward<arguments>(values)...);
    }

    bool operator==(const cache_line_allocator&) const { return true; }
};

using aligned_vector = std::vector<double, cache_line_allocator<double>>;

} // namespace quenta
