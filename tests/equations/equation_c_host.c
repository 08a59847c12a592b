/* A host in C89 needs only the header and the library. The same file is also compiled as C++. */
#include "quenta_equations.h"

#include <math.h>
#include <stdio.h>

static int failures = 0;

static void check(int condition, const char* promise) {
    if (!condition) {
        printf("broken promise: %s\n", promise);
        ++failures;
    }
}

static void check_near(double actual, double expected, double tolerance, const char* promise) {
    check(fabs(actual - expected) <= tolerance, promise);
}

/* y(t) = exp(-t) - t^2 + integral of t exp(s) y(s), so y = exp(-t). */
static int forcing(void* context, int count, const double* t, const double* x, double* values) {
    int p;
    check(x == 0, "a forcing is a function of t");
    ++*(int*)context;
    for (p = 0; p < count; ++p)
        values[p] = exp(-t[p]) - t[p] * t[p];
    return 0;
}

static int kernel(void* context, int count, const double* t, const double* s, double* values) {
    int p;
    ++*(int*)context;
    for (p = 0; p < count; ++p)
        values[p] = t[p] * exp(s[p]);
    return 0;
}

static void check_second_kind(void) {
    const double t[] = {0.0, 0.7, 2.0};
    double y[3];
    int calls = 0, k;
    quenta_equation* equation = 0;
    quenta_solution* solution = 0;
    check(quenta_equation_second_kind(1, forcing, &calls, &equation) == QUENTA_EQUATION_SOLVED,
          "a second-kind equation");
    check(quenta_equation_add_memory(equation, 1, 0.0, kernel, &calls) == QUENTA_EQUATION_SOLVED, "a memory term");
    check(quenta_equation_solve_to_tolerance(equation, 2.0, 1e-9, 0.0, 0, 0, 0, &solution) == QUENTA_EQUATION_SOLVED,
          "a tolerance is reached");
    check(quenta_solution_error(solution)[0] <= 1e-9, "the estimate is below the tolerance");
    check(quenta_solution_evaluate(solution, 3, t, y) == QUENTA_EQUATION_SOLVED, "y at any times");
    for (k = 0; k < 3; ++k)
        check_near(y[k], exp(-t[k]), 1e-9, "y is exp(-t)");
    check(quenta_solution_derivative(solution, 3, t, y) == QUENTA_EQUATION_SOLVED, "y' at any times");
    for (k = 0; k < 3; ++k)
        check_near(y[k], -exp(-t[k]), 1e-6, "y' is -exp(-t)");
    check(quenta_solution_iterate(solution, equation, 3, t, y) == QUENTA_EQUATION_SOLVED, "the iterated solution");
    for (k = 0; k < 3; ++k)
        check_near(y[k], exp(-t[k]), 1e-10, "g + M is exp(-t)");
    check(calls > 0, "the contexts are passed");
    quenta_solution_destroy(solution);
    quenta_equation_destroy(equation);
}

/* y' = -y + integral of exp(-(t - s)) y(s), y(0) = 1, so y = exp(-t) cosh(t). */
static int minus_y(void* context, int count, const double* t, const double* y, double* values) {
    int p;
    (void)context;
    (void)t;
    for (p = 0; p < count; ++p)
        values[p] = -y[p];
    return 0;
}

static int minus_one(void* context, int count, const double* t, const double* y, double* values) {
    int p;
    (void)context;
    (void)t;
    (void)y;
    for (p = 0; p < count; ++p)
        values[p] = -1.0;
    return 0;
}

static int decay(void* context, int count, const double* lag, const double* x, double* values) {
    int p;
    (void)context;
    check(x == 0, "a kernel of the lag has one argument");
    for (p = 0; p < count; ++p)
        values[p] = exp(-lag[p]);
    return 0;
}

static int stop_at_step_5(void* context, int done, int steps) {
    check(steps == 40, "expected the progress function to receive the number of steps");
    *(int*)context = done;
    return done == 5;
}

static void check_integro_differential(void) {
    const double y0 = 1.0;
    double gauss[3];
    int done = 0;
    quenta_equation* equation = 0;
    quenta_solution* solution = 0;
    check(quenta_equation_integro_differential(1, minus_y, 0, &y0, &equation) == QUENTA_EQUATION_SOLVED,
          "an integro-differential equation");
    check(quenta_equation_set_jacobian(equation, minus_one, 0) == QUENTA_EQUATION_SOLVED, "its derivative");
    check(quenta_equation_add_lag_memory(equation, 1, 0.0, decay, 0) == QUENTA_EQUATION_SOLVED, "a kernel of the lag");
    check(quenta_equation_nodes(QUENTA_GAUSS, 3, gauss) == QUENTA_EQUATION_SOLVED, "the nodes of Gauss");
    check(quenta_equation_solve(equation, 5.0, 40, gauss, 3, &solution) == QUENTA_EQUATION_SOLVED, "equal steps");
    check(quenta_solution_steps(solution) == 40 && quenta_solution_dimension(solution) == 1, "40 steps, 1 component");
    check_near(quenta_solution_mesh(solution)[40], 5.0, 0.0, "the mesh ends at t_end");
    check_near(quenta_solution_values(solution)[40], exp(-5.0) * cosh(5.0), 1e-9, "y is exp(-t) cosh(t)");
    check(quenta_solution_error(solution) == 0, "there is no estimate");
    quenta_solution_destroy(solution);

    check(quenta_equation_set_progress(equation, stop_at_step_5, &done) == QUENTA_EQUATION_SOLVED, "progress");
    check(quenta_equation_solve(equation, 5.0, 40, 0, 2, &solution) == QUENTA_EQUATION_STOPPED, "progress can stop");
    check(done == 5 && quenta_solution_steps(solution) == 5, "the steps before the stop are kept");
    quenta_solution_destroy(solution);
    quenta_equation_destroy(equation);
}

