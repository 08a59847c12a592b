#pragma once

#include "quenta_solvers/quenta_native.h"

namespace quenta {

// The return values of the exported solvers. The variants return a bool: true is solved, false is a singular block.
inline constexpr int status_solved = QUENTA_SOLVED;
inline constexpr int status_unsupported_setting = QUENTA_UNSUPPORTED_SETTING;
inline constexpr int status_singular_block = QUENTA_SINGULAR_BLOCK;
inline constexpr int status_size_overflow = QUENTA_SIZE_OVERFLOW;

} // namespace quenta
