#include "quenta_equations/memory_history.hpp"

#include <algorithm>
#include <cmath>

namespace quenta {

namespace {

constexpr std::int64_t largest_block = 1024; // doubles; larger ones are summed directly
constexpr std::int64_t least_tree_steps = 256;
constexpr int steps_of_look = 64;
constexpr double acceptable_error = 1e-10; // of the largest sum since the last look

bool has_fast_sums(const quenta_equation& equation, std::int64_t P) {
    const std::int64_t block = P * equation.D * P * equation.columns_of_lag();
    return block > 0 && block <= largest_block;
}

std::optional<toeplitz_memory> transforms(const quenta_equation& equation, const quenta_solution& solution) {
    std::optional<toeplitz_memory> fast;
    const std::int64_t steps = std::int64_t(solution.mesh.size()) - 1, first = first_of_equal_steps(solution.mesh);
    if (has_fast_sums(equation, solution.nodes.P) && toeplitz_memory::pays(equation, solution.nodes, steps - first)) {
        fast.emplace(equation, solution, first);
        if (!fast->is_finite())
            fast.reset();
    }
    return fast;
}

std::optional<tree_memory> cells(const quenta_equation& equation, const quenta_solution& solution,
                                 std::int64_t source_steps, accurate_sums accurate) {
    std::optional<tree_memory> tree;
    const std::int64_t steps = std::int64_t(solution.mesh.size()) - 1, P = solution.nodes.P;
    if (has_fast_sums(equation, P) && source_steps > 0 && steps >= least_tree_steps)
        tree.emplace(equation, solution, source_steps, direct_history::steps_of_group(equation, P),
                     accurate == accurate_sums::all);
    return tree;
}

} // namespace

memory_history::memory_history(const quenta_equation& of, const quenta_solution& solution, accurate_sums wanted)
    : equation{of}, D{of.D}, accurate{wanted}, fast{accurate == accurate_sums::large ? transforms(of, solution)
                                                                                     : std::nullopt},
      first_fast{fast ? first_of_equal_steps(solution.mesh) : std::int64_t(solution.mesh.size()) - 1},
      tree{cells(of, solution, first_fast, accurate)}, direct(of, solution, first_fast, tree ? &*tree : nullptr),
      sums(std::int64_t{solution.nodes.P} * D), largest(D) {}

const double* memory_history::sums_of_step(std::int64_t n) {
    const double* const of_direct = direct.sums_of_step(n);
    if (!fast && !tree)
        return of_direct;
    std::copy_n(of_direct, sums.size(), sums.data());
    const auto add = [&](const double* others) {
        for (std::size_t R = 0; R < sums.size(); ++R)
            sums[R] += others[R];
    };
    if (tree)
        add(tree->sums_of_step(n));
    if (n >= first_fast)
        add(fast->sums_of_step(n - first_fast));
    if (accurate == accurate_sums::large)
        look_for_lost_digits();
    return sums.data();
}

void memory_history::look_for_lost_digits() {
    for (std::size_t R = 0; R < sums.size(); ++R)
        largest[R % D] = std::max(largest[R % D], std::fabs(sums[R]));
    if (++steps_not_seen < steps_of_look)
        return;
    for (int a = 0; a < D; ++a)
        lost_digits |= (tree ? tree->error(a) : 0.0) + (fast ? fast->error(a) : 0.0) > acceptable_error * largest[a];
    std::fill(largest.begin(), largest.end(), 0.0);
    steps_not_seen = 0;
}

void memory_history::add_step(std::int64_t n, std::size_t r, const double* phi) {
    if (is_fast(n, r))
        return fast->add_step(r, phi);
    direct.add_step(n, r, phi);
    if (tree && equation.memory[r].of_lag)
        tree->add_step(n, r, phi);
}

} // namespace quenta
