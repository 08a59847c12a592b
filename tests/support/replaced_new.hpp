// Replaces operator new and delete in the one unit of a program that includes this, by two functions of that unit.
#pragma once

#include <cstddef>
#include <new>

namespace quenta_tests {

// May throw std::bad_alloc. The alignment is a power of two.
[[gnu::noinline]] void* allocate_block(std::size_t bytes, std::size_t alignment);
[[gnu::noinline]] void release_block(void* block) noexcept;

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
