/* quenta_native: solvers for linear Volterra equations.
 *
 * The sample-based solvers, quenta_solve_*, take samples of the forcing and of a convolution kernel K(t - s). The block
 * solvers, function_solve_*, take the assembled blocks of a collocation scheme, for kernels of any form.
 *
 * Calling order
 *   Call quenta_rt_init once, and let it return before any other thread calls the library. Then any number of threads
 *   may call any solver at once. Threads need no preparation, and there is no function for shutting down. A
 *   sample-based solver or quenta_gc_collect that is called before quenta_rt_init has undefined results; on Linux it
 *   ends the process by a segmentation fault. The functions that only report limits or settings, and the block solvers,
 *   do not need quenta_rt_init.
 *
 * Fork
 *   The child may call every function, whatever other threads were doing in the library at the time of the fork. If the
 *   library was initialized before the fork, it is initialized in the child. If the fork came before or during
 *   quenta_rt_init, the child must call quenta_rt_init itself. A solve that was running on another thread does not
 *   exist in the child, but its memory stays allocated. A handler of pthread_atfork may call the library in the child
 *   if it was registered after quenta_rt_init. vfork, _Fork and clone run no such handlers. After these the child may
 *   only call exec.
 *
 * Rules for all arguments
 *   1. Order: input arrays, then sizes, then scalars and the collocation scheme, then flags, then output arrays. In the
 *      block solvers the sizes are where the declarations show them.
 *   2. All arrays belong to the caller. The library keeps no pointer after it returns, and neither reads nor writes
 *      outside the stated sizes.
 *   3. double is the 64-bit IEEE type, and int has 32 bits. Flags are ints: zero means no, any other value means yes.
 *   4. Samples are on one uniform grid: sample i is at t_i = i * dt, for i = 0 .. N-1. Kernel sample i is the kernel at
 *      lag t_i. Times have the unit of dt.
 *   5. Input values are not examined. NaN and infinity propagate to the output by the IEEE rules and are not errors,
 *      except that a system with an infinite pivot counts as singular. A weight of zero is multiplied like any other,
 *      so a NaN under a zero weight appears in the output. The sign and the payload of a NaN are not specified. All
 *      other results are bit-identical on every processor of a platform.
 *   6. Solvers calculate in the default floating-point mode (round to nearest, subnormals kept, no traps), whatever the
 *      mode of the calling thread is, and restore that mode.
 *
 * Return values
 *   A solver returns QUENTA_SOLVED, QUENTA_UNSUPPORTED_SETTING, QUENTA_SINGULAR_BLOCK or QUENTA_SIZE_OVERFLOW. Nothing
 *   is written unless the status is QUENTA_SOLVED, except by the block solvers, which write the results of the steps
 *   before a singular one. The library is fully usable after every status.
 *
 *   The linear system of a step is solved by Gaussian elimination with partial pivoting. It is singular to rounding if
 *   a pivot is at most n * 2^-52 times the largest pivot so far, including itself, where n is the order of the system.
 *   The scale of later unknowns is not considered, so the result depends on the order of the unknowns: diag(1, 1e-17)
 *   is singular, diag(1e-17, 1) is not.
 *
 * Errors that are not reported as a status
 *   Contradictory arguments are fatal: the function throws a C++ exception, which terminates a process that does not
 *   catch it. The exception derives from std::exception. If N is too small for the scheme, what() contains the index,
 *   the length and the place in the library. The other exceptions contain no place: the one for a negative N in
 *   quenta_solve_vie2 and quenta_solve_vide, std::length_error for most negative D, and std::bad_alloc when memory runs
 *   out. All memory is released before the exception leaves the function. In the solvers for vectors, a negative N has
 *   undefined results if N*D in 32 bits is above 0. A scheme with m = 0 (or any m whose square is 0 in 32 bits)
 *   terminates the process by the platform's arithmetic fault. After an exception or a fault the output is undefined.
 *   Null pointers are not checked unless stated.
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

/* The status that a solver returns. */
enum {
    QUENTA_SOLVED = 0,              /* the solution is written */
    QUENTA_UNSUPPORTED_SETTING = 1, /* the table has no such scheme (m, list); a size out of range */
    QUENTA_SINGULAR_BLOCK = 2,      /* the linear system of a step is singular */
    QUENTA_SIZE_OVERFLOW = 3        /* a size does not fit a signed 32-bit index */
};

