// The loops of a history for one instruction set.
#pragma once

#include "toeplitz_history/convolution_kernel.hpp"
#include "toeplitz_history/transform_kernel.hpp"
#include "toeplitz_history/vector_kernels.hpp"
#include "utility/instruction_sets.hpp"

namespace quenta {

template <class instruction_set>
const vector_kernels& vector_kernels::of() {
    static constexpr vector_kernels table{instruction_set::name,
                                          transform_kernel<instruction_set>::transform_rows,
                                          convolution_kernel<instruction_set>::add_scalar_sums,
                                          convolution_kernel<instruction_set>::add_block_products,
                                          convolution_kernel<instruction_set>::copy_columns,
                                          convolution_kernel<instruction_set>::multiply_spectra,
                                          transform_kernel<instruction_set>::fill_block_twiddles,
                                          transform_kernel<instruction_set>::transform_rows_by_table};
    return table;
}

} // namespace quenta
