#include "peak_memory.hpp"

#include "support/replaced_new.hpp"

#include <algorithm>

namespace {

// The programs of the benchmarks have one thread.
std::int64_t allocated = 0, largest = 0, before = 0;

} // namespace

void* quenta_tests::allocate_block(std::size_t bytes, std::size_t alignment) {
    void* const block = heap_block(bytes, alignment);
    allocated += std::int64_t(size_of_heap_block(block));
    largest = std::max(largest, allocated);
    return block;
}

void quenta_tests::release_block(void* block) noexcept {
    if (block != nullptr)
        allocated -= std::int64_t(size_of_heap_block(block));
    release_heap_block(block);
}

void start_peak_memory() {
    before = largest = allocated;
}

std::int64_t peak_memory() {
    return largest - before;
}
