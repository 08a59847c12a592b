/* A host in C89 needs only the header and the library. The same file is also compiled as C++. */
#include "quenta_native.h"

#include <math.h>
#include <stdio.h>

enum { samples = 65, steps = 16 };

static int failures = 0;

static void check(int condition, const char* promise) {
    if (!condition) {
        printf("broken promise: %s\n", promise);
        ++failures;
    }
}

static void check_limits_and_settings(void) {
    static int settings[337];
    int i, nodes = 0;
    check(quenta_have_lapack() == 0, "quenta_have_lapack is 0");
    check(quenta_max_coll_params() == 5, "quenta_max_coll_params is 5");
    check(function_solve_max_p() == 5, "function_solve_max_p is 5");
    check(function_solve_max_d() == 8, "function_solve_max_d is 8");
    check(quenta_num_supported_settings() == 56, "quenta_num_supported_settings is 56");

    for (i = 0; i < 337; ++i)
        settings[i] = -99;
    quenta_get_supported_settings(settings);
    for (i = 0; i < 336; ++i)
        nodes += i % 6 != 0 && settings[i] != -1;
    /* Each of the m + 1 indices is in half of the 2^(m+1) subsets. */
    check(nodes == 2 * 2 + 3 * 4 + 4 * 8 + 5 * 16, "the settings are all subsets");
    check(settings[0] == 1 && settings[1] == 0 && settings[2] == -1 && settings[5] == -1, "row 0 is 1, [0]");
    check(settings[54] == 2 && settings[55] == 0 && settings[56] == 1 && settings[57] == 2 && settings[58] == -1,
          "row 9 is 2, [0, 1, 2]");
    check(settings[330] == 4 && settings[331] == 0 && settings[335] == 4, "row 55 is 4, [0, 1, 2, 3, 4]");
    check(settings[336] == -99, "336 ints are written");
}

/* y(t) = 1 + integral of y, so y = exp(t). */
static void check_solve(void) {
    static double g[samples], K[samples], out[samples], coeffs[4 * steps];
    const int simpson[] = {0, 1, 2};
    const double dt = 1.0 / (samples - 1);
    double largest_error = 0.0;
    int i, n_steps = -1;
    for (i = 0; i < samples; ++i)
        g[i] = K[i] = 1.0;
    check(quenta_solve_vie2(g, K, samples, dt, 2, simpson, 3, 1, out, coeffs, &n_steps) == QUENTA_SOLVED,
          "an ordinary problem is solved");
    check(n_steps == steps, "n_steps is (N - 1) / (m * m)");
    for (i = 0; i < samples; ++i)
        if (fabs(out[i] - exp(i * dt)) > largest_error)
            largest_error = fabs(out[i] - exp(i * dt));
    check(largest_error > 0.0 && largest_error < 1e-5, "the solution is exp(t)");
    check(coeffs[0] == 1.0, "the first step's polynomial starts at y(0)");
    check(quenta_solve_vie2(g, K, samples, dt, 5, simpson, 3, 0, out, 0, &n_steps) == QUENTA_UNSUPPORTED_SETTING,
          "m = 5 is unsupported");
    quenta_gc_collect();
}

int main(void) {
    check_limits_and_settings();
    check(quenta_rt_init() == 1, "quenta_rt_init is 1");
    check(quenta_rt_init() == 1, "quenta_rt_init is 1 again");
    check_solve();
    return failures == 0 ? 0 : 1;
}