/* ---- Initialization and memory -------------------------------------------------------------------------------- */

/* Initializes the library. Call it once, and let it return before any thread calls a sample-based solver or
 * quenta_gc_collect. Further calls have no effect.
 *
 * Returns 1 if the library is initialized, 0 if the initialization failed.
 * Threads: the first call takes no lock, so no other thread may be inside the library.
 */
QUENTA_API int quenta_rt_init(void);

/* Returns memory that the heap still holds from finished solves to the system, where the platform supports that. It
 * never affects a solve that is running. Needs quenta_rt_init.
 *
 * Any number of threads may call at once, and any number of solves may run at the same time.
 */
QUENTA_API void quenta_gc_collect(void);

/* ---- Limits: constants, available before quenta_rt_init and from any thread ----------------------------------- */

/* Always 0: the library uses its own dense algebra. */
QUENTA_API int quenta_have_lapack(void);

/* The largest number of nodes of a collocation scheme: 5. */
QUENTA_API int quenta_max_coll_params(void);

/* The largest number of points per step in the block solvers: 5. */
QUENTA_API int function_solve_max_p(void);

/* The largest dimension in the block solvers: 8. */
QUENTA_API int function_solve_max_d(void);

/* The number of collocation schemes in the table: 56. */
QUENTA_API int quenta_num_supported_settings(void);

/* ---- Collocation schemes ------------------------------------------------------------------------------------- */

/* The table of the collocation schemes (m; nodes), which the names of functions and statuses call settings. For m = 1,
 * 2, 3, 4 it contains every non-empty subset k_1 < .. < k_count of 0 .. m, shorter subsets first. A scheme has the
 * collocation parameters c_j = k_j / m in a step of length h = m * m * dt.
 *
 * Out  settings[336]   row r at settings[6*r]: m, then the node indices in ascending order, then -1 up to 6 ints
 *
 * May be called before quenta_rt_init. Any number of threads may call at once.
 */
QUENTA_API void quenta_get_supported_settings(int* settings);

/* ---- Sample-based solvers ------------------------------------------------------------------------------------ */

