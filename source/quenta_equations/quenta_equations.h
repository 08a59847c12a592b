/* quenta_equations: solvers for Volterra equations that are given as functions.
 *
 *   second kind            y(t)  = g(t)       + M(t)
 *   first kind             M(t)  = g(t)
 *   integro-differential   y'(t) = f(t, y(t)) + M(t),   y(0) = y0
 *
 * on 0 <= t <= t_end, where y and g have D components and the memory M is a sum of any number of terms,
 *
 *   M(t) = sum over terms r of   integral from 0 to t of   (t - s)^-alpha_r K_r(t, s) phi_r(s, y(s)) ds
 *          or, for a delay term, of   w_r(t) phi_r(t - tau_r, y(t - tau_r)),   tau_r > 0.
 *
 * K_r and w_r have D rows and E_r columns, phi_r has E_r components. phi_r(s, y) = y unless it is given. The functions
 * K_r are smooth on 0 <= s <= t; they are never evaluated at s > t. Each term has its own singularity, 0 <= alpha_r
 * < 1. With alpha_r > 0 its kernel is infinite at s = t; the factor is integrated exactly.
 *
 * The solvers use piecewise polynomial collocation on any mesh (H. Brunner, Collocation Methods for Volterra Integral
 * and Related Functional Differential Equations, Cambridge University Press 2004, chapters 2 to 4, 6 and 7). With n
 * steps and P nodes they evaluate each K_r at n * (n - 1) / 2 * P * P + n * P * P points, in batches, and store O(n)
 * numbers. The functions of a delay term are evaluated at up to n * P points.
 *
 * With 256 or more steps, kernels of the lag are faster. Equal steps at the end of the mesh take P * P evaluations each
 * and n log^2 n operations; all others take a few hundred evaluations each and n operations, unless the kernel varies
 * from step to step. Between those, a part of the kernel that is narrower than 1/1000 of its lag may not be seen; give
 * such a kernel as K(t, s). The sums have errors of about 1e-15 of the largest values of kernel and solution so far. If
 * sums of the memory become so small, in any component, that this may be more than 1e-10 of them, the solve begins
 * again with sums that are accurate relative to each of their terms.
 *
 * Calling order
 *   Create an equation, add its memory terms, solve it, read the solution, destroy both. An equation can be solved any
 *   number of times, and is not changed by a solve. A solution does not depend on the equation. A program that has its
 *   own time stepping needs no equation: it creates a history, asks for the sum of each step, and pushes its values.
 *
 * Rules for all arguments
 *   1. All arrays belong to the caller. Objects are created by the library, and are released only by
 *      quenta_equation_destroy, quenta_solution_destroy and quenta_history_destroy. An array that a function returns
 *      belongs to its object.
 *   2. double is the 64-bit IEEE type, and int has 32 bits.
 *   3. Vectors at several points are stored point by point: component a at point p is at p*D + a. Matrices are stored
 *      by rows: entry (a, c) of a matrix with E columns at point p is at (p*D + a)*E + c.
 *   4. Arguments are checked before anything is done. A function that returns a status of a wrong argument has written
 *      nothing and called nothing. quenta_equations_error_text says in words what was wrong and what was expected.
 *
 * Threads
 *   There is no global state, and no function takes a lock. Any number of threads may solve at once, also the same
 *   equation if its functions allow that. An equation or a history must not be changed while another thread uses it.
 *
 * Results are reproducible: the same values of the functions give the same bits on every processor of a platform. The
 * functions are called in the default floating-point mode (round to nearest, subnormals kept, no traps).
 */
#ifndef QUENTA_EQUATIONS_H
#define QUENTA_EQUATIONS_H

#if defined(_WIN32)
#if defined(QUENTA_EQUATIONS_BUILD)
#define QUENTA_EQUATIONS_API __declspec(dllexport)
#else
#define QUENTA_EQUATIONS_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define QUENTA_EQUATIONS_API __attribute__((visibility("default")))
#else
#define QUENTA_EQUATIONS_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* An equation that can be solved, a solution, and a history. Programs use pointers to them only. */
typedef struct quenta_equation quenta_equation;
typedef struct quenta_solution quenta_solution;
typedef struct quenta_history quenta_history;

/* ---- Status --------------------------------------------------------------------------------------------------- */

