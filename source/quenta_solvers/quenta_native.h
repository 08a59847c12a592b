/* quenta_native: solvers for linear Volterra equations, from samples of a convolution kernel or from blocks.
 *
 * The calling order: quenta_rt_init once, to its end, before any other thread enters; then any solver, from any
 * number of threads at once. A thread needs no preparation of its own, and there is nothing to shut down. The
 * functions that only report limits or settings need no start at all.
 *
 * Fork: in the child, every function may be called, whatever other threads were doing in the library at the time of the
 * fork. A library that has been started stays started there. If the fork came before the start, or during it, the child
 * calls quenta_rt_init itself. A solve that was running on another thread does not exist in the child, but its memory
 * stays allocated. A handler of pthread_atfork may call the library in the child if it was registered after the start.
 * vfork, _Fork and clone run no such handlers: after these, the child may only call exec.
 *
 * Rules for all arguments
 *   1. Order: input arrays, then sizes, then scalars and the setting, then flags, then output arrays. Solvers from
 *      blocks have their sizes where it is said below.
 *   2. Every array belongs to the caller, before and after. The library keeps no pointer after it returns, and
 *      neither reads nor writes outside the sizes given here.
 *   3. double is the 64-bit IEEE type, int has 32 bits. Flags are ints: zero is no, anything else is yes.
 *   4. Samples stand on one uniform grid: sample i belongs to t_i = i * dt, for i = 0 .. N-1. A kernel sample i is
 *      the kernel at lag t_i. Time has whatever unit dt has.
 *   5. Input values are not examined: NaN and infinity follow the IEEE rules to the output and are no error, except
 *      that a system with an infinite pivot counts as singular. A weight of zero is a factor like any other, so that
 *      a NaN under a zero weight shows. The sign and the payload of a NaN are not specified; all other results are
 *      the same bits on every processor of a platform.
 *   6. A solver calculates in the default floating-point mode (round to nearest, subnormals kept, no traps), whatever
 *      mode the calling thread has set, and gives that thread its mode back.
 *
 * What a solver returns, and what is left untouched
 *   QUENTA_SOLVED, QUENTA_UNSUPPORTED_SETTING, QUENTA_SINGULAR_BLOCK or QUENTA_SIZE_OVERFLOW (below). Nothing at all
 *   is written unless the status is QUENTA_SOLVED, but by solvers from blocks, which leave the steps before a singular
 *   one. The library is fully usable after every status.
 *
 *   The dense system of a step is eliminated with partial pivoting. It is singular to rounding if a pivot is at most
 *   n * 2^-52 times the largest pivot so far, itself included, where n is the order of the system. The scale of later
 *   unknowns does not count, so that the result depends on the order of the unknowns: the block diag(1, 1e-17) is
 *   singular, the block diag(1e-17, 1) is not.
 *
 * What is no status
 *   Arguments that contradict each other are fatal: a C++ exception leaves through the function, which ends a
 *   process that does not catch it. It derives from std::exception. If N is too small for the setting, what() gives the
 *   index, the length and the place in the library. The other exceptions give no place: that of a negative N in
 *   quenta_solve_vie2 and quenta_solve_vide, std::length_error for most negative D, and std::bad_alloc when memory runs
 *   out. No memory is lost on the way. In the solvers for vectors, a negative N has no defined result if N*D in 32 bits
 *   is above 0. A setting with m = 0 (or any m whose square is 0 in 32 bits) ends the process by the platform's
 *   arithmetic fault. After an exception or a fault the output is undefined. Null pointers are not checked unless a
 *   function says so.
 */
#ifndef QUENTA_NATIVE_H
#define QUENTA_NATIVE_H

