// Replaces operator new and delete of a program by two functions. Exactly one file of the program includes this header
// and defines the functions.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

#include <malloc.h>

namespace quenta_tests {

// May throw std::bad_alloc. The alignment is a power of two.
[[gnu::noinline]] void* allocate_block(std::size_t bytes, std::size_t alignment);
[[gnu::noinline]] void release_block(void* block) noexcept;

// Access to the heap for these functions.
#if defined(_WIN32)

// Windows does not report the size of an aligned block. It is stored before the block.
constexpr std::size_t most_alignment = 64;

inline void* heap_block(std::size_t bytes, std::size_t) {
    void* const start = _aligned_malloc(most_alignment + bytes, most_alignment);
    if (start == nullptr)
        throw std::bad_alloc{};
    *static_cast<std::size_t*>(start) = bytes;
    return static_cast<unsigned char*>(start) + most_alignment;
}
inline void* start_of_heap_block(void* block) {
    return static_cast<unsigned char*>(block) - most_alignment;
}
inline std::size_t size_of_heap_block(void* block) {
    return *static_cast<std::size_t*>(start_of_heap_block(block));
}
inline void release_heap_block(void* block) {
    if (block != nullptr)
        _aligned_free(start_of_heap_block(block));
}

#else

inline void* heap_block(std::size_t bytes, std::size_t alignment) {
    void* const block = std::aligned_alloc(alignment, (bytes + alignment) / alignment * alignment);
    if (block == nullptr)
        throw std::bad_alloc{};
    return block;
}
inline std::size_t size_of_heap_block(void* block) {
    return malloc_usable_size(block);
}
inline void release_heap_block(void* block) {
    std::free(block);
}

#endif

} // namespace quenta_tests

void* operator new(std::size_t bytes) {
    return quenta_tests::allocate_block(bytes, alignof(std::max_align_t));
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return quenta_tests::allocate_block(bytes, std::size_t(alignment));
}
void* operator new[](std::size_t bytes) {
    return quenta_tests::allocate_block(bytes, alignof(std::max_align_t));
}
void operator delete(void* block) noexcept {
    quenta_tests::release_block(block);
}
void operator delete(void* block, std::size_t) noexcept {
    quenta_tests::release_block(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    quenta_tests::release_block(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    quenta_tests::release_block(block);
}
void operator delete[](void* block) noexcept {
    quenta_tests::release_block(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    quenta_tests::release_block(block);
}