/* What a function returns. The statuses from 1 to 5 end a solve that has begun: the solution exists, and contains all
 * steps before the one that failed, or is the best one. With the others, except QUENTA_EQUATION_SOLVED, nothing was
 * written. The functions of histories write nothing unless they return QUENTA_EQUATION_SOLVED. */
enum {
    QUENTA_EQUATION_SOLVED = 0,            /* done; a solution is complete, and meets the tolerance if there is one */
    QUENTA_EQUATION_STOPPED = 1,           /* a function of the caller returned a value other than 0 */
    QUENTA_EQUATION_NOT_FINITE = 2,        /* a function of the caller gave NaN or infinity, or a sum overflowed */
    QUENTA_EQUATION_NO_CONVERGENCE = 3,    /* the nonlinear equations of a step have no solution that can be reached */
    QUENTA_EQUATION_SINGULAR_STEP = 4,     /* the linear system of a step is singular to rounding */
    QUENTA_EQUATION_TOLERANCE_MISSED = 5,  /* the tolerance was not reached; the solution is the best one */
    QUENTA_EQUATION_OUT_OF_MEMORY = 6,     /* memory ran out */
    QUENTA_EQUATION_NULL_POINTER = 8,      /* an argument is null that must not be */
    QUENTA_EQUATION_BAD_DIMENSION = 9,     /* D, E, or the rows or columns of a history are out of range */
    QUENTA_EQUATION_BAD_STEPS = 10,        /* fewer than 1 step, or too many; or max_steps */
    QUENTA_EQUATION_BAD_MESH = 11,         /* the mesh does not start at 0, increase, and end at a finite time */
    QUENTA_EQUATION_BAD_END = 12,          /* t_end is not positive and finite */
    QUENTA_EQUATION_BAD_NODES = 13,        /* not 1 to 5 increasing nodes in [0, 1], or no such family */
    QUENTA_EQUATION_UNSTABLE_NODES = 14,   /* nodes with which a first-kind equation does not converge */
    QUENTA_EQUATION_BAD_SINGULARITY = 15,  /* a singularity is not at least 0 and below 1 */
    QUENTA_EQUATION_BAD_TOLERANCE = 16,    /* rtol or atol is negative or not finite, or both are 0 */
    QUENTA_EQUATION_NO_TERM = 17,          /* there is no memory term, or, for the first kind, no integral */
    QUENTA_EQUATION_COLUMNS_NEED_PHI = 18, /* a term with E other than D has no phi, or a delay term no weight */
    QUENTA_EQUATION_WRONG_KIND = 19,       /* the function is for equations of another kind */
    QUENTA_EQUATION_BAD_TIME = 20,         /* a time is not in the solution */
    QUENTA_EQUATION_BAD_START = 21,        /* y0 or the first guess is not finite */
    QUENTA_EQUATION_BAD_COUNT = 22,        /* a count is negative */
    QUENTA_EQUATION_BAD_BLOCKS = 23,       /* a block of a history is not finite */
    QUENTA_EQUATION_BAD_PUSH = 24,         /* a number that is pushed to a history is not finite */
    QUENTA_EQUATION_NO_STEP_LEFT = 25,     /* all steps of a history are done */
    QUENTA_EQUATION_BAD_DELAY = 26,        /* a delay is not positive and finite */
    QUENTA_EQUATION_STEPS_ABOVE_DELAY = 27 /* a step is longer than the shortest delay, or too many would be needed */
};

/* A sentence that says what a status means and, for a wrong argument, what was expected. A constant. */
QUENTA_EQUATIONS_API const char* quenta_equations_error_text(int status);

/* ---- Equations ------------------------------------------------------------------------------------------------ */

/* The type of all functions of the caller. Each call asks for the values at `count` >= 1 points:
 *
 *   function          t             x                 values
 *   g(t)              t[count]      null              [count*D]
 *   f(t, y)           t[count]      y[count*D]        [count*D]
 *   df/dy(t, y)       t[count]      y[count*D]        [count*D*D]   d f_a / d y_b at (p*D + a)*D + b
 *   K(t, s)           t[count]      s[count]          [count*D*E]
 *   K(lag)            lag[count]    null              [count*D*E]   lag = t - s >= 0
 *   w(t)              t[count]      null              [count*D*E]
 *   past(t)           t[count]      null              [count*D]     t <= 0
 *   phi(s, y)         s[count]      y[count*D]        [count*E]
 *   dphi/dy(s, y)     s[count]      y[count*D]        [count*E*D]   d phi_e / d y_b at (p*E + e)*D + b
 *
 * The points of a call may be in any order. The function must give the same values for the same point whenever it is
 * called. f, phi and their derivatives are also called with values y that are not those of the solution. A function may
 * call the library, but must not change the equation. A value other than 0 ends the solve with QUENTA_EQUATION_STOPPED.
 * This is how a caller handles errors of its own. A function in C++ may also throw: the exception leaves the call of
 * the library, which has released its memory and written nothing. Only std::bad_alloc is returned as
 * QUENTA_EQUATION_OUT_OF_MEMORY. A function must not leave by longjmp. */