#if defined(_WIN32)
#if defined(QUENTA_NATIVE_BUILD)
#define QUENTA_API __declspec(dllexport)
#else
#define QUENTA_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define QUENTA_API __attribute__((visibility("default")))
#else
#define QUENTA_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The status of a solve. */
enum {
    QUENTA_SOLVED = 0,              /* the solution is written */
    QUENTA_UNSUPPORTED_SETTING = 1, /* (m, list) is no row of the settings table; a size out of range */
    QUENTA_SINGULAR_BLOCK = 2,      /* the dense system of a step is singular */
    QUENTA_SIZE_OVERFLOW = 3        /* a size does not fit a signed 32-bit index */
};

/* ---- Start and reclamation ------------------------------------------------------------------------------------ */

/* Starts the library. To be called once, to its end, before the first solver or quenta_gc_collect enters on any
 * thread; a further call is harmless.
 *
 * Returns 1 when the library is started, 0 if it could not be.
 * Threads: the first call takes no lock, so no other thread may be inside the library.
 */
QUENTA_API int quenta_rt_init(void);

/* Gives memory of finished solves that the heap still holds back to the system, where the platform offers that. It
 * never touches a solve that is running. Needs quenta_rt_init.
 *
 * Any number of threads may call at once, beside any number of solves.
 */
QUENTA_API void quenta_gc_collect(void);

/* ---- Limits: constants, callable before quenta_rt_init and from any thread -------------------------------------- */

/* Always 0: the dense algebra is the library's own. */
QUENTA_API int quenta_have_lapack(void);

/* The largest number of collocation nodes of a setting: 5. */
QUENTA_API int quenta_max_coll_params(void);

/* The largest number of nodes of a pre-assembled block: 5. */
QUENTA_API int function_solve_max_p(void);

/* The largest dimension of a pre-assembled block: 8. */
QUENTA_API int function_solve_max_d(void);

/* The number of rows of the settings table: 56. */
QUENTA_API int quenta_num_supported_settings(void);

/* ---- Collocation settings ------------------------------------------------------------------------------------- */

/* The table of the collocation settings: for m = 1, 2, 3, 4, every non-empty subset k_1 < .. < k_count of 0 .. m, the
 * shorter subsets first. A setting has the collocation parameters c_j = k_j / m in a step of length h = m * m * dt.
 *
 * Out  settings[336]   row r at settings[6*r]: m, then its node indices ascending, then -1 up to 6 ints
 *
 * Callable before quenta_rt_init; any number of threads may call at once.
 */
QUENTA_API void quenta_get_supported_settings(int* settings);

/* ---- Solvers from samples ------------------------------------------------------------------------------------- */

