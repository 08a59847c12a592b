// Wrong arguments of every export: the status, and that nothing is called, written or changed.
#include "quenta_equations.h"
#include "support/bits.hpp"
#include "support/fenced_array.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace quenta_tests {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN(), infinity = std::numeric_limits<double>::infinity();
constexpr double smallest = std::numeric_limits<double>::denorm_min(), least = std::numeric_limits<double>::min(),
                 largest = std::numeric_limits<double>::max();

int calls = 0;

template <int width>
int quarters(void*, int count, const double*, const double*, double* values) {
    ++calls;
    std::fill_n(values, width * count, 0.25);
    return 0;
}
constexpr quenta_function one = quarters<1>, two = quarters<2>, four = quarters<4>;

int progress(void*, int, int) {
    ++calls;
    return 0;
}

struct refused {
    std::string what;
    int status;
    std::function<int()> call;
};

class equation_refusals : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(quenta_equation_second_kind(2, two, nullptr, &second), 0);
        ASSERT_EQ(quenta_equation_add_memory(second, 2, 0.0, four, nullptr), 0);
        ASSERT_EQ(quenta_equation_first_kind(1, one, nullptr, &first), 0);
        ASSERT_EQ(quenta_equation_add_lag_memory(first, 1, 0.0, one, nullptr), 0);
        ASSERT_EQ(quenta_equation_integro_differential(2, two, nullptr, ones, &integro), 0);
        ASSERT_EQ(quenta_equation_second_kind(2, two, nullptr, &without_term), 0);
        ASSERT_EQ(quenta_equation_first_kind(1, one, nullptr, &first_without_term), 0);
        ASSERT_EQ(quenta_equation_second_kind(2, two, nullptr, &narrow), 0);
        ASSERT_EQ(quenta_equation_add_memory(narrow, 1, 0.0, two, nullptr), 0);
        for (quenta_equation* const equation : all())
            ASSERT_EQ(quenta_equation_set_progress(equation, progress, nullptr), 0);
        ASSERT_EQ(quenta_equation_solve(second, 1.0, 4, nullptr, 0, &solution), 0);
        ASSERT_EQ(quenta_equation_solve(integro, 1.0, 4, nullptr, 0, &integro_solution), 0);
        ASSERT_EQ(quenta_equation_solve(first, 1.0, 4, nullptr, 0, &scalar_solution), 0);
        calls = 0;
    }
    void TearDown() override {
        for (quenta_solution* const each : {solution, integro_solution, scalar_solution})
            quenta_solution_destroy(each);
        for (quenta_equation* const each : all())
            quenta_equation_destroy(each);
    }
    std::vector<quenta_equation*> all() const {
        return {second, first, integro, without_term, first_without_term, narrow};
    }

    void expect(const std::vector<refused>& requests) {
        for (const auto& [what, status, call] : requests) {
            SCOPED_TRACE(what);
            EXPECT_EQ(call(), status) << "got: " << quenta_equations_error_text(call());
            EXPECT_EQ(calls, 0) << "expected that no function is called";
            EXPECT_TRUE(new_equation == untouched_equation && new_solution == untouched_solution && room.untouched())
                << "expected that nothing is written";
        }
    }

    refused solve(std::string what, int status, const quenta_equation* of, double t_end, int steps,
                  const std::vector<double>& nodes, int P) {
        return {"solve: " + what, status, [=, this] {
                    return quenta_equation_solve(of, t_end, steps, nodes.empty() ? nullptr : nodes.data(), P,
                                                 &new_solution);
                }};
    }
    refused on_mesh(std::string what, int status, const quenta_equation* of, const std::vector<double>& mesh,
                    const std::vector<double>& nodes, int P) {
        return {"solve_on_mesh: " + what, status, [=, this] {
                    return quenta_equation_solve_on_mesh(of, mesh.empty() ? nullptr : mesh.data(), int(mesh.size()) - 1,
                                                         nodes.empty() ? nullptr : nodes.data(), P, &new_solution);
                }};
    }
    refused to_tolerance(std::string what, int status, const quenta_equation* of, double t_end, double rtol,
                         double atol, int max_steps, const std::vector<double>& nodes, int P) {
        return {"solve_to_tolerance: " + what, status, [=, this] {
                    return quenta_equation_solve_to_tolerance(of, t_end, rtol, atol, max_steps,
                                                              nodes.empty() ? nullptr : nodes.data(), P, &new_solution);
                }};
    }
    // What is wrong with the equation or the nodes is wrong in all three.
    void expect_of_each_solve(const std::string& what, int status, const quenta_equation* of,
                              const std::vector<double>& nodes = {}, int P = 0) {
        expect({solve(what, status, of, 1.0, 4, nodes, P), on_mesh(what, status, of, {0.0, 0.5, 1.0}, nodes, P),
                to_tolerance(what, status, of, 1.0, 1e-3, 0.0, 0, nodes, P)});
    }

    double ones[2] = {1.0, 1.0};
    quenta_equation *second = nullptr, *first = nullptr, *integro = nullptr, *without_term = nullptr,
                    *first_without_term = nullptr, *narrow = nullptr;
    quenta_solution *solution = nullptr, *integro_solution = nullptr, *scalar_solution = nullptr;

    quenta_equation* const untouched_equation = reinterpret_cast<quenta_equation*>(ones);
    quenta_solution* const untouched_solution = reinterpret_cast<quenta_solution*>(ones);
    quenta_equation* new_equation = untouched_equation;
    quenta_solution* new_solution = untouched_solution;
    fenced_array room{64};
};