typedef int (*quenta_function)(void* context, int count, const double* t, const double* x, double* values);

/* Progress: `done` of `steps` steps are solved. A value other than 0 ends the solve with QUENTA_EQUATION_STOPPED. A
 * solve may begin again, at `done` = 1: see the top of this file, and quenta_equation_solve_to_tolerance. */
typedef int (*quenta_progress)(void* context, int done, int steps);

/* Create an equation without memory terms.
 *
 * In   D        number of components of y
 *      g, f     the forcing, or the right side; f may be null, which means f = 0
 *      context  passed to the function; may be null
 *      y0[D]    the initial value; copied
 * Out  equation the new object
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER, BAD_DIMENSION, BAD_START (y0 is not finite) or OUT_OF_MEMORY. */
QUENTA_EQUATIONS_API int quenta_equation_second_kind(int D, quenta_function g, void* context,
                                                     quenta_equation** equation);
QUENTA_EQUATIONS_API int quenta_equation_first_kind(int D, quenta_function g, void* context,
                                                    quenta_equation** equation);
QUENTA_EQUATIONS_API int quenta_equation_integro_differential(int D, quenta_function f, void* context, const double* y0,
                                                              quenta_equation** equation);

/* Releases an equation. Null is allowed. */
QUENTA_EQUATIONS_API void quenta_equation_destroy(quenta_equation* equation);

/* Add a memory term with the kernel (t - s)^-singularity K, where K is a function of (t, s), or of the lag t - s alone.
 *
 * In   E            number of columns of the kernel; D, unless phi is set
 *      singularity  at least 0 and below 1; 0 for a smooth kernel
 *      kernel       K, without the singular factor
 *      context      passed to the function; may be null
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER, BAD_DIMENSION, BAD_SINGULARITY or OUT_OF_MEMORY. */
QUENTA_EQUATIONS_API int quenta_equation_add_memory(quenta_equation* equation, int E, double singularity,
                                                    quenta_function kernel, void* context);
QUENTA_EQUATIONS_API int quenta_equation_add_lag_memory(quenta_equation* equation, int E, double singularity,
                                                        quenta_function kernel, void* context);

/* Adds a delay term w(t) phi(t - delay, y(t - delay)), where phi(s, y) = y unless it is set.
 *
 * The term is known before the step of t is solved, because steps are at most as long as the shortest delay. Where
 * t - delay is below 0, it is 0 unless quenta_equation_set_past gives y there; phi is not called then.
 *
 * The solution may have jumps or kinks at the breaking points, which are the sums of delays. quenta_equation_solve and
 * quenta_equation_solve_to_tolerance have them in the mesh; a mesh of the caller should. A jump of y is never smoothed
 * in the second kind. In an integro-differential equation y has one derivative more after each delay, and in the first
 * kind one less: if w(delay) y(0) is not 0, a first-kind equation has no bounded solution. A kink of the past adds
 * breaking points that only a mesh of the caller contains.
 *
 * In   E          number of columns of w; D, unless phi is set
 *      delay      above 0, finite
 *      weight     w; null means the unit matrix, and needs E = D
 *      context    passed to the function; may be null
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER (equation), BAD_DIMENSION, BAD_DELAY or OUT_OF_MEMORY. */
QUENTA_EQUATIONS_API int quenta_equation_add_delay(quenta_equation* equation, int E, double delay,
                                                   quenta_function weight, void* context);

/* Sets y before 0, for the delay terms. It need not be equal to y at 0 there.
 * Returns QUENTA_EQUATION_SOLVED or NULL_POINTER. */
QUENTA_EQUATIONS_API int quenta_equation_set_past(quenta_equation* equation, quenta_function past, void* context);