/* Second kind, scalar:  y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.
 *
 * Piecewise polynomial collocation: on each step of length h = m * m * dt the solution is the polynomial of degree
 * count - 1 through its values at the nodes t_n + c_j h, and both integrals are replaced by the interpolatory
 * quadrature on these nodes (H. Brunner, Collocation Methods for Volterra Integral and Related Functional Equations,
 * Cambridge University Press 2004, chapter 2). Adjacent polynomials need not join. The cost grows like
 * steps * log(steps)^2. All 56 settings are accepted.
 *
 * In   g[N], K[N]       forcing at t_i, in the unit of y, and kernel at lag t_i, in that of 1/time
 *      N                number of samples, at least 1, and enough for the kernel samples that the first step needs:
 *                       more than the largest k_i * (m - k_q) over the setting's nodes. A smaller N is fatal.
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a setting: a row of quenta_get_supported_settings. list is not read if no row has this m
 *                       and this count.
 *      want_coeffs      non-zero: also fill coeffs
 * Out  out[N]           y(t_i); at a step boundary the mean of the two one-sided values; 0.0 past the last whole step
 *      coeffs[(count+1)*steps]   with want_coeffs: step n, power j of s = (t - t_n) / h in 0 .. 1 at
 *                       n*(count+1) + j, for j = 0 .. count-1; slot j = count of a step is not written. Not touched
 *                       and may be null without want_coeffs; null with it is fatal once there is a step.
 *      n_steps          steps = (N-1) / (m*m), rounded down. Samples past steps*m*m play no part.
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if (count+1)*steps > 2147483647 or (count+1)*(count+1) > 2147483647, tested first;
 *      QUENTA_UNSUPPORTED_SETTING if (m, list) is no row of the table;
 *      QUENTA_SINGULAR_BLOCK if the system of a step is singular to rounding, or has an infinite pivot. It is the same
 *      system in every step; without a step it is not looked at.
 * Takes, for P = count, up to 3 P*P + 11 P + 8 doubles of memory for every step, 32 P*(P + 7) beside, and 64 KiB of
 *      stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vie2(const double* g, const double* K, int N, double dt, int m, const int* list, int count,
                                 int want_coeffs, double* out, double* coeffs, int* n_steps);

/* Second kind, for vectors of D components:  y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.
 *
 * The scheme of quenta_solve_vie2, with a vector at each point and a matrix for each kernel sample. With D = 1 the
 * results are those of quenta_solve_vie2, bit for bit.
 *
 * In   g[N*D]           forcing: component r at t_i at i*D + r
 *      K[N*D*D]         kernel: entry (r, c) at lag t_i at i*D*D + r*D + c
 *      N                number of samples, as above
 *      D                dimension of y; 1 to 8 are the fastest. D = 0 ends the process by the arithmetic fault, a
 *                       negative one has no defined result.
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a setting
 *      want_coeffs      non-zero: also fill coeffs
 * Out  out[N*D]         y(t_i), component r at i*D + r; at a step boundary the mean of the two one-sided values; 0.0
 *                       past the last whole step
 *      coeffs[(count+1)*D*steps]   with want_coeffs: step n, power j of s, component r at (n*(count+1) + j)*D + r, for
 *                       j = 0 .. count-1; slot j = count of a step is not written. May be null as above.
 *      n_steps          steps = (N-1) / (m*m), rounded down
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if N*D*D, (count+1)*D*steps or ((count+1)*D) squared > 2147483647, tested first;
 *      QUENTA_UNSUPPORTED_SETTING if (m, list) is no row of the table;
 *      QUENTA_SINGULAR_BLOCK as above.
 * Takes, for n = count * D, up to 3 n*n + 11 n + 8 doubles of memory for every step, 32 n*(n + 7) beside, and
 *      128 KiB of stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vie2_vec(const double* g, const double* K, int N, int D, double dt, int m, const int* list,
                                     int count, int want_coeffs, double* out, double* coeffs, int* n_steps);

/* First kind, for vectors of D components:  integral from 0 to t of K(t - s) y(s) ds = g(t).
 *
 * Collocation as above, with the equation demanded at the nodes (Brunner, chapter 2). In the discontinuous form the
 * polynomial of a step lives on the setting's nodes, and y0 is not read; settings with the node 0 are singular. In the
 * continuous form the polynomial has the extra node 0, where it takes up the end of the step before, from y0 on. With
 * many settings the errors of that form grow from step to step, and overflow, with QUENTA_SOLVED: with all whose last
 * node is not m, and of the others with all but m = 1, 2, 3 or 4 with the node m alone, m = 3 with 1, 2, 3, and m = 4
 * with 1, 2, 4 or 1, 3, 4. With a setting that has the node 0 itself, it has no basis and gives NaN.
 *
 * The first kind is ill-posed: noise in g is differentiated. Three settings that amplify every error are refused:
 * m = 3 with node 1, m = 4 with node 1, and m = 4 with nodes 1, 2.
 *
 * In   g[N*D]           forcing: component r at t_i at i*D + r
 *      K[N*D*D]         kernel: entry (r, c) at lag t_i at i*D*D + r*D + c; K y has the unit of g/time
 *      N                number of samples, as above
 *      D                dimension of y; 1 to 8 are the fastest. In the continuous form a D below 1 is fatal. In the
 *                       other, D = 0 ends the process by the arithmetic fault, a negative one has no defined result.
 *      y0[D]            y at t = 0, read only with continuous
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a setting
 *      want_coeffs      non-zero: also fill coeffs
 *      continuous       non-zero: the continuous form
 * Out  out[N*D]         y(t_i), component r at i*D + r; at a step boundary the mean of the two one-sided values; 0.0
 *                       past the last whole step
 *      coeffs[(count+1)*D*steps]   with want_coeffs: step n, power j of s, component r at (n*(count+1) + j)*D + r. The
 *                       continuous form fills j = 0 .. count; the other leaves j = count alone. May be null as above.
 *      n_steps          steps = (N-1) / (m*m), rounded down
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if N*D*D, (count+1)*D*steps or ((count+1)*D) squared > 2147483647, tested first;
 *      QUENTA_UNSUPPORTED_SETTING if (m, list) is one of the three or no row of the table;
 *      QUENTA_SINGULAR_BLOCK as above.
 * Takes, for n = count * D, up to 3 n*n + 11 n + D + 8 doubles of memory for every step, 32 n*(n + 7) beside, and
 *      128 KiB of stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vie1_vec(const double* g, const double* K, int N, int D, const double* y0, double dt, int m,
                                     const int* list, int count, int want_coeffs, int continuous, double* out,
                                     double* coeffs, int* n_steps);

/* First kind, scalar: quenta_solve_vie1_vec with D = 1, and y0 by value. */
QUENTA_API int quenta_solve_vie1(const double* g, const double* K, int N, double y0, double dt, int m, const int* list,
                                 int count, int want_coeffs, int continuous, double* out, double* coeffs, int* n_steps);

