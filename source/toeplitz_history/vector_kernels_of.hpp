// The table of an instruction set, given by its tag: a name, the number of lanes of a register, and how many stages of
// the transform its registers hold at once.
#pragma once

#include "toeplitz_history/convolution_kernel.hpp"
#include "toeplitz_history/transform_kernel.hpp"
#include "toeplitz_history/vector_kernels.hpp"

namespace quenta {

template <class isa>
constexpr vector_kernels vector_kernels_of() {
    return {isa::name, transform_kernel<isa>::transform_rows, convolution_kernel<isa>::add_direct_sums,
            convolution_kernel<isa>::multiply_spectra};
}

} // namespace quenta
