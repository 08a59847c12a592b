// Zeros, for as many doubles as one likes: a page takes memory once it is written.
#pragma once

#include <cstddef>

#include <sys/mman.h>

namespace quenta_tests {

class mapped_doubles {
public:
    // A written element takes a small page, unless another advice is given.
    explicit mapped_doubles(std::size_t doubles, int advice = MADV_NOHUGEPAGE) : bytes{doubles * sizeof(double)} {
        void* const address =
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (address == MAP_FAILED)
            return;
        start = static_cast<double*>(address);
        madvise(address, bytes, advice);
    }
    ~mapped_doubles() {
        if (start != nullptr)
            munmap(start, bytes);
    }
    mapped_doubles(const mapped_doubles&) = delete;
    mapped_doubles& operator=(const mapped_doubles&) = delete;

    double* start = nullptr;

private:
    std::size_t bytes;
};

} // namespace quenta_tests