/* Sets phi(s, y) of the term that was added last, which makes the equation nonlinear unless it is a delay term.
 *
 * In   phi         E components
 *      derivative  d phi / dy; may be null: finite differences of phi replace it; not needed by delay terms
 *      context     passed to both
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER or NO_TERM. */
QUENTA_EQUATIONS_API int quenta_equation_set_phi(quenta_equation* equation, quenta_function phi,
                                                 quenta_function derivative, void* context);

/* Sets d f / dy of an integro-differential equation. Without it finite differences of f are used.
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER or WRONG_KIND. */
QUENTA_EQUATIONS_API int quenta_equation_set_jacobian(quenta_equation* equation, quenta_function jacobian,
                                                      void* context);

/* Sets where the first step of a nonlinear first-kind equation starts its iteration, y[D]; 0 unless set. The other
 * kinds start from g or y0, and ignore it.
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER or BAD_START (y is not finite). */
QUENTA_EQUATIONS_API int quenta_equation_set_first_guess(quenta_equation* equation, const double* y);

/* Sets a function that is called after every step of a solve; null removes it.
 * Returns QUENTA_EQUATION_SOLVED or NULL_POINTER (equation). */
QUENTA_EQUATIONS_API int quenta_equation_set_progress(quenta_equation* equation, quenta_progress progress,
                                                      void* context);

/* ---- Solving -------------------------------------------------------------------------------------------------- */

/* The largest D and the largest E: 1000. The largest P: 5. */
QUENTA_EQUATIONS_API int quenta_equation_max_dimension(void);
QUENTA_EQUATIONS_API int quenta_equation_max_nodes(void);

/* Families of nodes in [0, 1]. Orders of the error at the end of the steps, for smooth second-kind and
 * integro-differential equations: Radau IIA 2 P - 1, Lobatto 2 P - 2, Gauss 2 P (second kind: of the iterated values).
 * Between the nodes the order is P or, for an integro-differential equation, P + 1, but not above that at the end.
 * With a singularity alpha > 0, on the steps that the library chooses: P + 1 - alpha at the nodes, P between them. */
enum { QUENTA_RADAU = 0, QUENTA_GAUSS = 1, QUENTA_LOBATTO = 2 };

/* Writes the P nodes of a family: P from 1 to 5, for Lobatto from 2.
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER or BAD_NODES. */
QUENTA_EQUATIONS_API int quenta_equation_nodes(int family, int P, double* nodes);

/* Solve an equation on 0 .. t_end with so many steps, or on the steps of a mesh.
 *
 * The steps of quenta_equation_solve are equal unless a term is singular. Then the solution behaves like t^beta near
 * 0, beta = 1 - alpha (first kind: alpha), where alpha is the largest singularity, and the first J steps are graded:
 * they end at T (j / J)^r, r = P / beta. J is half of the steps, or up to 3/4 if beta is small. The other steps are
 * equal, and as long as the last graded one. With equal steps alone, the errors would decrease like h^beta.
 *
 * With delay terms this is the mesh of each piece between two breaking points, and each piece has at least one step. So
 * the solution may have more steps than were asked for. All are equal if t_end and the delays are multiples of one
 * step. If all delays are multiples of the shortest one, the errors at the mesh points have the orders above. Otherwise
 * they have the order between the nodes.
 *
 * In   t_end          above 0, finite
 *      steps          from 1 to 100000000
 *      mesh[steps+1]  0 = mesh[0] < mesh[1] < .. < mesh[steps], finite; no step longer than the shortest delay
 *      nodes[P]       0 <= nodes[0] < .. < nodes[P-1] <= 1, P from 1 to 5; null means the P nodes of Radau IIA; if P
 *                     is 0, 3 nodes, or 5 if a term is singular. A first-kind equation needs nodes[0] > 0, and without
 *                     a singularity it converges only if the product of (1 - c) / c over all nodes c is at most 1
 *                     (Brunner 2004, theorem 2.4.2), which is checked. With a singularity these nodes converge too.
 * Out  solution       a new object, also if the status is from 1 to 5; then it contains the steps that were solved
 * Returns QUENTA_EQUATION_SOLVED, STOPPED, NOT_FINITE, NO_CONVERGENCE, SINGULAR_STEP, OUT_OF_MEMORY, or the status of
 *      a wrong argument. After OUT_OF_MEMORY nothing was written.
 * No step may be shorter than the smallest normal number, 2.3e-308. With delay terms, steps at breaking points may be
 * shorter than t_end / steps by a factor of 3e-14. */
