#include "utility/instruction_sets.hpp"

namespace quenta {

#if defined(__x86_64__)

processor_features detected_processor_features() {
    // These queries also check that the operating system saves the wide registers. They read what the compiler's
    // run-time library detected when the library was loaded.
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
