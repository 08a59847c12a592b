// Equations with known solutions: the orders of the schemes, on uniform, graded and random meshes.
#include "equations/chosen_solutions.hpp"
#include "equations/problems.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace quenta_test;

std::vector<double> mesh_of(const std::string& kind, double t_end, int steps) {
    std::vector<double> mesh;
    std::mt19937 generator(20);
    for (int n = 0; n <= steps; ++n) {
        const double x = double(n) / steps, moved = double(generator() % 1000) / 1000.0 - 0.5;
        mesh.push_back(kind == "graded"                         ? t_end * std::pow(x, 1.5)
                       : kind == "random" && n > 0 && n < steps ? t_end * (x + 0.6 * moved / steps)
                                                                : t_end * x);
    }
    mesh.back() = t_end;
    return mesh;
}

std::vector<double> halved(const std::vector<double>& mesh) {
    std::vector<double> result{0.0};
    for (std::size_t n = 1; n < mesh.size(); ++n) {
        result.push_back((mesh[n - 1] + mesh[n]) / 2);
        result.push_back(mesh[n]);
    }
    return result;
}

// The largest errors: at the mesh points, between them, of the derivative, and of the iterated solution at the mesh
// points and between them (0 unless the equation is of the second kind).
struct errors {
    double at_mesh = 0.0, between = 0.0, slope = 0.0, iterated_at_mesh = 0.0, iterated_between = 0.0;
};

double distance(const std::vector<double>& expected, const double* got) {
    double largest = 0.0;
    for (std::size_t a = 0; a < expected.size(); ++a)
        largest = std::max(largest, std::fabs(got[a] - expected[a]));
    return largest;
}

errors errors_of(const equation_problem& problem, const std::vector<double>& mesh, int family, int P) {
    const quenta::solution y = problem.equation.solve(problem.t_end, quenta::on_mesh(mesh).nodes(family, P));
    errors result;
    const std::size_t D = std::size_t(y.dimension());
    for (std::size_t n = 0; n < mesh.size(); ++n)
        result.at_mesh = std::max(result.at_mesh, distance(problem.exact(mesh[n]), y.values().data() + n * D));
    std::vector<double> inside, some_of_mesh{mesh.back()};
    for (std::size_t n = 0; n + 1 < mesh.size(); ++n)
        for (const double x : {0.05, 0.3, 0.55, 0.9})
            inside.push_back(mesh[n] + x * (mesh[n + 1] - mesh[n]));
    for (const double t : inside) {
        result.between = std::max(result.between, distance(problem.exact(t), y.at(t).data()));
        result.slope = std::max(result.slope, distance(problem.slope(t), y.derivative_at(t).data()));
    }
    if (problem.kind != '2')
        return result;
    const auto error_of_iterated = [&](const std::vector<double>& times) {
        double largest = 0.0;
        const std::vector<double> iterated = problem.equation.iterate(y, times);
        for (std::size_t p = 0; p < times.size(); ++p)
            largest = std::max(largest, distance(problem.exact(times[p]), iterated.data() + p * D));
        return largest;
    };
    result.iterated_at_mesh = error_of_iterated(mesh);
    inside.resize(std::size_t(1) + inside.size() / 8);
    result.iterated_between = error_of_iterated(inside);
    return result;
}

std::string name_of(int family) {
    return family == QUENTA_RADAU ? "Radau" : family == QUENTA_GAUSS ? "Gauss" : "Lobatto";
}

// Equations of the first kind and stiff ones have the order P everywhere.
bool has_order_P(const equation_problem& problem) {
    return problem.kind == '1' || problem.stiff;
}

using order_case = std::tuple<std::size_t, int, std::string>;
class every_problem : public testing::TestWithParam<order_case> {};

// Gauss and Lobatto have lower orders for first-kind and stiff equations, or are refused.
std::vector<order_case> order_cases() {
    std::vector<order_case> cases;
    for (std::size_t problem = 0; problem < all_problems().size(); ++problem)
        for (const int family : {QUENTA_RADAU, QUENTA_GAUSS, QUENTA_LOBATTO})
            for (const char* mesh : {"uniform", "graded", "random"})
                if (family == QUENTA_RADAU || !has_order_P(all_problems()[problem]))
                    cases.emplace_back(problem, family, mesh);
    return cases;
}

