// What the library assumes about the platform, checked by the compiler.
#pragma once

#include <cfloat>
#include <cstdint>
#include <limits>

namespace quenta {

#if defined(__FAST_MATH__) || defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__) || __FINITE_MATH_ONLY__
#error "fast-math options change the order of additions, which the results depend on"
#endif

static_assert(sizeof(int) == 4 && sizeof(double) == 8 && sizeof(void*) == 8, "64-bit machine, 32-bit int");
static_assert(std::numeric_limits<double>::is_iec559, "IEEE 754 doubles");
static_assert(FLT_EVAL_METHOD == 0, "double arithmetic is rounded to double after every operation");
static_assert(-1 == ~0, "two's complement");

} // namespace quenta
