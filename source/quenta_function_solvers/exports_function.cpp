// The exports of the block solvers: checks, lengths, and from P and D, known at run time, to the variant.
#include "quenta_function_solvers/function_solvers.hpp"
#include "quenta_function_solvers/history_kernels.hpp"
#include "quenta_solvers/quenta_native.h"
#include "quenta_solvers/status.hpp"
#include "quenta_solvers/variants.hpp"
#include "utility/floating_point_mode.hpp"

#include <cstdint>

using namespace quenta;

namespace {

struct block_sizes {
    std::uint64_t P, D;
    std::uint64_t steps, points, components; // N, N * P, N * P * D
    std::uint64_t carried;                   // (N + 1) * D

    // The number of doubles in the coefficient blocks, with `slots` slots per step.
    std::uint64_t blocks(int slots) const { return std::uint64_t(slots) * steps * D * components; }
};

// The variants of a solver: for P points at P - 1 and, in the vector forms, for D components at D - 1 in that.
template <class variant_of>
constexpr auto of_every_number(const variant_of& variant) {
    return variants_of<1, max_points>(variant);
}
template <class variant_of>
constexpr auto of_every_pair(const variant_of& variant) {
    return variants_of<1, max_points>([&]<int P>() {
        return variants_of<1, max_dimension>([&]<int D>() { return variant.template operator()<P, D>(); });
    });
}

constexpr auto vie1 = of_every_number([]<int P>() { return &function_solve_vie1_impl<P>; });
constexpr auto vie1_vec = of_every_pair([]<int P, int D>() { return &function_solve_vie1_vec_impl<P, D>; });
constexpr auto vie1_cont = of_every_number([]<int P>() { return &function_solve_vie1_cont_impl<P>; });
constexpr auto vie1_cont_vec = of_every_pair([]<int P, int D>() { return &function_solve_vie1_cont_vec_impl<P, D>; });
constexpr auto vie2 = of_every_number([]<int P>() { return &function_solve_vie2_impl<P>; });
constexpr auto vie2_vec = of_every_pair([]<int P, int D>() { return &function_solve_vie2_vec_impl<P, D>; });
constexpr auto vide = of_every_number([]<int P>() { return &function_solve_vide_impl<P>; });
constexpr auto vide_vec = of_every_pair([]<int P, int D>() { return &function_solve_vide_vec_impl<P, D>; });

bool out_of_range(int N, int P, int D) {
    return P < 1 || P > max_points || N < 1 || D < 1 || D > max_dimension;
}

block_sizes sizes_of(int N, int P, int D) {
    const std::uint64_t steps(N), points = steps * std::uint64_t(P), components(D);
    return {std::uint64_t(P), components, steps, points, points * components, (steps + 1) * components};
}

int status_of(bool solved) {
    return solved ? status_solved : status_singular_block;
}

} // namespace

int function_solve_vie1(const double* A, const double* b, int N, int P, double* x) {
    if (out_of_range(N, P, 1))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, 1);
    return status_of(vie1[P - 1]({sizes.blocks(P), A}, {sizes.components, b}, N, {sizes.components, x}));
}

int function_solve_vie1_vec(const double* A, const double* b, int N, int P, int D, double* x) {
    if (out_of_range(N, P, D))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, D);
    return status_of(vie1_vec[P - 1][D - 1]({sizes.blocks(P), A}, {sizes.components, b}, N, {sizes.components, x}));
}

int function_solve_vie1_cont(const double* A, const double* b, int N, int P, const double* w, double rho, double y0,
                             double* x, double* y) {
    if (out_of_range(N, P, 1))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, 1);
    return status_of(vie1_cont[P - 1]({sizes.blocks(P + 1), A}, {sizes.components, b}, N, {sizes.P, w}, rho, y0,
                                      {sizes.components, x}, {sizes.carried, y}));
}

int function_solve_vie1_cont_vec(const double* A, const double* b, int N, int P, int D, const double* w, double rho,
                                 const double* y0, double* x, double* y) {
    if (out_of_range(N, P, D))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, D);
    return status_of(vie1_cont_vec[P - 1][D - 1]({sizes.blocks(P + 1), A}, {sizes.components, b}, N, {sizes.P, w}, rho,
                                                 {sizes.D, y0}, {sizes.components, x}, {sizes.carried, y}));
}

int function_solve_vie2(const double* A, const double* b, int N, int P, double* x) {
    if (out_of_range(N, P, 1))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, 1);
    return status_of(vie2[P - 1]({sizes.blocks(P), A}, {sizes.components, b}, N, {sizes.components, x}));
}

int function_solve_vie2_vec(const double* A, const double* b, int N, int P, int D, double* x) {
    if (out_of_range(N, P, D))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, D);
    return status_of(vie2_vec[P - 1][D - 1]({sizes.blocks(P), A}, {sizes.components, b}, N, {sizes.components, x}));
}

int function_solve_vide(const double* A, const double* b, const double* C, const double* E, const double* w,
                        const double* h, double y0, int N, int P, double* x, double* y) {
    if (out_of_range(N, P, 1))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, 1);
    return status_of(vide[P - 1]({sizes.blocks(P + 1), A}, {sizes.components, b}, {sizes.points, C},
                                 {sizes.P * sizes.P, E}, {sizes.P, w}, {sizes.steps, h}, y0, N, {sizes.components, x},
                                 {sizes.carried, y}));
}

int function_solve_vide_vec(const double* A, const double* b, const double* C, const double* E, const double* w,
                            const double* h, const double* y0, int N, int P, int D, double* x, double* y) {
    if (out_of_range(N, P, D))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, D);
    return status_of(vide_vec[P - 1][D - 1](
        {sizes.blocks(P + 1), A}, {sizes.components, b}, {sizes.components * sizes.D, C}, {sizes.P * sizes.P, E},
        {sizes.P, w}, {sizes.steps, h}, {sizes.D, y0}, N, {sizes.components, x}, {sizes.carried, y}));
}