TEST_F(equation_refusals, of_new_equations) {
    std::vector<refused> requests;
    for (const auto create : {quenta_equation_second_kind, quenta_equation_first_kind}) {
        requests.push_back({"null g", QUENTA_EQUATION_NULL_POINTER, [=, this] {
                                return create(1, nullptr, nullptr, &new_equation);
                            }});
        requests.push_back({"null equation", QUENTA_EQUATION_NULL_POINTER, [=] {
                                return create(1, one, nullptr, nullptr);
                            }});
        for (const int D : {0, -1, INT_MIN, 1001, INT_MAX})
            requests.push_back({"D", QUENTA_EQUATION_BAD_DIMENSION, [=, this] {
                                    return create(D, one, nullptr, &new_equation);
                                }});
    }
    const auto create = quenta_equation_integro_differential;
    requests.push_back({"null y0", QUENTA_EQUATION_NULL_POINTER, [=, this] {
                            return create(1, one, nullptr, nullptr, &new_equation);
                        }});
    requests.push_back({"null equation", QUENTA_EQUATION_NULL_POINTER, [=, this] {
                            return create(1, one, nullptr, ones, nullptr);
                        }});
    for (const int D : {0, -1, INT_MIN, 1001, INT_MAX})
        requests.push_back({"D", QUENTA_EQUATION_BAD_DIMENSION, [=, this] {
                                return create(D, one, nullptr, ones, &new_equation);
                            }});
    for (const double value : {nan, infinity, -infinity})
        requests.push_back({"y0", QUENTA_EQUATION_BAD_START, [=, this] {
                                const double y0[2] = {0.0, value};
                                return create(2, one, nullptr, y0, &new_equation);
                            }});
    expect(requests);
}