/* Second kind, scalar:  y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.
 *
 * Piecewise polynomial collocation. On each step of length h = m * m * dt the solution is the polynomial of degree
 * count - 1 through its values at the nodes t_n + c_j h. Both integrals, over the current step and over the previous
 * steps, are replaced by the interpolatory quadrature rule on these nodes (H. Brunner, Collocation Methods for Volterra
 * Integral and Related Functional Differential Equations, Cambridge University Press 2004, chapter 2). The polynomials
 * of adjacent steps need not join. The cost grows like steps * log(steps)^2. All 56 schemes are accepted.
 *
 * In   g[N], K[N]       forcing at t_i, in the unit of y, and kernel at lag t_i, in the unit of 1/time
 *      N                number of samples: m*m + 1 for one step, k*m*m + 1 for k steps. N must be at least 1, and more
 *                       than the largest k_i * (m - k_q) over the nodes of the scheme, so that the kernel samples of
 *                       the first step exist. A smaller N is fatal.
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a collocation scheme, from quenta_get_supported_settings. list is not read if the table has
 *                       no scheme with this m and this count.
 *      want_coeffs      non-zero: also fill coeffs
 * Out  out[N]           y(t_i); at a step boundary the mean of the two one-sided values; 0.0 past the last whole step
 *      coeffs[(count+1)*steps]   with want_coeffs: the coefficient of power j of s = (t - t_n) / h, 0 <= s <= 1, in
 *                       step n is at n*(count+1) + j, for j = 0 .. count-1; the element j = count of each step is not
 *                       written. Without want_coeffs it is not accessed and may be null. With want_coeffs a null
 *                       pointer is fatal if there is a step.
 *      n_steps          steps = (N-1) / (m*m), rounded down. If steps*m*m < N-1, the samples past steps*m*m are not
 *                       used, and the status is still QUENTA_SOLVED.
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if (count+1)*steps > 2147483647 or (count+1)*(count+1) > 2147483647, checked first;
 *      QUENTA_UNSUPPORTED_SETTING if the table has no scheme (m, list);
 *      QUENTA_SINGULAR_BLOCK if the linear system of a step is singular to rounding, or has an infinite pivot. The
 *      matrix is the same in every step; it is not examined if there is no step.
 * Memory, for P = count: up to 3 P*P + 11 P + 8 doubles per step, plus 32 P*(P + 7), and 64 KiB of stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vie2(const double* g, const double* K, int N, double dt, int m, const int* list, int count,
                                 int want_coeffs, double* out, double* coeffs, int* n_steps);

/* Second kind, for vectors of D components:  y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.
 *
 * The scheme of quenta_solve_vie2, with a vector at each point and a matrix for each kernel sample. With D = 1 the
 * results are bit-identical to those of quenta_solve_vie2.
 *
 * In   g[N*D]           forcing: component r at t_i is at i*D + r
 *      K[N*D*D]         kernel: entry (r, c) at lag t_i is at i*D*D + r*D + c
 *      N                number of samples, as in quenta_solve_vie2
 *      D                dimension of y; 1 to 8 are the fastest. D = 0 terminates the process by the arithmetic fault;
 *                       a negative D has undefined results.
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a collocation scheme
 *      want_coeffs      non-zero: also fill coeffs
 * Out  out[N*D]         y(t_i): component r is at i*D + r; at a step boundary the mean of the two one-sided values; 0.0
 *                       past the last whole step
 *      coeffs[(count+1)*D*steps]   with want_coeffs: the coefficient of power j of s in step n, component r, is at
 *                       (n*(count+1) + j)*D + r, for j = 0 .. count-1; the elements j = count of each step are not
 *                       written. May be null as in quenta_solve_vie2.
 *      n_steps          steps = (N-1) / (m*m), rounded down
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if N*D*D, (count+1)*D*steps or ((count+1)*D) squared > 2147483647, checked first;
 *      QUENTA_UNSUPPORTED_SETTING if the table has no scheme (m, list);
 *      QUENTA_SINGULAR_BLOCK as in quenta_solve_vie2.
 * Memory, for n = count * D: up to 3 n*n + 11 n + 8 doubles per step, plus 32 n*(n + 7), and 128 KiB of stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vie2_vec(const double* g, const double* K, int N, int D, double dt, int m, const int* list,
                                     int count, int want_coeffs, double* out, double* coeffs, int* n_steps);

/* First kind, for vectors of D components:  integral from 0 to t of K(t - s) y(s) ds = g(t).
 *
 * Collocation as in quenta_solve_vie2, with this equation imposed at the nodes (Brunner, chapter 2). There are two
 * forms. In the discontinuous form the polynomial of a step is determined by its values at the nodes, and y0 is not
 * read. Schemes with the node 0 are singular. In the continuous form the polynomial has the additional node 0, where it
 * starts from the end value of the previous step, initially y0. With many schemes the errors of the continuous form
 * grow from step to step until they overflow, and the status is QUENTA_SOLVED. They stay bounded only with these
 * schemes: m = 1, 2, 3 or 4 with the node m alone; m = 3 with 1, 2, 3; m = 4 with 1, 2, 4 or 1, 3, 4. With a scheme
 * that contains the node 0, the continuous form has no basis, and the result is NaN.
 *
 * Equations of the first kind are ill-posed: noise in g is differentiated. Three schemes that amplify every error are
 * refused: m = 3 with node 1, m = 4 with node 1, and m = 4 with nodes 1, 2.
 *
 * In   g[N*D]           forcing: component r at t_i is at i*D + r
 *      K[N*D*D]         kernel: entry (r, c) at lag t_i is at i*D*D + r*D + c; K y has the unit of g/time
 *      N                number of samples, as in quenta_solve_vie2
 *      D                dimension of y; 1 to 8 are the fastest. In the continuous form a D below 1 is fatal. In the
 *                       discontinuous form D = 0 terminates the process by the arithmetic fault, and a negative D has
 *                       undefined results.
 *      y0[D]            y at t = 0, read only with continuous
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a collocation scheme
 *      want_coeffs      non-zero: also fill coeffs
 *      continuous       non-zero: the continuous form
 * Out  out[N*D]         y(t_i): component r is at i*D + r; at a step boundary the mean of the two one-sided values; 0.0
 *                       past the last whole step
 *      coeffs[(count+1)*D*steps]   with want_coeffs: the coefficient of power j of s in step n, component r, is at
 *                       (n*(count+1) + j)*D + r. The continuous form writes j = 0 .. count; the discontinuous form
 *                       does not write j = count. May be null as in quenta_solve_vie2.
 *      n_steps          steps = (N-1) / (m*m), rounded down
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if N*D*D, (count+1)*D*steps or ((count+1)*D) squared > 2147483647, checked first;
 *      QUENTA_UNSUPPORTED_SETTING if (m, list) is one of the three refused schemes or not in the table;
 *      QUENTA_SINGULAR_BLOCK as in quenta_solve_vie2.
 * Memory, for n = count * D: up to 3 n*n + 11 n + D + 8 doubles per step, plus 32 n*(n + 7), and 128 KiB of stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vie1_vec(const double* g, const double* K, int N, int D, const double* y0, double dt, int m,
                                     const int* list, int count, int want_coeffs, int continuous, double* out,
                                     double* coeffs, int* n_steps);

/* First kind, scalar: quenta_solve_vie1_vec with D = 1, and y0 passed by value. */
QUENTA_API int quenta_solve_vie1(const double* g, const double* K, int N, double y0, double dt, int m, const int* list,
                                 int count, int want_coeffs, int continuous, double* out, double* coeffs, int* n_steps);

