// The exports of the block solvers: checks, lengths, and from P and D, known at run time, to the variant.
#include "quenta_function_solvers/function_solvers.hpp"
#include "quenta_function_solvers/history_kernels.hpp"
#include "quenta_solvers/quenta_native.h"
#include "quenta_solvers/status.hpp"
#include "utility/floating_point_mode.hpp"

#include <array>
#include <cstdint>
#include <utility>

using namespace quenta;

namespace {

struct block_sizes {
    std::uint64_t steps, points, components; // N, N * P, N * P * D
    std::uint64_t D;

    // Of the coefficient blocks, with `slots` for every step.
    std::uint64_t blocks(std::uint64_t slots) const { return slots * steps * D * components; }
};

int status_of(bool solved) {
    return solved ? status_solved : status_singular_block;
}

// visit.operator()<1 + number>(), for a number below `count`.
template <int count, class visitor>
bool visit_constant(int number, const visitor& visit) {
    using entry = bool (*)(const visitor&);
    static constexpr auto entries = []<int... constants>(std::integer_sequence<int, constants...>) {
        return std::array<entry, count>{[](const visitor& v) {
            return v.template operator()<1 + constants>();
        }...};
    }
    (std::make_integer_sequence<int, count>{});
    return entries[static_cast<std::size_t>(number)](visit);
}

bool out_of_range(int N, int P, int D) {
    return P < 1 || P > most_points || N < 1 || D < 1 || D > most_dimensions;
}

block_sizes sizes_of(int N, int P, int D) {
    const std::uint64_t points = std::uint64_t(N) * std::uint64_t(P);
    return {std::uint64_t(N), points, points * std::uint64_t(D), std::uint64_t(D)};
}

// solve.operator()<P>(sizes)
template <class variants>
int run_scalar(int N, int P, const variants& solve) {
    if (out_of_range(N, P, 1))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, 1);
    return status_of(visit_constant<most_points>(P - 1, [&]<int p>() { return solve.template operator()<p>(sizes); }));
}

// solve.operator()<P, D>(sizes)
template <class variants>
int run_vector(int N, int P, int D, const variants& solve) {
    if (out_of_range(N, P, D))
        return status_unsupported_setting;
    const standard_floating_point_mode mode;
    const block_sizes sizes = sizes_of(N, P, D);
    return status_of(
        visit_constant<most_points * most_dimensions>((P - 1) * most_dimensions + D - 1, [&]<int number>() {
            return solve.template operator()<1 + (number - 1) / most_dimensions, 1 + (number - 1) % most_dimensions>(
                sizes);
        }));
}

} // namespace

int function_solve_vie1(const double* A, const double* b, int N, int P, double* x) {
    return run_scalar(N, P, [&]<int p>(const block_sizes& sizes) {
        return function_solve_vie1_impl<p>({sizes.blocks(p), A}, {sizes.components, b}, N, {sizes.components, x});
    });
}

int function_solve_vie1_vec(const double* A, const double* b, int N, int P, int D, double* x) {
    return run_vector(N, P, D, [&]<int p, int d>(const block_sizes& sizes) {
        return function_solve_vie1_vec_impl<p, d>({sizes.blocks(p), A}, {sizes.components, b}, N,
                                                  {sizes.components, x});
    });
}

int function_solve_vie1_cont(const double* A, const double* b, int N, int P, const double* w, double rho, double y0,
                             double* x, double* y) {
    return run_scalar(N, P, [&]<int p>(const block_sizes& sizes) {
        return function_solve_vie1_cont_impl<p>({sizes.blocks(p + 1), A}, {sizes.components, b}, N, {p, w}, rho, y0,
                                                {sizes.components, x}, {sizes.steps + 1, y});
    });
}

int function_solve_vie1_cont_vec(const double* A, const double* b, int N, int P, int D, const double* w, double rho,
                                 const double* y0, double* x, double* y) {
    return run_vector(N, P, D, [&]<int p, int d>(const block_sizes& sizes) {
        return function_solve_vie1_cont_vec_impl<p, d>({sizes.blocks(p + 1), A}, {sizes.components, b}, N, {p, w}, rho,
                                                       {d, y0}, {sizes.components, x}, {(sizes.steps + 1) * d, y});
    });
}

int function_solve_vie2(const double* A, const double* b, int N, int P, double* x) {
    return run_scalar(N, P, [&]<int p>(const block_sizes& sizes) {
        return function_solve_vie2_impl<p>({sizes.blocks(p), A}, {sizes.components, b}, N, {sizes.components, x});
    });
}

int function_solve_vie2_vec(const double* A, const double* b, int N, int P, int D, double* x) {
    return run_vector(N, P, D, [&]<int p, int d>(const block_sizes& sizes) {
        return function_solve_vie2_vec_impl<p, d>({sizes.blocks(p), A}, {sizes.components, b}, N,
                                                  {sizes.components, x});
    });
}

int function_solve_vide(const double* A, const double* b, const double* C, const double* E, const double* w,
                        const double* h, double y0, int N, int P, double* x, double* y) {
    return run_scalar(N, P, [&]<int p>(const block_sizes& sizes) {
        return function_solve_vide_impl<p>({sizes.blocks(p + 1), A}, {sizes.components, b}, {sizes.points, C},
                                           {p * p, E}, {p, w}, {sizes.steps, h}, y0, N, {sizes.components, x},
                                           {sizes.steps + 1, y});
    });
}

int function_solve_vide_vec(const double* A, const double* b, const double* C, const double* E, const double* w,
                            const double* h, const double* y0, int N, int P, int D, double* x, double* y) {
    return run_vector(N, P, D, [&]<int p, int d>(const block_sizes& sizes) {
        return function_solve_vide_vec_impl<p, d>({sizes.blocks(p + 1), A}, {sizes.components, b},
                                                  {sizes.components * d, C}, {p * p, E}, {p, w}, {sizes.steps, h},
                                                  {d, y0}, N, {sizes.components, x}, {(sizes.steps + 1) * d, y});
    });
}