QUENTA_EQUATIONS_API int quenta_equation_solve(const quenta_equation* equation, double t_end, int steps,
                                               const double* nodes, int P, quenta_solution** solution);
QUENTA_EQUATIONS_API int quenta_equation_solve_on_mesh(const quenta_equation* equation, const double* mesh, int steps,
                                                       const double* nodes, int P, quenta_solution** solution);

/* Solves an equation to a tolerance, on the mesh of quenta_equation_solve. It takes 8, 16, 32, .. steps, or more if
 * there are more breaking points, until, at every time and in every component, the estimated error of the returned
 * polynomials is at most atol + rtol * |y(t)| or, with atol = 0, at most rtol times the largest |y| of the component.
 * The estimate is the difference of two successive solutions, extrapolated by the observed order, or the jumps of the
 * polynomials at the mesh points if they are larger. A solution is accepted only if the differences decrease with an
 * order of at least 0.4 or are rounding errors, and if it has at least 300 nodes in steps that are not graded, so that
 * features of g and K as narrow as t_end / 200 are seen. With fewer nodes it is accepted only if max_steps allows no
 * more.
 *
 * A solve that cannot reach the tolerance ends early: if by the observed order it needs far more than max_steps, if the
 * differences no longer decrease, or if the solves fail at the same time again and again.
 *
 * In   t_end      above 0, finite
 *      rtol       at least 0, finite
 *      atol       at least 0, finite; not both 0
 *      max_steps  the most steps to be tried, from 64 to 100000000; 0 means 16384; with delay terms at least 8 for each
 *                 piece between two breaking points
 *      nodes[P]   as above, except that null with P = 0 means the 5 nodes of Radau IIA
 * Out  solution   as above
 * Returns as above, or TOLERANCE_MISSED: the solution is the one with the most steps, or an earlier one if rounding has
 *      made that worse. A function of the caller that stops the solve, or a solve that fails, leaves the steps of the
 *      present attempt. */
QUENTA_EQUATIONS_API int quenta_equation_solve_to_tolerance(const quenta_equation* equation, double t_end, double rtol,
                                                            double atol, int max_steps, const double* nodes, int P,
                                                            quenta_solution** solution);

/* ---- Solutions ------------------------------------------------------------------------------------------------ */

/* A solution is a polynomial on each step: of degree P - 1 through its values at the nodes or, for an
 * integro-differential equation, of degree P and continuous. */

/* Releases a solution. Null is allowed. */
QUENTA_EQUATIONS_API void quenta_solution_destroy(quenta_solution* solution);

/* The number of steps it contains, and D. This and the arrays below are 0 and null for a null solution. */
QUENTA_EQUATIONS_API int quenta_solution_steps(const quenta_solution* solution);
QUENTA_EQUATIONS_API int quenta_solution_dimension(const quenta_solution* solution);

/* The mesh points [steps+1], and y there [(steps+1)*D]: at the end of each step and, at 0, y0 or g(0) with the delay
 * terms at 0. At a jump this is the value before it. For the first kind, and if g(0) is not finite, the value at 0 is
 * that of the first polynomial. They belong to the solution. */
QUENTA_EQUATIONS_API const double* quenta_solution_mesh(const quenta_solution* solution);
QUENTA_EQUATIONS_API const double* quenta_solution_values(const quenta_solution* solution);

/* The estimate of the largest error of each component, [D], if the solve was to a tolerance; otherwise null. It is
 * infinite if there is none, because the solve failed or ended before two solutions could be compared. */
QUENTA_EQUATIONS_API const double* quenta_solution_error(const quenta_solution* solution);

/* Evaluate the polynomials, or their derivatives, at any times in the solution; at a mesh point that of the step
 * before.
 *
 * In   count, t[count]   0 <= t <= the last mesh point
 * Out  y[count*D], dy[count*D]
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER, BAD_COUNT (below 0) or BAD_TIME. */
QUENTA_EQUATIONS_API int quenta_solution_evaluate(const quenta_solution* solution, int count, const double* t,
                                                  double* y);
QUENTA_EQUATIONS_API int quenta_solution_derivative(const quenta_solution* solution, int count, const double* t,
                                                    double* dy);

/* The iterated solution of a second-kind equation, g(t) + M(t) with the polynomials in M, which keeps the order of the
 * nodes at all times. Each time needs the kernels at all nodes before it. Delay terms take y(t - delay) from the
 * polynomials, and have their order.
 *
 * In   equation          the one that was solved
 *      count, t[count]   as above
 * Out  y[count*D]
 * Returns as above, or STOPPED, NOT_FINITE, WRONG_KIND, COLUMNS_NEED_PHI (equation), OUT_OF_MEMORY. Nothing is written
 *      unless SOLVED. */
