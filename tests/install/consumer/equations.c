/* A host of quenta_equations in C89, with nothing but the installed header and library. */
#include "quenta_equations.h"

#include <math.h>
#include <stdio.h>

/* y(t) = exp(-t) - t^2 + integral from 0 to t of t exp(s) y(s) ds, with the solution exp(-t). */
static int forcing(void* context, int count, const double* t, const double* unused, double* g) {
    int p;
    (void)unused;
    for (p = 0; p < count; ++p)
        g[p] = exp(-t[p]) - t[p] * t[p];
    ++*(int*)context;
    return 0;
}

static int kernel(void* context, int count, const double* t, const double* s, double* K) {
    int p;
    for (p = 0; p < count; ++p)
        K[p] = t[p] * exp(s[p]);
    ++*(int*)context;
    return 0;
}

int main(void) {
    quenta_equation* equation = NULL;
    quenta_solution* solution = NULL;
    int calls = 0, status;
    double time = 1.5, y = 0.0;
    if (quenta_equation_second_kind(1, forcing, &calls, &equation) != QUENTA_EQUATION_SOLVED)
        return 1;
    status = quenta_equation_add_memory(equation, 1, 0.0, kernel, &calls);
    if (status == QUENTA_EQUATION_SOLVED)
        status = quenta_equation_solve_to_tolerance(equation, 2.0, 1e-8, 0.0, 0, NULL, 0, &solution);
    if (status == QUENTA_EQUATION_SOLVED)
        status = quenta_solution_evaluate(solution, 1, &time, &y);
    if (status != QUENTA_EQUATION_SOLVED)
        printf("expected a solution, got: %s\n", quenta_equations_error_text(status));
    quenta_solution_destroy(solution);
    quenta_equation_destroy(equation);
    return status != QUENTA_EQUATION_SOLVED || calls == 0 || fabs(y - exp(-time)) > 1e-8;
}
