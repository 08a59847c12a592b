/* The peer in the figures of times: the second kind by the trapezoidal rule, as every textbook has it, with one sum
 * over all of the past for every sample. */

void textbook_trapezoid(const double* g, const double* K, int N, double dt, double* y) {
    int n, j;
    y[0] = g[0];
    for (n = 1; n < N; ++n) {
        double sum = K[n] * y[0] / 2.0;
        for (j = 1; j < n; ++j)
            sum += K[n - j] * y[j];
        y[n] = (g[n] + dt * sum) / (1.0 - dt * K[0] / 2.0);
    }
}