/* Integro-differential, scalar:  y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds, with y(0) = y0.
 *
 * Collocation (Brunner, chapter 3): on each step of length h = m * m * dt the derivative is the polynomial of degree
 * count - 1 through its values at the nodes t_n + c_j h, where the equation is demanded, and the solution is its
 * integral, a polynomial of degree count that takes up the end of the step before. The integrals of the equation are
 * replaced as in quenta_solve_vie2, and the cost grows in the same way. All 56 settings are accepted: m = 1 with node 0
 * is the explicit Euler method, m = 1 with node 1 the implicit one.
 *
 * In   g[N], K[N]       forcing at t_i, in the unit of y/time, and kernel at lag t_i, in that of 1/time squared
 *      a[N]             coefficient at t_i, in the unit of 1/time
 *      N                number of samples, at least 1, and enough for the kernel samples that the first step needs:
 *                       more than the largest k_i * (m - k_q) over the setting's nodes. A smaller N is fatal.
 *      y0               y at t = 0
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a setting: a row of quenta_get_supported_settings. list is not read if no row has this m
 *                       and this count.
 *      want_coeffs      non-zero: also fill coeffs
 * Out  out[N]           y(t_i), from out[0] = y0 on if there is a step; at a step boundary the mean of the values of
 *                       the two polynomials, which differ by rounding; 0.0 past the last whole step
 *      coeffs[(count+1)*steps]   with want_coeffs: step n, power j of s = (t - t_n) / h in 0 .. 1 at
 *                       n*(count+1) + j, for j = 0 .. count. Not touched and may be null without want_coeffs; null
 *                       with it is fatal once there is a step.
 *      n_steps          steps = (N-1) / (m*m), rounded down. Samples past steps*m*m play no part.
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if (count+1)*steps > 2147483647 or (count+1)*(count+1) > 2147483647, tested first;
 *      QUENTA_UNSUPPORTED_SETTING if (m, list) is no row of the table;
 *      QUENTA_SINGULAR_BLOCK if the system of some step is singular to rounding, or has an infinite pivot.
 * Takes, for P = count, up to 3 P*P + 14 P + 14 doubles of memory for every step, 1700 beside, and 64 KiB of stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vide(const double* g, const double* K, const double* a, int N, double y0, double dt, int m,
                                 const int* list, int count, int want_coeffs, double* out, double* coeffs,
                                 int* n_steps);

/* Integro-differential, for vectors of D components:  y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s)
 * ds, with y(0) = y0.
 *
 * The scheme of quenta_solve_vide, with a vector at each point and a matrix for each sample of K and of a. The two
 * functions round differently, and so do dimensions up to 8 and above: results agree but for the last bits.
 *
 * In   g[N*D]           forcing: component r at t_i at i*D + r
 *      K[N*D*D]         kernel: entry (r, c) at lag t_i at i*D*D + r*D + c
 *      a[N*D*D]         coefficient: entry (r, c) at t_i at i*D*D + r*D + c
 *      N                number of samples, as above
 *      D                dimension of y; 1 to 8 are the fastest. D = 0 ends the process by the arithmetic fault, a
 *                       negative one has no defined result.
 *      y0[D]            y at t = 0
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a setting
 *      want_coeffs      non-zero: also fill coeffs
 * Out  out[N*D]         y(t_i), component r at i*D + r, as above
 *      coeffs[(count+1)*D*steps]   with want_coeffs: step n, power j of s, component r at (n*(count+1) + j)*D + r, for
 *                       j = 0 .. count. May be null as above.
 *      n_steps          steps = (N-1) / (m*m), rounded down
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if N*D*D, (count+1)*D*steps or ((count+1)*D) squared > 2147483647, tested first;
 *      QUENTA_UNSUPPORTED_SETTING if (m, list) is no row of the table;
 *      QUENTA_SINGULAR_BLOCK as above.
 * Takes, for n = count * D, up to 3 n*(n + D) + 11 n + 6 D + 8 doubles of memory for every step, 34 (n + D)*(n + 7)
 *      beside, and 128 KiB of stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vide_vec(const double* g, const double* K, const double* a, int N, int D, const double* y0,
                                     double dt, int m, const int* list, int count, int want_coeffs, double* out,
                                     double* coeffs, int* n_steps);

/* ---- Solvers from pre-assembled blocks -------------------------------------------------------------------------- */

