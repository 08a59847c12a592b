#include "quenta_equations/memory_history.hpp"

namespace quenta {

namespace {

std::optional<toeplitz_memory> fast_memory(const quenta_equation& equation, const quenta_solution& solution) {
    std::optional<toeplitz_memory> fast;
    if (toeplitz_memory::pays(equation, solution)) {
        fast.emplace(equation, solution);
        if (!fast->is_finite())
            fast.reset();
    }
    return fast;
}

} // namespace

memory_history::memory_history(const quenta_equation& of, const quenta_solution& solution)
    : equation{of}, fast{fast_memory(of, solution)}, direct(of, solution, !fast),
      sums(std::int64_t{solution.nodes.P} * of.D) {}

const double* memory_history::sums_of_step(std::int64_t n) {
    const double* const of_direct = direct.sums_of_step(n);
    if (!fast)
        return of_direct;
    const double* const of_fast = fast->sums_of_step(n);
    for (std::size_t R = 0; R < sums.size(); ++R)
        sums[R] = of_direct[R] + of_fast[R];
    return sums.data();
}

} // namespace quenta
