// Two lanes: what every x86-64 has, and most other 64-bit machines.
#include "toeplitz_history/vector_kernels_of.hpp"

namespace quenta {

struct baseline {
    static constexpr const char* name = "baseline";
    static constexpr int width = 2;
    static constexpr int fused_stages = 2;
};

constexpr vector_kernels kernels_baseline = vector_kernels_of<baseline>();

} // namespace quenta
