#include "utility/instruction_sets.hpp"

namespace quenta {

#if defined(__x86_64__)

processor_features detected_processor_features() {
    // These queries also check that the operating system saves the wide registers. They read what the compiler's
    // run-time library detected when the library was loaded.
    // GCOVR_EXCL_BR_START: a processor has all of these features, or not
    return {bool(__builtin_cpu_supports("avx2")), __builtin_cpu_supports("avx512f") &&
                                                      __builtin_cpu_supports("avx512dq") &&
                                                      __builtin_cpu_supports("avx512vl")};
    // GCOVR_EXCL_BR_STOP
}

#else

processor_features detected_processor_features() {
    return {false, false};
}

#endif

} // namespace quenta
