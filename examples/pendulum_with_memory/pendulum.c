/* A pendulum in a fluid with memory. README.md describes the equations. */
#include <quenta_equations.h>

#include <math.h>
#include <stdio.h>

struct fluid {
    double drag, time; /* of the force, and after which it is forgotten */
};

/* y = (angle, velocity): y' = f(t, y) + the integral of K(t - s) y(s). */
static int right_side(void* context, int count, const double* t, const double* y, double* f) {
    int p;
    (void)context, (void)t;
    for (p = 0; p < count; ++p) {
        f[2 * p] = y[2 * p + 1];
        f[2 * p + 1] = -sin(y[2 * p]);
    }
    return 0;
}

static int kernel(void* context, int count, const double* lag, const double* unused, double* K) {
    const struct fluid* fluid = context;
    int p;
    (void)unused;
    for (p = 0; p < count; ++p) { /* 2 by 2 matrices, by rows */
        K[4 * p] = K[4 * p + 1] = K[4 * p + 2] = 0;
        K[4 * p + 3] = -fluid->drag / fluid->time * exp(-lag[p] / fluid->time);
    }
    return 0;
}

int main(void) {
    static const double start[2] = {3, 0}, times[4] = {5, 10, 15, 20};
    struct fluid fluid = {0.5, 2};
    quenta_equation* pendulum = NULL;
    quenta_solution* solution = NULL;
    double y[8];
    int i, status = quenta_equation_integro_differential(2, right_side, NULL, start, &pendulum);
    if (status == QUENTA_EQUATION_SOLVED)
        status = quenta_equation_add_lag_memory(pendulum, 2, 0, kernel, &fluid);
    if (status == QUENTA_EQUATION_SOLVED)
        status = quenta_equation_solve_to_tolerance(pendulum, 20, 1e-8, 0, 0, NULL, 0, &solution);
    if (status == QUENTA_EQUATION_SOLVED)
        status = quenta_solution_evaluate(solution, 4, times, y);
    if (status == QUENTA_EQUATION_SOLVED)
        for (i = 0; i < 4; ++i)
            printf("t = %2.0f: angle %11.8f, velocity %11.8f\n", times[i], y[2 * i], y[2 * i + 1]);
    else
        fprintf(stderr, "%s\n", quenta_equations_error_text(status));
    quenta_solution_destroy(solution);
    quenta_equation_destroy(pendulum);
    return status != QUENTA_EQUATION_SOLVED;
}