/* For kernels of any form: the caller assembles the coefficients of a collocation scheme (Brunner, chapters 2 and 3),
 * and these functions solve the lower block-triangular system by forward recursion, with one small dense system a
 * step. They know no kernel, no setting and no nodes, need no start of the library, allocate nothing, and are pure
 * functions of their arguments.
 *
 * What they share
 *   N         number of steps, at least 1
 *   P         number of points of a step, which carry its unknowns: 1 to 5
 *   D         number of components of an unknown: 1 to 8 in the forms for vectors (_vec), 1 in the others
 *   n, k      steps; i, j: points of a step; r, c: components. All count from 0; n, i, r belong to rows, k, j, c to
 *             columns.
 *   vectors   component r of point i of step n at (n*P + i)*D + r
 *   A         a row-major table of matrices: a row for every point, in it s slots for every step, and in each slot a
 *             D by D matrix, itself row-major. Entry (r, c) for point i of step n and slot j of step k stands at
 *             A[((n*P + i) * (N*s) + k*s + j)*D*D + r*D + c], with s = P where nothing else is said. For D > 1 this is
 *             not the row-major matrix of the whole system: the matrix of a slot is contiguous. Slots of steps k > n
 *             are never read and may hold anything. A may have more than 2147483647 elements.
 *
 * Each returns QUENTA_SOLVED;
 *      QUENTA_UNSUPPORTED_SETTING if N, P or D is out of its range: nothing is read or written;
 *      QUENTA_SINGULAR_BLOCK if the system of a step n is singular to rounding, or has an infinite pivot: what belongs
 *      to the steps before n is written and final, and so is y[n] where there is a y; the rest is left untouched.
 * Each takes up to 32 KiB of stack. The cost grows like the square of N: all of A up to the diagonal is read, once.
 * Any number of threads may call at once. With D = 1 the integro-differential form for vectors rounds otherwise than
 * the scalar one; the other forms agree with theirs but for the sign of a zero.
 */

