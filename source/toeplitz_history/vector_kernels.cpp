#include "toeplitz_history/vector_kernels.hpp"

#include <array>

namespace quenta {

#if defined(__x86_64__)

processor_features detected_processor_features() {
    // The compiler's query also asks whether the system saves the wide registers.
    return {__builtin_cpu_supports("avx2") != 0, __builtin_cpu_supports("avx512f") != 0 &&
                                                     __builtin_cpu_supports("avx512dq") != 0 &&
                                                     __builtin_cpu_supports("avx512vl") != 0};
}

const vector_kernels& kernels_for(processor_features features) {
    return features.avx512 ? kernels_avx512 : features.avx2 ? kernels_avx2 : kernels_baseline;
}

std::span<const vector_kernels* const> runnable_kernels() {
    static constexpr std::array tables{&kernels_baseline, &kernels_avx2, &kernels_avx512};
    const processor_features features = detected_processor_features();
    return std::span{tables}.first(features.avx512 ? 3 : features.avx2 ? 2 : 1);
}

#else

processor_features detected_processor_features() {
    return {false, false};
}

const vector_kernels& kernels_for(processor_features) {
    return kernels_baseline;
}

std::span<const vector_kernels* const> runnable_kernels() {
    static constexpr std::array tables{&kernels_baseline};
    return tables;
}

#endif

const vector_kernels& best_kernels() {
    static const vector_kernels& best = kernels_for(detected_processor_features());
    return best;
}

} // namespace quenta
