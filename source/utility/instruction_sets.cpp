#include "utility/instruction_sets.hpp"

namespace quenta {

#if defined(__x86_64__)

processor_features detected_processor_features() {
    // The compiler's query also asks whether the system saves the wide registers.
    return {__builtin_cpu_supports("avx2") != 0, __builtin_cpu_supports("avx512f") != 0 &&
                                                     __builtin_cpu_supports("avx512dq") != 0 &&
                                                     __builtin_cpu_supports("avx512vl") != 0};
}

#else

processor_features detected_processor_features() {
    return {false, false};
}

#endif

} // namespace quenta
