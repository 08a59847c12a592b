// Four lanes.
#include "toeplitz_history/vector_kernels_of.hpp"

namespace quenta {

struct avx2 {
    static constexpr const char* name = "avx2";
    static constexpr int width = 4;
    static constexpr int fused_stages = 2;
};

constexpr vector_kernels kernels_avx2 = vector_kernels_of<avx2>();

} // namespace quenta
