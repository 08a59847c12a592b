// Eight lanes, and registers for three stages of the transform at once.
#include "toeplitz_history/vector_kernels_of.hpp"

namespace quenta {

struct avx512 {
    static constexpr const char* name = "avx512";
    static constexpr int width = 8;
    static constexpr int fused_stages = 3;
};

constexpr vector_kernels kernels_avx512 = vector_kernels_of<avx512>();

} // namespace quenta
