#include "quenta_equations/kernel_sums.hpp"

#include "utility/instruction_sets.hpp"

namespace quenta {

// Without vectors of 512 bits: on some processors they lower the clock. This slows the functions of the caller, which
// take most of the time, by more than the sums gain.
const kernel_sums& kernel_sums_without_avx512() {
    processor_features features = detected_processor_features();
    features.avx512 = false;
    return *runnable_tables<kernel_sums>(features).back();
}

} // namespace quenta