TEST_F(equation_refusals, of_changes_leave_the_equation_as_it_was) {
    std::vector<refused> requests;
    for (const auto add : {quenta_equation_add_memory, quenta_equation_add_lag_memory}) {
        requests.push_back({"null equation", QUENTA_EQUATION_NULL_POINTER, [=] {
                                return add(nullptr, 2, 0.0, one, nullptr);
                            }});
        requests.push_back({"null kernel", QUENTA_EQUATION_NULL_POINTER, [=, this] {
                                return add(second, 2, 0.0, nullptr, nullptr);
                            }});
        for (const int E : {0, -1, INT_MIN, 1001, INT_MAX})
            requests.push_back({"E", QUENTA_EQUATION_BAD_DIMENSION, [=, this] {
                                    return add(second, E, 0.0, one, nullptr);
                                }});
        for (const double alpha : {-0.5, -smallest, 1.0, 2.0, nan, infinity, -infinity})
            requests.push_back({"singularity", QUENTA_EQUATION_BAD_SINGULARITY, [=, this] {
                                    return add(second, 2, alpha, one, nullptr);
                                }});
    }
    requests.push_back({"delay: null equation", QUENTA_EQUATION_NULL_POINTER, [] {
                            return quenta_equation_add_delay(nullptr, 2, 1.0, four, nullptr);
                        }});
    for (const int E : {0, -1, INT_MIN, 1001, INT_MAX})
        requests.push_back({"delay: E", QUENTA_EQUATION_BAD_DIMENSION, [=, this] {
                                return quenta_equation_add_delay(second, E, 1.0, four, nullptr);
                            }});
    for (const double delay : {0.0, -0.0, -smallest, -1.0, nan, infinity, -infinity})
        requests.push_back({"delay", QUENTA_EQUATION_BAD_DELAY, [=, this] {
                                return quenta_equation_add_delay(second, 2, delay, four, nullptr);
                            }});
    requests.insert(requests.end(), {{"past: null equation", QUENTA_EQUATION_NULL_POINTER,
                                      [] {
                                          return quenta_equation_set_past(nullptr, two, nullptr);
                                      }},
                                     {"past: null", QUENTA_EQUATION_NULL_POINTER,
                                      [this] {
                                          return quenta_equation_set_past(second, nullptr, nullptr);
                                      }},
                                     {"phi: null equation", QUENTA_EQUATION_NULL_POINTER,
                                      [] {
                                          return quenta_equation_set_phi(nullptr, one, four, nullptr);
                                      }},
                                     {"phi: null", QUENTA_EQUATION_NULL_POINTER,
                                      [this] {
                                          return quenta_equation_set_phi(second, nullptr, four, nullptr);
                                      }},
                                     {"phi: no term", QUENTA_EQUATION_NO_TERM,
                                      [this] {
                                          return quenta_equation_set_phi(without_term, one, nullptr, nullptr);
                                      }},
                                     {"jacobian: null equation", QUENTA_EQUATION_NULL_POINTER,
                                      [] {
                                          return quenta_equation_set_jacobian(nullptr, four, nullptr);
                                      }},
                                     {"jacobian: null", QUENTA_EQUATION_NULL_POINTER,
                                      [this] {
                                          return quenta_equation_set_jacobian(integro, nullptr, nullptr);
                                      }},
                                     {"jacobian: second kind", QUENTA_EQUATION_WRONG_KIND,
                                      [this] {
                                          return quenta_equation_set_jacobian(second, four, nullptr);
                                      }},
                                     {"jacobian: first kind", QUENTA_EQUATION_WRONG_KIND,
                                      [this] {
                                          return quenta_equation_set_jacobian(first, four, nullptr);
                                      }},
                                     {"first guess: null equation", QUENTA_EQUATION_NULL_POINTER,
                                      [this] {
                                          return quenta_equation_set_first_guess(nullptr, ones);
                                      }},
                                     {"first guess: null", QUENTA_EQUATION_NULL_POINTER,
                                      [this] {
                                          return quenta_equation_set_first_guess(first, nullptr);
                                      }},
                                     {"progress: null equation", QUENTA_EQUATION_NULL_POINTER, [] {
                                          return quenta_equation_set_progress(nullptr, progress, nullptr);
                                      }}});
    for (const double value : {nan, infinity, -infinity})
        for (quenta_equation* const equation : {first, second, integro})
            requests.push_back({"first guess", QUENTA_EQUATION_BAD_START, [=] {
                                    const double y[2] = {value, value};
                                    return quenta_equation_set_first_guess(equation, y);
                                }});
    expect(requests);
    for (quenta_equation* const equation : {second, integro}) // these ignore it
        EXPECT_EQ(quenta_equation_set_first_guess(equation, ones), QUENTA_EQUATION_SOLVED);

    for (const auto& [equation, before] :
         {std::pair{second, solution}, {first, scalar_solution}, {integro, integro_solution}}) {
        quenta_solution* after = nullptr;
        ASSERT_EQ(quenta_equation_solve(equation, 1.0, 4, nullptr, 0, &after), 0);
        const std::size_t values = 5 * std::size_t(quenta_solution_dimension(after));
        EXPECT_TRUE(equal_bits(std::span{quenta_solution_values(before), values},
                               std::span{quenta_solution_values(after), values}));
        quenta_solution_destroy(after);
    }
}

