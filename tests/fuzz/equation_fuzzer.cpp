// Solves equations of every shape, with polynomial functions of any coefficients, and checks what holds for every
// solve: the status, the sizes, finite numbers, the collocation equations, and evaluation at any time.
#include "equations/collocation_residual.hpp"
#include "fuzz/fuzz_input.hpp"

using namespace quenta_tests;

namespace {

// Coefficients for polynomial_equation: numbers of any bits, or moderate ones.
struct coefficients {
    fuzz_input& input;
    bool any_bits;

    std::vector<double> uniform(std::size_t count, double lowest, double highest) {
        std::vector<double> values = input.reals(count);
        for (double& value : values)
            if (!any_bits && !(std::fabs(value) <= 1.0))
                value = 0.5;
            else
                value *= std::max(-lowest, highest);
        return values;
    }
};

equation_shape read_shape(fuzz_input& input) {
    const int flags = input.below(4);
    equation_shape shape{"12D"[input.below(3)], 1 + input.below(3), (flags & 1) != 0, (flags & 2) != 0, {}};
    for (int terms = input.below(4); terms > 0; --terms) {
        const int kind = input.below(16);
        term_shape term{shape.D, (kind & 1) != 0, (kind & 2) != 0, (kind & 4) != 0};
        if ((kind & 8) != 0)
            term.alpha = input.below(1000) / 1000.0;
        if (term.has_phi)
            term.E = 1 + input.below(4);
        shape.terms.push_back(term);
    }
    return shape;
}

// A delay of any bits, or a moderate one. False: it is refused.
bool add_delay(fuzz_input& input, bool any_bits, const polynomial_equation& equation) {
    const double number = input.reals(1)[0], delay = any_bits ? number : std::fabs(std::fmod(number, 2.0));
    return quenta_equation_add_delay(equation.get(), equation.shape.D, delay, nullptr, nullptr) == 0;
}

// Any numbers, or nodes of a family.
std::vector<double> read_nodes(fuzz_input& input) {
    std::vector<double> nodes(std::size_t(1 + input.below(5)));
    const int family = input.below(5);
    if (quenta_equation_nodes(family, int(nodes.size()), nodes.data()) != QUENTA_EQUATION_SOLVED)
        for (double& node : nodes)
            node = family == 3 ? input.below(1001) / 1000.0 : input.real();
    if (family == 3)
        std::sort(nodes.begin(), nodes.end());
    return nodes;
}

std::vector<double> read_mesh(fuzz_input& input) {
    std::vector<double> mesh{0.0};
    const int steps = 1 + input.below(20), kind = input.below(3);
    for (int n = 0; n < steps; ++n)
        mesh.push_back(kind == 0   ? mesh.back() + (1 + input.below(1000)) / 2000.0
                       : kind == 1 ? mesh.back() + std::ldexp(1.0, -input.below(40))
                                   : input.real());
    return mesh;
}

void expect_finite(std::span<const double> values) {
    for (const double value : values)
        EXPECT_TRUE(std::isfinite(value)) << value;
}

// The solution can be evaluated at all times in it and at no others.
void expect_evaluation(const quenta_solution& solution, fuzz_input& input) {
    const int steps = quenta_solution_steps(&solution);
    const double end = quenta_solution_mesh(&solution)[steps];
    const std::vector<double> fractions = input.reals(8);
    std::vector<double> y(std::size_t(solution.D));
    for (const double fraction : fractions)
        for (const auto evaluate : {quenta_solution_evaluate, quenta_solution_derivative}) {
            const double t = fraction * end;
            EXPECT_EQ(evaluate(&solution, 1, &t, y.data()) == QUENTA_EQUATION_SOLVED,
                      steps > 0 && t >= 0.0 && t <= end);
        }
}

void expect_iterated(const polynomial_equation& equation, const quenta_solution& solution) {
    const double t[] = {0.0, solution.mesh[std::size_t(solution.steps)]};
    std::vector<double> y(std::size_t(2 * solution.D), 0.25);
    const int status = quenta_solution_iterate(&solution, equation.get(), 2, t, y.data());
    EXPECT_EQ(status, solution.steps == 0          ? QUENTA_EQUATION_BAD_TIME
                      : equation.shape.kind != '2' ? QUENTA_EQUATION_WRONG_KIND
                      : y[0] == 0.25               ? QUENTA_EQUATION_NOT_FINITE
                                                   : QUENTA_EQUATION_SOLVED);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz_input input{data, size};
    const equation_shape shape = read_shape(input);
    const std::vector<double> nodes = read_nodes(input), mesh = read_mesh(input);
    const bool to_tolerance = input.below(8) == 0;
    const int choices = input.below(8); // half of the equations have a delay term
    coefficients source{input, choices % 2 == 1};
    const polynomial_equation equation{source, shape, 0.5};
    const bool has_delay = choices >= 4 && add_delay(input, choices >= 6, equation);

    quenta_solution* made = nullptr;
    const int status = to_tolerance ? quenta_equation_solve_to_tolerance(equation.get(), mesh.back(), 1e-3, 1e-3, 64,
                                                                         nodes.data(), int(nodes.size()), &made)
                                    : quenta_equation_solve_on_mesh(equation.get(), mesh.data(), int(mesh.size()) - 1,
                                                                    nodes.data(), int(nodes.size()), &made);
    const owned_solution solution{made};
    EXPECT_EQ(made != nullptr, status <= QUENTA_EQUATION_TOLERANCE_MISSED) << status;
    EXPECT_NE(status, QUENTA_EQUATION_STOPPED);
    EXPECT_STRNE(quenta_equations_error_text(status), "unknown status");
    if (made == nullptr)
        return 0;
    const int steps = quenta_solution_steps(made), intended = int(made->mesh.size()) - 1;
    EXPECT_EQ(quenta_solution_dimension(made), shape.D);
    EXPECT_LE(steps, intended);
    EXPECT_EQ(steps == intended, status == QUENTA_EQUATION_SOLVED || status == QUENTA_EQUATION_TOLERANCE_MISSED);
    if (steps > 0) {
        expect_finite({quenta_solution_mesh(made), std::size_t(steps) + 1});
        expect_finite({quenta_solution_values(made), std::size_t((steps + 1) * shape.D)});
        expect_finite({made->unknowns.data(), std::size_t(steps * made->nodes.P * shape.D)});
    }
    // Not for sums that may overflow, nor for more steps than plain loops can check in time.
    if (!has_delay && !source.any_bits && mesh.back() <= 100.0 && steps <= 24)
        expect_collocation_equations(equation, *made, 1e-9);
    expect_evaluation(*made, input);
    expect_iterated(equation, *made);
    return 0;
}
