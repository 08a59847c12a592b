// quenta_gc_collect really gives the heap's free memory back, where the platform offers that.
#include "quenta_native.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

#include <unistd.h>

namespace {

constexpr long mebibyte = 1024 * 1024;

// The bytes of the process that are in memory.
long resident() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    statm >> pages >> pages;
    return pages * sysconf(_SC_PAGESIZE);
}

TEST(reclamation, returns_free_pages_below_memory_in_use) {
    ASSERT_EQ(quenta_rt_init(), 1);
    quenta_gc_collect();
    const long at_first = resident();
    // Small blocks, of which the last one stays: the heap cannot shrink from its end.
    constexpr std::size_t size = 4000;
    std::vector<std::unique_ptr<char[]>> blocks;
    for (int block = 0; block < 16000; ++block) {
        blocks.push_back(std::make_unique_for_overwrite<char[]>(size));
        std::memset(blocks.back().get(), 1, size);
    }
    blocks.erase(blocks.begin(), blocks.end() - 1);
    const long held_back = resident() - at_first;
    ASSERT_GT(held_back, 40 * mebibyte) << "the heap gives memory back by itself, so this shows nothing";
    quenta_gc_collect();
    EXPECT_LT(resident() - at_first, 10 * mebibyte);
}

} // namespace
