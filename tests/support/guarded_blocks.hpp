// Replaces operator new and delete of a program, so that blocks lie next to pages that cannot be accessed: directly
// before such a page, or directly after one. Exactly one file of the program includes this header.
#pragma once

#include "support/fenced_array.hpp"
#include "support/replaced_new.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <numeric>

namespace quenta_tests {

enum class place { anywhere, before_the_page, after_the_page };
inline thread_local place placed = place::anywhere;

// An array of doubles or ints ends directly before the page, so it may start at an address that 16 does not divide.
// Compiled code may expect that 16 divides the address of an object in a block; then some bytes lie in between.
inline bool arrays_end_at_the_page = true;

struct guarded_block {
    void* block = nullptr;
    void* pages = nullptr;
    std::size_t bytes = 0;
};
inline std::array<guarded_block, 4096> guarded_blocks;
inline int blocks_made = 0;

[[noreturn]] inline void give_up(const char* why) {
    std::fprintf(stderr, "guarded_blocks: %s\n", why);
    std::abort();
}

inline void* allocate_guarded(std::size_t size, std::size_t alignment) {
    static const std::size_t page = std::size_t(sysconf(_SC_PAGESIZE));
    const std::size_t usable = (size + page) / page * page; // whole pages, at least one byte
    guarded_block made{nullptr, nullptr, usable + 2 * page};
    made.pages = mmap(nullptr, made.bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (made.pages == MAP_FAILED)
        throw std::bad_alloc{};
    char* const first = static_cast<char*>(made.pages) + page;
    if (mprotect(first, usable, PROT_READ | PROT_WRITE) != 0)
        give_up("mprotect failed for the pages of a block");
    std::fill_n(first, usable, char(0x7F)); // 7F7F7F...: a large number that is visible in a result
    made.block = placed == place::after_the_page ? first : first + (usable - size) / alignment * alignment;
    const auto free_entry = std::find_if(guarded_blocks.begin(), guarded_blocks.end(),
                                         [](const guarded_block& each) { return each.block == nullptr; });
    if (free_entry == guarded_blocks.end())
        give_up("expected at most 4096 blocks at a time, got more");
    ++blocks_made;
    return (*free_entry = made).block;
}

// Within a scope, all new blocks are guarded.
class blocks_guarded {
public:
    explicit blocks_guarded(place where) {
        placed = where;
        fenced_array::width = 0;
    }
    ~blocks_guarded() {
        placed = place::anywhere;
        fenced_array::width = 32;
    }
    blocks_guarded(const blocks_guarded&) = delete;
    blocks_guarded& operator=(const blocks_guarded&) = delete;
};

} // namespace quenta_tests

void* quenta_tests::allocate_block(std::size_t size, std::size_t alignment) {
    if (placed != place::anywhere) {
        const bool ends_at_the_page = arrays_end_at_the_page && alignment == alignof(std::max_align_t);
        return allocate_guarded(size, ends_at_the_page ? std::gcd(size, alignment) : alignment);
    }
    void* const block = alignment <= alignof(std::max_align_t)
                            ? std::malloc(std::max<std::size_t>(size, 1))
                            : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    if (block == nullptr)
        throw std::bad_alloc{};
    return block;
}

void quenta_tests::release_block(void* block) noexcept {
    if (block == nullptr)
        return;
    const auto entry = std::find_if(guarded_blocks.begin(), guarded_blocks.end(),
                                    [=](const guarded_block& each) { return each.block == block; });
    if (entry == guarded_blocks.end())
        return std::free(block);
    munmap(entry->pages, entry->bytes);
    *entry = {};
}