/* Integro-differential, scalar:  y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s) ds, with y(0) = y0.
 *
 * Collocation (Brunner, chapter 3). On each step of length h = m * m * dt the derivative is the polynomial of degree
 * count - 1 through its values at the nodes t_n + c_j h, where the equation is imposed. The solution is its integral, a
 * polynomial of degree count that starts from the end value of the previous step. The integrals of the equation are
 * replaced as in quenta_solve_vie2, and the cost grows in the same way. All 56 schemes are accepted: m = 1 with node 0
 * is the explicit Euler method, m = 1 with node 1 the implicit one.
 *
 * In   g[N], K[N]       forcing at t_i, in the unit of y/time, and kernel at lag t_i, in the unit of 1/time squared
 *      a[N]             coefficient at t_i, in the unit of 1/time
 *      N                number of samples: m*m + 1 for one step, k*m*m + 1 for k steps. N must be at least 1, and more
 *                       than the largest k_i * (m - k_q) over the nodes of the scheme, so that the kernel samples of
 *                       the first step exist. A smaller N is fatal.
 *      y0               y at t = 0
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a collocation scheme, from quenta_get_supported_settings. list is not read if the table has
 *                       no scheme with this m and this count.
 *      want_coeffs      non-zero: also fill coeffs
 * Out  out[N]           y(t_i); out[0] is y0 if there is a step; at a step boundary the mean of the values of the two
 *                       polynomials, which differ by rounding; 0.0 past the last whole step
 *      coeffs[(count+1)*steps]   with want_coeffs: the coefficient of power j of s = (t - t_n) / h, 0 <= s <= 1, in
 *                       step n is at n*(count+1) + j, for j = 0 .. count. Without want_coeffs it is not accessed and
 *                       may be null. With want_coeffs a null pointer is fatal if there is a step.
 *      n_steps          steps = (N-1) / (m*m), rounded down. If steps*m*m < N-1, the samples past steps*m*m are not
 *                       used, and the status is still QUENTA_SOLVED.
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if (count+1)*steps > 2147483647 or (count+1)*(count+1) > 2147483647, checked first;
 *      QUENTA_UNSUPPORTED_SETTING if the table has no scheme (m, list);
 *      QUENTA_SINGULAR_BLOCK if the linear system of a step is singular to rounding, or has an infinite pivot.
 * Memory, for P = count: up to 3 P*P + 14 P + 14 doubles per step, plus 1700, and 64 KiB of stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vide(const double* g, const double* K, const double* a, int N, double y0, double dt, int m,
                                 const int* list, int count, int want_coeffs, double* out, double* coeffs,
                                 int* n_steps);

/* Integro-differential, for vectors of D components:  y'(t) = a(t) y(t) + g(t) + integral from 0 to t of K(t - s) y(s)
 * ds, with y(0) = y0.
 *
 * The scheme of quenta_solve_vide, with a vector at each point and a matrix for each sample of K and of a. The results
 * for D = 1 agree with those of quenta_solve_vide to rounding, but not bit for bit. Dimensions up to 8 also round
 * differently from larger ones.
 *
 * In   g[N*D]           forcing: component r at t_i is at i*D + r
 *      K[N*D*D]         kernel: entry (r, c) at lag t_i is at i*D*D + r*D + c
 *      a[N*D*D]         coefficient: entry (r, c) at t_i is at i*D*D + r*D + c
 *      N                number of samples, as in quenta_solve_vide
 *      D                dimension of y; 1 to 8 are the fastest. D = 0 terminates the process by the arithmetic fault;
 *                       a negative D has undefined results.
 *      y0[D]            y at t = 0
 *      dt               spacing of the samples, in the unit of t; not examined
 *      m, list[count]   a collocation scheme
 *      want_coeffs      non-zero: also fill coeffs
 * Out  out[N*D]         y(t_i): component r is at i*D + r; otherwise as in quenta_solve_vide
 *      coeffs[(count+1)*D*steps]   with want_coeffs: the coefficient of power j of s in step n, component r, is at
 *                       (n*(count+1) + j)*D + r, for j = 0 .. count. May be null as in quenta_solve_vide.
 *      n_steps          steps = (N-1) / (m*m), rounded down
 * Returns QUENTA_SOLVED;
 *      QUENTA_SIZE_OVERFLOW if N*D*D, (count+1)*D*steps or ((count+1)*D) squared > 2147483647, checked first;
 *      QUENTA_UNSUPPORTED_SETTING if the table has no scheme (m, list);
 *      QUENTA_SINGULAR_BLOCK as in quenta_solve_vide.
 * Memory, for n = count * D: up to 3 n*(n + D) + 11 n + 6 D + 8 doubles per step, plus 34 (n + D)*(n + 7), and 128 KiB
 *      of stack.
 * Any number of threads may call at once. Needs quenta_rt_init.
 */