TEST_F(equation_refusals, of_solves_with_null_pointers) {
    expect_of_each_solve("null equation", QUENTA_EQUATION_NULL_POINTER, nullptr);
    expect({on_mesh("null mesh", QUENTA_EQUATION_NULL_POINTER, second, {}, {}, 0)});
    new_solution = nullptr;
    const double mesh[] = {0.0, 1.0};
    EXPECT_EQ(quenta_equation_solve(second, 1.0, 4, nullptr, 0, nullptr), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(quenta_equation_solve_on_mesh(second, mesh, 1, nullptr, 0, nullptr), QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(quenta_equation_solve_to_tolerance(second, 1.0, 1e-3, 0.0, 0, nullptr, 0, nullptr),
              QUENTA_EQUATION_NULL_POINTER);
    EXPECT_EQ(calls, 0);
}

TEST_F(equation_refusals, of_numbers_of_steps) {
    for (const int steps : {0, -1, INT_MIN, 100'000'001, INT_MAX}) {
        expect({solve("steps", QUENTA_EQUATION_BAD_STEPS, second, 1.0, steps, {}, 0)});
        const double mesh[] = {0.0, 1.0};
        EXPECT_EQ(quenta_equation_solve_on_mesh(second, mesh, steps, nullptr, 0, &new_solution),
                  QUENTA_EQUATION_BAD_STEPS);
    }
    for (const int max_steps : {-1, INT_MIN, 1, 16, 63, 100'000'001, INT_MAX})
        expect({to_tolerance("max_steps", QUENTA_EQUATION_BAD_STEPS, second, 1.0, 1e-3, 0.0, max_steps, {}, 0)});
}

TEST_F(equation_refusals, of_ends_and_meshes) {
    for (const double t_end : {0.0, -0.0, -1.0, nan, infinity, -infinity, smallest, least, 3.9 * least})
        expect({solve("t_end " + std::to_string(t_end), QUENTA_EQUATION_BAD_END, second, t_end, 4, {}, 0),
                to_tolerance("t_end", QUENTA_EQUATION_BAD_END, second, t_end, 1e-3, 0.0, 0, {}, 0)});
    const std::vector<double> meshes[] = {
        {0.1, 1.0},           {smallest, 1.0},           {-1.0, 1.0},          {nan, 1.0},  {0.0, 0.0},
        {0.0, 1.0, 1.0},      {0.0, 1.0, 0.5},           {0.0, 0.5, nan, 1.0}, {0.0, nan},  {0.0, infinity},
        {0.0, 1.0, infinity}, {0.0, infinity, infinity}, {0.0, -infinity},     {0.0, -1.0}, {0.0, smallest},
        {0.0, 0.99 * least},  {0.0, least, 1.5 * least}};
    for (const std::vector<double>& mesh : meshes)
        expect({on_mesh(testing::PrintToString(mesh), QUENTA_EQUATION_BAD_MESH, second, mesh, {}, 0)});
}

TEST_F(equation_refusals, of_nodes) {
    for (quenta_equation* const equation : {second, first, integro}) {
        for (const int P : {-1, INT_MIN, 6, INT_MAX}) {
            expect_of_each_solve("P without nodes", QUENTA_EQUATION_BAD_NODES, equation, {}, P);
            expect_of_each_solve("P", QUENTA_EQUATION_BAD_NODES, equation, {0.1, 0.2, 0.4, 0.6, 0.8, 1.0}, P);
        }
        expect_of_each_solve("P = 0 with nodes", QUENTA_EQUATION_BAD_NODES, equation, {0.5, 1.0}, 0);
        const std::vector<double> wrong[] = {
            {-smallest, 1.0}, {-0.1},          {0.5, 1.0 + 1e-15}, {1.1},      {nan},      {0.5, nan},
            {nan, 0.5},       {0.2, nan, 1.0}, {infinity},         {1.0, 0.5}, {0.5, 0.5}, {0.2, 0.6, 0.5, 1.0}};
        for (const std::vector<double>& nodes : wrong)
            expect_of_each_solve("nodes " + testing::PrintToString(nodes), QUENTA_EQUATION_BAD_NODES, equation, nodes,
                                 int(nodes.size()));
    }
    // The product of (1 - c) / c is infinite, or 1.22, 1.02 and 1.04.
    const std::vector<double> unstable[] = {{0.0, 1.0}, {0.0, 0.5}, {smallest}, {0.45}, {0.495}, {0.2, 0.5, 0.794}};
    for (const std::vector<double>& nodes : unstable)
        expect_of_each_solve("unstable " + testing::PrintToString(nodes), QUENTA_EQUATION_UNSTABLE_NODES, first, nodes,
                             int(nodes.size()));
    for (const std::vector<double>& stable : {std::vector{0.1, 0.8, 0.9}, {0.5}, {0.505}, {1.0}}) {
        ASSERT_EQ(quenta_equation_solve(first, 1.0, 4, stable.data(), int(stable.size()), &new_solution), 0);
        quenta_solution_destroy(new_solution);
    }
}

TEST_F(equation_refusals, of_equations_that_are_not_complete) {
    expect_of_each_solve("no term", QUENTA_EQUATION_NO_TERM, first_without_term);
    expect_of_each_solve("E = 1, D = 2", QUENTA_EQUATION_COLUMNS_NEED_PHI, narrow);
    for (quenta_equation* const equation : {without_term, integro}) { // these kinds may have no term
        ASSERT_EQ(quenta_equation_solve(equation, 1.0, 4, nullptr, 0, &new_solution), 0);
        quenta_solution_destroy(new_solution);
    }
}

TEST_F(equation_refusals, of_equations_with_delay_terms_that_are_not_complete) {
    ASSERT_EQ(quenta_equation_add_delay(first_without_term, 1, 1.0, one, nullptr), 0);
    expect_of_each_solve("first kind without an integral", QUENTA_EQUATION_NO_TERM, first_without_term);
    ASSERT_EQ(quenta_equation_add_delay(without_term, 1, 1.0, two, nullptr), 0);
    expect_of_each_solve("E = 1, D = 2", QUENTA_EQUATION_COLUMNS_NEED_PHI, without_term);
    ASSERT_EQ(quenta_equation_set_phi(without_term, one, nullptr, nullptr), 0); // of the delay term
    ASSERT_EQ(quenta_equation_solve(without_term, 1.0, 4, nullptr, 0, &new_solution), 0);
    quenta_solution_destroy(new_solution);
    new_solution = untouched_solution;
    calls = 0;
    ASSERT_EQ(quenta_equation_add_delay(integro, 1, 1.0, nullptr, nullptr), 0);
    ASSERT_EQ(quenta_equation_set_phi(integro, one, nullptr, nullptr), 0);
    expect_of_each_solve("E = 1, D = 2, no weight", QUENTA_EQUATION_COLUMNS_NEED_PHI, integro);
}

TEST_F(equation_refusals, of_steps_that_are_longer_than_a_delay) {
    ASSERT_EQ(quenta_equation_add_delay(second, 2, 0.7, four, nullptr), 0);
    ASSERT_EQ(quenta_equation_add_delay(second, 2, 0.25, four, nullptr), 0);
    expect({on_mesh("0.3", QUENTA_EQUATION_STEPS_ABOVE_DELAY, second, {0.0, 0.2, 0.5, 0.75, 1.0}, {}, 0),
            on_mesh("0.25 + 1e-9", QUENTA_EQUATION_STEPS_ABOVE_DELAY, second, {0.0, 0.25 + 1e-9, 0.5, 0.75}, {}, 0)});
    const double mesh[] = {0.0, 0.25, 0.5 + 1e-15, 0.75};
    ASSERT_EQ(quenta_equation_solve_on_mesh(second, mesh, 3, nullptr, 0, &new_solution), 0);
    quenta_solution_destroy(new_solution);
    new_solution = untouched_solution;
    calls = 0;
    // The numbers of steps, and of sums of both delays. To a tolerance, each piece needs 8 steps.
    expect({solve("too many steps", QUENTA_EQUATION_STEPS_ABOVE_DELAY, second, 0.251e8, 4, {}, 0),
            to_tolerance("512 pieces", QUENTA_EQUATION_STEPS_ABOVE_DELAY, second, 150.0, 1e-3, 0.0, 4096, {}, 0),
            to_tolerance("6 pieces of 10 steps", QUENTA_EQUATION_STEPS_ABOVE_DELAY, second, 1.0, 1e-3, 0.0, 64, {}, 0),
            to_tolerance("sums", QUENTA_EQUATION_STEPS_ABOVE_DELAY, second, 30.0, 1e-3, 0.0, 1000, {}, 0),
            solve("t_end", QUENTA_EQUATION_BAD_END, second, least * 0x1p46, 4, {}, 0)});
}

TEST_F(equation_refusals, of_tolerances) {
    const std::pair<double, double> wrong[] = {{0.0, 0.0},  {-0.0, 0.0},      {-1e-6, 1e-6},     {1e-6, -1e-6},
                                               {nan, 1e-6}, {1e-6, nan},      {infinity, 1e-6},  {1e-6, infinity},
                                               {nan, nan},  {-infinity, 1.0}, {-smallest, 1e-6}, {infinity, infinity}};
    for (const auto& [rtol, atol] : wrong)
        expect({to_tolerance(std::to_string(rtol) + ", " + std::to_string(atol), QUENTA_EQUATION_BAD_TOLERANCE, second,
                             1.0, rtol, atol, 0, {}, 0)});
    // Their sum would overflow.
    ASSERT_EQ(quenta_equation_solve_to_tolerance(second, 1.0, largest, largest, 0, nullptr, 0, &new_solution), 0);
    quenta_solution_destroy(new_solution);
}

TEST_F(equation_refusals, of_families_of_nodes) {
    EXPECT_EQ(quenta_equation_nodes(QUENTA_RADAU, 3, nullptr), QUENTA_EQUATION_NULL_POINTER);
    std::vector<refused> requests;
    for (const auto& [family, P] : {std::pair{-1, 3},
                                    {3, 3},
                                    {INT_MIN, 3},
                                    {INT_MAX, 3},
                                    {QUENTA_RADAU, 0}, //
                                    {QUENTA_RADAU, 6},
                                    {QUENTA_GAUSS, -1},
                                    {QUENTA_GAUSS, 6},
                                    {QUENTA_LOBATTO, 1},
                                    {QUENTA_LOBATTO, 6},
                                    {QUENTA_LOBATTO, INT_MIN}})
        requests.push_back({"family " + std::to_string(family) + ", P " + std::to_string(P), QUENTA_EQUATION_BAD_NODES,
                            [=, this, family = family, P = P] {
                                return quenta_equation_nodes(family, P, room.data());
                            }});
    expect(requests);
}

TEST_F(equation_refusals, of_times) {
    using evaluator = std::function<int(const quenta_solution*, int, const double*, double*)>;
    const evaluator iterate = [this](const quenta_solution* of, int count, const double* t, double* y) {
        return quenta_solution_iterate(of, second, count, t, y);
    };
    const double inside[] = {0.0, 0.5, 1.0};
    quenta_solution* empty = nullptr; // its first step failed
    const auto stop = [](void*, int, const double*, const double*, double*) {
        return 1;
    };
    quenta_equation* stopping = nullptr;
    ASSERT_EQ(quenta_equation_second_kind(2, stop, nullptr, &stopping), 0);
    ASSERT_EQ(quenta_equation_solve(stopping, 1.0, 4, nullptr, 0, &empty), QUENTA_EQUATION_STOPPED);
    EXPECT_EQ(quenta_solution_steps(empty), 0);

    for (const evaluator& evaluate :
         {evaluator{quenta_solution_evaluate}, evaluator{quenta_solution_derivative}, iterate}) {
        std::vector<refused> requests{{"null solution", QUENTA_EQUATION_NULL_POINTER,
                                       [&] {
                                           return evaluate(nullptr, 3, inside, room.data());
                                       }},
                                      {"null t", QUENTA_EQUATION_NULL_POINTER,
                                       [&] {
                                           return evaluate(solution, 3, nullptr, room.data());
                                       }},
                                      {"null y", QUENTA_EQUATION_NULL_POINTER,
                                       [&] {
                                           return evaluate(solution, 3, inside, nullptr);
                                       }},
                                      {"count", QUENTA_EQUATION_BAD_COUNT,
                                       [&] {
                                           return evaluate(solution, -1, inside, room.data());
                                       }},
                                      {"count", QUENTA_EQUATION_BAD_COUNT,
                                       [&] {
                                           return evaluate(solution, INT_MIN, nullptr, nullptr);
                                       }},
                                      {"no step", QUENTA_EQUATION_BAD_TIME, [&] {
                                           return evaluate(empty, 1, inside, room.data());
                                       }}};
        for (const double t : {-smallest, -1.0, 1.0 + 1e-15, infinity, -infinity, nan})
            requests.push_back({"t = " + std::to_string(t), QUENTA_EQUATION_BAD_TIME, [&, t] {
                                    const double times[] = {0.5, t, 0.5};
                                    return evaluate(solution, 3, times, room.data());
                                }});
        expect(requests);
        EXPECT_EQ(evaluate(solution, 0, nullptr, nullptr), 0);
        EXPECT_EQ(evaluate(empty, 0, nullptr, nullptr), 0);
    }
    quenta_solution_destroy(empty);
    quenta_equation_destroy(stopping);
}

TEST_F(equation_refusals, of_iterated_solutions_of_other_equations) {
    const double t = 0.5;
    const auto iterate = [&](const char* what, int status, quenta_solution* of, quenta_equation* equation) {
        expect({{what, status, [&, of, equation] {
                     return quenta_solution_iterate(of, equation, 1, &t, room.data());
                 }}});
    };
    iterate("null equation", QUENTA_EQUATION_NULL_POINTER, solution, nullptr);
    iterate("first kind", QUENTA_EQUATION_WRONG_KIND, scalar_solution, first);
    iterate("integro-differential", QUENTA_EQUATION_WRONG_KIND, integro_solution, integro);
    iterate("solution of another kind", QUENTA_EQUATION_WRONG_KIND, integro_solution, second);
    iterate("solution of the first kind", QUENTA_EQUATION_WRONG_KIND, scalar_solution, second);
    quenta_equation* scalar = nullptr;
    ASSERT_EQ(quenta_equation_second_kind(1, one, nullptr, &scalar), 0);
    iterate("another D", QUENTA_EQUATION_WRONG_KIND, solution, scalar);
    quenta_equation_destroy(scalar);
    iterate("E = 1, D = 2", QUENTA_EQUATION_COLUMNS_NEED_PHI, solution, narrow);
}

TEST(null_objects, have_no_steps_and_no_arrays_and_may_be_destroyed) {
    EXPECT_EQ(quenta_solution_steps(nullptr), 0);
    EXPECT_EQ(quenta_solution_dimension(nullptr), 0);
    EXPECT_EQ(quenta_solution_mesh(nullptr), nullptr);
    EXPECT_EQ(quenta_solution_values(nullptr), nullptr);
    EXPECT_EQ(quenta_solution_error(nullptr), nullptr);
    quenta_solution_destroy(nullptr);
    quenta_equation_destroy(nullptr);
}

TEST(error_text, of_each_status_is_a_sentence_of_its_own_that_says_what_was_expected) {
    const std::string unknown = quenta_equations_error_text(-1);
    for (const int status : {INT_MIN, 7, 28, 1000, INT_MAX})
        EXPECT_EQ(quenta_equations_error_text(status), unknown);
    std::set<std::string> texts{unknown};
    int statuses = 0;
    for (int status = QUENTA_EQUATION_SOLVED; status <= QUENTA_EQUATION_STEPS_ABOVE_DELAY; ++status) {
        if (status == 7) // is not used
            continue;
        const std::string text = quenta_equations_error_text(status);
        EXPECT_TRUE(texts.insert(text).second) << text;
        EXPECT_EQ(text.starts_with("expected "), status >= QUENTA_EQUATION_NULL_POINTER) << text;
        ++statuses;
    }
    EXPECT_EQ(statuses, 27);
}

TEST(limits, are_those_that_the_solvers_check) {
    EXPECT_EQ(quenta_equation_max_dimension(), 1000);
    EXPECT_EQ(quenta_equation_max_nodes(), 5);
    quenta_equation* equation = nullptr;
    EXPECT_EQ(quenta_equation_second_kind(1000, one, nullptr, &equation), 0);
    EXPECT_EQ(quenta_equation_add_memory(equation, 1000, 0.0, one, nullptr), 0);
    quenta_equation_destroy(equation);
}

} // namespace

} // namespace quenta_tests
