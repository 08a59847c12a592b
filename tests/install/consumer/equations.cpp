// A host of quenta_equations in C++20, with nothing but the installed headers and library.
#include <quenta_equations.hpp>

#include <cmath>
#include <cstdio>

int main() {
    // The solution is exp(-t).
    auto equation = quenta::second_kind([](double t) { return std::exp(-t) - t * t; });
    equation.memory([](double t, double s) { return t * std::exp(s); });
    const auto y = equation.solve(2.0, quenta::to_tolerance(1e-8));
    try {
        y(3.0);
    } catch (const quenta::equation_error& error) {
        return std::fabs(y(1.5) - std::exp(-1.5)) <= 1e-8 ? 0 : 1;
    }
    std::puts("expected an exception for a time past the end, got none");
    return 1;
}