QUENTA_EQUATIONS_API int quenta_solution_iterate(const quenta_solution* solution, const quenta_equation* equation,
                                                 int count, const double* t, double* y);

/* ---- Histories ------------------------------------------------------------------------------------------------ */

/* The sums over the previous steps of a convolution, for a program that has its own time stepping:
 *
 *   sum_n = sum over k = 0 .. n-1 of   block(n - k) x_k,   n = 0 .. steps-1.
 *
 * block(lag) is a matrix of `rows` rows and `columns` columns. x_k becomes known in step k, and may depend on sum_k. In
 * each step n the program asks for sum_n, calculates x_n, and pushes it. A term of lag 0 is left to the program.
 *
 * All n steps together take about n * log(n)^2 * rows * columns operations. Most pushes are short; those after which
 * the number of steps done is divisible by a large power of two take longer.
 *
 * The sums are computed directly and by fast Fourier transforms. Their errors are a few rounding errors of the largest
 * entry of a block times the sum of all |x_k|. A sum that is much smaller than that has a larger relative error. A
 * transform spreads NaN and infinity to other sums, so blocks and pushed numbers must be finite.
 *
 * Memory, in doubles: up to 5/2 * columns * (rows + 1) + rows + columns + 1 per step, and 64 * (rows + 2) *
 * (columns + 2) + 2048. All of it is allocated at the creation, which from a function needs rows * columns more per
 * step. Sums and pushes allocate nothing. */

/* Writes the block of a lag: entry (r, c) at block[r*columns + c]. All entries are 0 before the call. A value other
 * than 0 ends the creation with QUENTA_EQUATION_STOPPED. Exceptions are handled as those of a quenta_function. */
typedef int (*quenta_block_function)(void* context, int lag, double* block);

/* Create a history from its blocks, which are copied, or from a function that writes one block at a time. The function
 * is called once for each lag from 1 to steps - 1, in ascending order, and never after the creation.
 *
 * In   rows, columns   of a block, from 1 to 10000
 *      steps           from 1 to 100000000
 *      blocks[(steps-1)*rows*columns]   entry (r, c) of the block of a lag at ((lag - 1)*rows + r)*columns + c; may
 *                      have more than 2147483647 elements; may be null if steps is 1
 *      function        writes a block; may not be null
 *      context         passed to the function; may be null
 * Out  history         the new object
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER, BAD_DIMENSION, BAD_STEPS, BAD_BLOCKS (a number in blocks is NaN or
 *      infinite), STOPPED, NOT_FINITE (the function wrote NaN or infinity) or OUT_OF_MEMORY. */
QUENTA_EQUATIONS_API int quenta_history_from_blocks(int rows, int columns, int steps, const double* blocks,
                                                    quenta_history** history);
QUENTA_EQUATIONS_API int quenta_history_from_function(int rows, int columns, int steps, quenta_block_function function,
                                                      void* context, quenta_history** history);

/* Releases a history. Null is allowed. */
QUENTA_EQUATIONS_API void quenta_history_destroy(quenta_history* history);

/* The number of steps that are done, which is the number of pushes; 0 for a null history. */
QUENTA_EQUATIONS_API int quenta_history_steps_done(const quenta_history* history);

/* Writes the sum of the present step n, where n is the number of steps done. In the first step it is 0. It can be asked
 * for any number of times, or not at all.
 *
 * Out  sum[rows]
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER, NO_STEP_LEFT (all steps are done) or NOT_FINITE (the sum overflowed, or
 *      a number in a transform that contributes to it). */
QUENTA_EQUATIONS_API int quenta_history_sum(const quenta_history* history, double* sum);

/* Ends the present step n: x is x_n. The last step can also be ended; no sum follows it.
 *
 * In   x[columns]      finite; copied
 * Returns QUENTA_EQUATION_SOLVED, NULL_POINTER, NO_STEP_LEFT (all steps are done) or BAD_PUSH (a number is NaN or
 *      infinite). Unless it is SOLVED, the history is as before. */
QUENTA_EQUATIONS_API int quenta_history_push(quenta_history* history, const double* x);

#ifdef __cplusplus
}
#endif

#endif