/* First kind:  sum over k = 0 .. n of A[n,k] x[k] = b[n], where A[n,k] is the block of the rows of step n and the slots
 * of step k.
 *
 * In   A[N*P*D * N*P*D] coefficients
 *      b[N*P*D]         right-hand side
 * Out  x[N*P*D]         solution
 */
QUENTA_API int function_solve_vie1(const double* A, const double* b, int N, int P, double* x);
QUENTA_API int function_solve_vie1_vec(const double* A, const double* b, int N, int P, int D, double* x);

/* First kind with a value carried from step to step: the equations of step n also see y[k] for k = 0 .. n, and
 *
 *   sum over k = 0 .. n of (A[n, slots 0 .. P-1 of k] x[k] + A[n, slot P of k] y[k]) = b[n],
 *   y[n+1] = rho y[n] + sum over j of w[j] x[n,j].
 *
 * In   A[N*P*D * N*(P+1)*D]   coefficients, with s = P + 1 slots a step: those of its points, then that of its y
 *      b[N*P*D]         right-hand side
 *      w[P], rho        the rule of the carried value, the same for every step and component
 *      y0, y0[D]        y[0]
 * Out  x[N*P*D]         values at the points
 *      y[(N+1)*D]       carried values: component r of y[n] at n*D + r
 */
QUENTA_API int function_solve_vie1_cont(const double* A, const double* b, int N, int P, const double* w, double rho,
                                        double y0, double* x, double* y);
QUENTA_API int function_solve_vie1_cont_vec(const double* A, const double* b, int N, int P, int D, const double* w,
                                            double rho, const double* y0, double* x, double* y);

/* Second kind:  x[n] = b[n] + sum over k = 0 .. n of A[n,k] x[k]. The identity is not part of A.
 *
 * In   A[N*P*D * N*P*D] coefficients
 *      b[N*P*D]         right-hand side
 * Out  x[N*P*D]         solution
 */
QUENTA_API int function_solve_vie2(const double* A, const double* b, int N, int P, double* x);
QUENTA_API int function_solve_vie2_vec(const double* A, const double* b, int N, int P, int D, double* x);

/* Integro-differential equation, on steps of any lengths:  the unknowns x are the derivatives at the points,
 *
 *   x[n,i] = b[n,i] + C[n,i] (y[n] + h[n] * sum over j of E[i*P + j] x[n,j])
 *            + sum over k = 0 .. n of (A[(n,i), slot P of k] y[k] + h[k] * sum over j of A[(n,i), slot j of k] x[k,j]),
 *   y[n+1] = y[n] + h[n] * sum over j of w[j] x[n,j].
 *
 * In   A[N*P*D * N*(P+1)*D]   coefficients of the integral, with s = P + 1 slots a step: those of the derivatives at
 *                       its points, without the step length, then that of y[k]
 *      b[N*P*D]         forcing at the points
 *      C[N*P*D*D]       coefficient of y: entry (r, c) at point i of step n at (n*P + i)*D*D + r*D + c
 *      E[P*P]           weight of the derivative at point j in y at point i, relative to the step length: at i*P + j
 *      w[P]             weights of the derivatives in y at the end of the step, relative to the step length
 *      h[N]             step lengths; not examined
 *      y0, y0[D]        y[0]
 * Out  x[N*P*D]         derivatives at the points
 *      y[(N+1)*D]       y at the ends of the steps: component r of y[n] at n*D + r
 */
QUENTA_API int function_solve_vide(const double* A, const double* b, const double* C, const double* E, const double* w,
                                   const double* h, double y0, int N, int P, double* x, double* y);
QUENTA_API int function_solve_vide_vec(const double* A, const double* b, const double* C, const double* E,
                                       const double* w, const double* h, const double* y0, int N, int P, int D,
                                       double* x, double* y);

#ifdef __cplusplus
}
#endif

#endif
