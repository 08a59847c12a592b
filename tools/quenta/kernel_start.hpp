// The matrix K(0) of a first-kind equation and its factors (Eigen).
#pragma once

#include "equation_samples.hpp"

#include <Eigen/Dense>

namespace quenta_program {

// The D by D matrix of K at a sample.
inline auto kernel_matrix(const equation_samples& equation, std::size_t sample) {
    using rows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    const auto size = static_cast<Eigen::Index>(equation.dimension());
    return Eigen::Map<const rows>(equation.kernels(sample, 1).data(), size, size);
}

using kernel_factors = Eigen::PartialPivLU<Eigen::MatrixXd>;

// Whether a pivot is 0.
inline bool is_singular(const kernel_factors& factors) {
    return (factors.matrixLU().diagonal().array() == 0.0).any();
}

} // namespace quenta_program