std::string name_of_case(const testing::TestParamInfo<order_case>& info) {
    const auto& [problem, family, mesh] = info.param;
    return all_problems()[problem].name + "_" + name_of(family) + "_" + mesh;
}

INSTANTIATE_TEST_SUITE_P(equations, every_problem, testing::ValuesIn(order_cases()), name_of_case);

// The errors of two meshes, the second with four times as many steps.
void expect_order(double coarse, double fine, int order, const char* what, int P) {
    EXPECT_LT(fine, 2.0 * coarse * std::pow(4.0, -order) + 2e-11)
        << what << ", P = " << P << ": order " << std::log2(coarse / fine) / 2.0 << " instead of " << order;
}

TEST_P(every_problem, is_approximated_with_the_order_of_the_scheme) {
    const auto& [index, family, mesh_kind] = GetParam();
    const equation_problem& problem = all_problems()[index];
    for (int P = 2; P <= 4; ++P) {
        const std::vector<double> mesh = mesh_of(mesh_kind, problem.t_end, problem.name == "D4" ? 72 : 24);
        const errors coarse = errors_of(problem, mesh, family, P);
        const errors fine = errors_of(problem, halved(halved(mesh)), family, P);
        const int highest = has_order_P(problem)     ? P
                            : family == QUENTA_RADAU ? 2 * P - 1
                            : family == QUENTA_GAUSS ? 2 * P
                                                     : 2 * P - 2;
        const int at_mesh = problem.kind == '2' && family == QUENTA_GAUSS ? P : highest;
        const int between = problem.kind == 'D' ? std::min(P + 1, at_mesh) : P;
        expect_order(coarse.at_mesh, fine.at_mesh, at_mesh, "at the mesh points", P);
        expect_order(coarse.between, fine.between, between, "between them", P);
        expect_order(coarse.slope, fine.slope, problem.kind == 'D' ? P : P - 1, "of the derivative", P);
        if (problem.stiff)
            continue;
        expect_order(coarse.iterated_at_mesh, fine.iterated_at_mesh, highest, "iterated, at the mesh points", P);
        expect_order(coarse.iterated_between, fine.iterated_between, std::min(P + 1, highest), "iterated, between", P);
    }
}

class every_closed_form : public testing::TestWithParam<std::size_t> {
protected:
    const equation_problem problem = closed_forms().at(GetParam());
};

INSTANTIATE_TEST_SUITE_P(equations, every_closed_form, testing::Range<std::size_t>(0, closed_forms().size()),
                         [](const auto& problem) { return closed_forms()[problem.param].name; });

TEST_P(every_closed_form, is_solved_to_a_tolerance) {
    for (const double tolerance : {1e-3, 1e-6, 1e-9}) {
        const quenta::solution y = problem.equation.solve(problem.t_end, quenta::to_tolerance(tolerance, tolerance));
        for (int k = 0; k <= 1000; ++k) {
            const double t = problem.t_end * k / 1000;
            const std::vector<double> expected = problem.exact(t), got = y.at(t);
            for (std::size_t a = 0; a < expected.size(); ++a)
                EXPECT_NEAR(got[a], expected[a], tolerance * (1.0 + std::fabs(expected[a]))) << "t = " << t;
        }
    }
}

TEST(equation_solver, solves_D1_to_13_digits) {
    const std::vector<equation_problem> all = closed_forms();
    const auto D1 = std::find_if(all.begin(), all.end(), [](const auto& problem) { return problem.name == "D1"; });
    ASSERT_NE(D1, all.end());
    const quenta::solution y = D1->equation.solve(20.0, quenta::equal_steps(1000).nodes(QUENTA_RADAU, 5));
    for (int k = 0; k <= 1000; ++k) {
        const double t = 20.0 * k / 1000, expected = D1->exact(t)[0];
        EXPECT_NEAR(y(t), expected, 1e-13 * expected) << "t = " << t;
    }
}

} // namespace
