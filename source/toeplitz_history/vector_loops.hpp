// The loops of a history for one instruction set.
#pragma once

#include "toeplitz_history/convolution_kernel.hpp"
#include "toeplitz_history/transform_kernel.hpp"
#include "toeplitz_history/vector_kernels.hpp"
#include "utility/instruction_sets.hpp"

namespace quenta {

template <class set>
const vector_kernels& vector_kernels::of() {
    static constexpr vector_kernels table{set::name,
                                          transform_kernel<set>::transform_rows,
                                          convolution_kernel<set>::add_scalar_sums,
                                          convolution_kernel<set>::add_block_products,
                                          convolution_kernel<set>::copy_columns,
                                          convolution_kernel<set>::multiply_spectra};
    return table;
}

} // namespace quenta
