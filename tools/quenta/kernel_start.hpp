// The matrix K(0) of a first-kind equation, factored once. Eigen does the linear algebra.
#pragma once

#include "equation_samples.hpp"

#include <Eigen/Dense>

namespace quenta_program {

// The kernel at sample i, as a matrix.
inline auto kernel_matrix(const equation_samples& posed, std::size_t i) {
    using rows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    const auto size = static_cast<Eigen::Index>(posed.dimension());
    return Eigen::Map<const rows>(posed.kernels(i, 1).data(), size, size);
}

using kernel_factors = Eigen::PartialPivLU<Eigen::MatrixXd>;

// Whether a pivot is 0, so that nothing can be solved with the factors.
inline bool is_singular(const kernel_factors& factors) {
    return (factors.matrixLU().diagonal().array() == 0.0).any();
}

} // namespace quenta_program