QUENTA_API int quenta_solve_vide_vec(const double* g, const double* K, const double* a, int N, int D, const double* y0,
                                     double dt, int m, const int* list, int count, int want_coeffs, double* out,
                                     double* coeffs, int* n_steps);

/* ---- Block solvers ------------------------------------------------------------------------------------------- */

/* For kernels of any form. The caller assembles the coefficients of a collocation scheme (Brunner, chapters 2 and 3).
 * The block solvers solve the resulting lower block-triangular system by forward recursion, with one small dense system
 * per step. They do not know the kernel or the nodes, do not need quenta_rt_init, allocate nothing, and are pure
 * functions of their arguments.
 *
 * Notation
 *   N         number of steps, at least 1
 *   P         number of points per step, which carry its unknowns: 1 to 5
 *   D         number of components of an unknown: 1 to 8 in the functions for vectors (_vec), 1 in the others
 *   n, k      steps; i, j: points of a step; r, c: components. All start at 0. n, i, r belong to rows, k, j, c to
 *             columns.
 *   vectors   component r of point i of step n is at (n*P + i)*D + r
 *   A         a row-major table of matrices. It has one row for each point. A row has s slots for each step, and each
 *             slot contains a D by D matrix, itself row-major. Entry (r, c) for point i of step n and slot j of step k
 *             is at A[((n*P + i) * (N*s) + k*s + j)*D*D + r*D + c], with s = P unless stated otherwise. For D > 1 this
 *             is not the row-major matrix of the whole system, since the matrix of a slot is contiguous. Slots of steps
 *             k > n are never read and may contain anything. A may have more than 2147483647 elements.
 *
 * Each returns QUENTA_SOLVED;
 *      QUENTA_UNSUPPORTED_SETTING if N, P or D is out of range; nothing is read or written;
 *      QUENTA_SINGULAR_BLOCK if the linear system of a step n is singular to rounding, or has an infinite pivot. The
 *      results of the steps before n are written and final, and so is y[n] where there is a y. The rest is unchanged.
 * Each uses up to 32 KiB of stack. The cost grows like the square of N: A up to the diagonal is read once.
 * Any number of threads may call at once. With D = 1 the integro-differential solver for vectors rounds differently
 * from the scalar one; the other solvers for vectors agree with the scalar ones except for the sign of a zero.
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

/* First kind with a value that is carried from step to step. The equations of step n also contain y[k] for k = 0 .. n:
 *
 *   sum over k = 0 .. n of (A[n, slots 0 .. P-1 of k] x[k] + A[n, slot P of k] y[k]) = b[n],
 *   y[n+1] = rho y[n] + sum over j of w[j] x[n,j].
 *
 * In   A[N*P*D * N*(P+1)*D]   coefficients, with s = P + 1 slots per step: those of the points, then that of y
 *      b[N*P*D]         right-hand side
 *      w[P], rho        the rule for the carried value, the same for every step and component
 *      y0, y0[D]        y[0]
 * Out  x[N*P*D]         values at the points
 *      y[(N+1)*D]       carried values: component r of y[n] is at n*D + r
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

/* Integro-differential equation, on steps of any lengths. The unknowns x are the derivatives at the points:
 *
 *   x[n,i] = b[n,i] + C[n,i] (y[n] + h[n] * sum over j of E[i*P + j] x[n,j])
 *            + sum over k = 0 .. n of (A[(n,i), slot P of k] y[k] + h[k] * sum over j of A[(n,i), slot j of k] x[k,j]),
 *   y[n+1] = y[n] + h[n] * sum over j of w[j] x[n,j].
 *
 * In   A[N*P*D * N*(P+1)*D]   coefficients of the integral, with s = P + 1 slots per step: those of the derivatives at
 *                       the points, without the step length, then that of y[k]
 *      b[N*P*D]         forcing at the points
 *      C[N*P*D*D]       coefficient of y: entry (r, c) at point i of step n is at (n*P + i)*D*D + r*D + c
 *      E[P*P]           weight of the derivative at point j in y at point i, relative to the step length: at i*P + j
 *      w[P]             weights of the derivatives in y at the end of the step, relative to the step length
 *      h[N]             step lengths; not examined
 *      y0, y0[D]        y[0]
 * Out  x[N*P*D]         derivatives at the points
 *      y[(N+1)*D]       y at the ends of the steps: component r of y[n] is at n*D + r
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
