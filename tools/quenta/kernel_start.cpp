#include "kernel_start.hpp"

#include <Eigen/Dense>

#include <limits>

namespace quenta_program {

namespace {

// The D by D matrix of K at a sample.
auto kernel_matrix(const equation_samples& equation, std::size_t sample) {
    using rows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    const auto size = static_cast<Eigen::Index>(equation.dimension());
    return Eigen::Map<const rows>(equation.kernels(sample, 1).data(), size, size);
}

} // namespace

struct kernel_start::factors : Eigen::PartialPivLU<Eigen::MatrixXd> {
    using Eigen::PartialPivLU<Eigen::MatrixXd>::PartialPivLU;
};

kernel_start::kernel_start(const equation_samples& of)
    : equation(of), of_start(std::make_unique<const factors>(kernel_matrix(of, 0))) {}

kernel_start::~kernel_start() = default;

bool kernel_start::is_singular() const {
    return (of_start->matrixLU().diagonal().array() == 0.0).any();
}

std::vector<double> kernel_start::solve(std::span<const double> x) const {
    const auto size = static_cast<Eigen::Index>(x.size());
    std::vector<double> result(x.size());
    Eigen::Map<Eigen::VectorXd>(result.data(), size) =
        of_start->solve(Eigen::Map<const Eigen::VectorXd>(x.data(), size));
    return result;
}

double kernel_start::relative_size(std::size_t sample) const {
    const Eigen::MatrixXd relative = of_start->solve(kernel_matrix(equation, sample));
    return relative.allFinite() ? relative.eigenvalues().cwiseAbs().maxCoeff()
                                : std::numeric_limits<double>::infinity();
}

} // namespace quenta_program