/* The integral of exp(-(t - s)) y(s)^3 is t exp(-t), so y = exp(-t / 3). */
static int t_times_decay(void* context, int count, const double* t, const double* x, double* values) {
    int p;
    (void)context;
    (void)x;
    for (p = 0; p < count; ++p)
        values[p] = t[p] * exp(-t[p]);
    return 0;
}

static int cube(void* context, int count, const double* s, const double* y, double* values) {
    int p;
    (void)context;
    (void)s;
    for (p = 0; p < count; ++p)
        values[p] = y[p] * y[p] * y[p];
    return 0;
}

static int cube_derivative(void* context, int count, const double* s, const double* y, double* values) {
    int p;
    (void)context;
    (void)s;
    for (p = 0; p < count; ++p)
        values[p] = 3.0 * y[p] * y[p];
    return 0;
}

static void check_first_kind(void) {
    const double mesh[] = {0.0, 0.1, 0.2, 0.3, 0.5, 0.7, 1.0};
    const double guess = 1.0;
    quenta_equation* equation = 0;
    quenta_solution* solution = 0;
    check(quenta_equation_first_kind(1, t_times_decay, 0, &equation) == QUENTA_EQUATION_SOLVED,
          "a first-kind equation");
    check(quenta_equation_solve_on_mesh(equation, mesh, 6, 0, 0, &solution) == QUENTA_EQUATION_NO_TERM && solution == 0,
          "a first-kind equation needs a memory term");
    check(quenta_equation_add_lag_memory(equation, 1, 0.0, decay, 0) == QUENTA_EQUATION_SOLVED, "a kernel of the lag");
    check(quenta_equation_set_phi(equation, cube, cube_derivative, 0) == QUENTA_EQUATION_SOLVED, "phi");
    check(quenta_equation_set_first_guess(equation, &guess) == QUENTA_EQUATION_SOLVED, "a first guess");
    check(quenta_equation_solve_on_mesh(equation, mesh, 6, 0, 0, &solution) == QUENTA_EQUATION_SOLVED, "a mesh");
    check_near(quenta_solution_values(solution)[6], exp(-1.0 / 3.0), 1e-4, "y is exp(-t/3)");
    quenta_solution_destroy(solution);
    quenta_equation_destroy(equation);
}

/* Implicit midpoint rule for y' = -y + integral of exp(-(t - s)) y(s), y(0) = 1, so y = exp(-t) cosh(t). */
static int decay_of_steps(void* context, int lag, double* block) {
    const double h = *(const double*)context;
    block[0] = h * exp(-h * lag);
    return 0;
}

static void check_history(void) {
    const double h = 0.001, blocks[] = {3.0, 4.0, 5.0, 6.0};
    double y = 1.0, sum, middle, pair[] = {1.0, 10.0};
    int n;
    quenta_history* history = 0;
    check(quenta_history_from_function(1, 1, 1000, decay_of_steps, (void*)&h, &history) == QUENTA_EQUATION_SOLVED,
          "a history from a function");
    for (n = 0; n < 1000; ++n) {
        check(quenta_history_sum(history, &sum) == QUENTA_EQUATION_SOLVED, "the sum of a step");
        middle = (y + h / 2 * sum) / (1.0 + h / 2 - h * h / 4 * exp(-h / 4));
        check(quenta_history_push(history, &middle) == QUENTA_EQUATION_SOLVED, "the end of a step");
        y = 2.0 * middle - y;
    }
    check_near(y, exp(-1.0) * cosh(1.0), 1e-6, "y is exp(-t) cosh(t)");
    check(quenta_history_steps_done(history) == 1000, "1000 steps are done");
    check(quenta_history_push(history, &y) == QUENTA_EQUATION_NO_STEP_LEFT, "there is no other step");
    quenta_history_destroy(history);

    check(quenta_history_from_blocks(1, 2, 3, blocks, &history) == QUENTA_EQUATION_SOLVED, "a history from blocks");
    for (n = 0; n < 2; ++n)
        check(quenta_history_push(history, pair) == QUENTA_EQUATION_SOLVED, "a push");
    check(quenta_history_sum(history, &sum) == QUENTA_EQUATION_SOLVED && sum == 43.0 + 65.0, "block by block");
    quenta_history_destroy(history);
}

int main(void) {
    check(quenta_equation_max_dimension() == 1000, "the largest D is 1000");
    check(quenta_equation_max_nodes() == 5, "the largest P is 5");
    check(quenta_equations_error_text(QUENTA_EQUATION_BAD_MESH)[0] == 'e', "a status has a text");
    check_second_kind();
    check_integro_differential();
    check_first_kind();
    check_history();
    return failures == 0 ? 0 : 1;
}
