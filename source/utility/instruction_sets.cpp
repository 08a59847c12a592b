#include "utility/instruction_sets.hpp"

namespace quenta {

#if defined(__x86_64__)

processor_features detected_processor_features() {
    // The compiler's query also asks whether the system saves the wide registers. It reads what the compiler's run time
    // has found while the library was loaded.
    return {bool(__builtin_cpu_supports("avx2")), __builtin_cpu_supports("avx512f") &&
                                                      __builtin_cpu_supports("avx512dq") &&
                                                      __builtin_cpu_supports("avx512vl")};
}

#else

processor_features detected_processor_features() {
    return {false, false};
}

#endif

} // namespace quenta
