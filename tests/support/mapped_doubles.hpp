// An array of zeros of any length. A page uses memory only after it is written.
#pragma once

#include <cstddef>
#include <fstream>

#include <sys/mman.h>

namespace quenta_tests {

enum class page_size { small, large };

class mapped_doubles {
public:
    // Large pages are read faster, but a written element then uses a whole large page.
    explicit mapped_doubles(std::size_t doubles, page_size size = page_size::small) : bytes{doubles * sizeof(double)} {
        void* const address =
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (address == MAP_FAILED)
            return;
        start = static_cast<double*>(address);
        madvise(address, bytes,
                size == page_size::large && zeros_share_a_large_page() ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
    }
    ~mapped_doubles() {
        if (start != nullptr)
            munmap(start, bytes);
    }
    mapped_doubles(const mapped_doubles&) = delete;
    mapped_doubles& operator=(const mapped_doubles&) = delete;

    double* start = nullptr;

private:
    // Otherwise large pages use memory even if they are only read.
    static bool zeros_share_a_large_page() {
        char shared = '0';
        std::ifstream{"/sys/kernel/mm/transparent_hugepage/use_zero_page"} >> shared;
        return shared == '1';
    }

    std::size_t bytes;
};

} // namespace quenta_tests
