// The constants that the library reports.
#include "quenta_solvers/collocation_settings.hpp"
#include "quenta_solvers/quenta_native.h"

int quenta_have_lapack() {
    return 0;
}

int quenta_max_coll_params() {
    return quenta::max_nodes;
}

// The same function under its name in the other family.
#if defined(__APPLE__) // where compilers have no aliases: two functions
int function_solve_max_p() {
    return quenta_max_coll_params();
}
#else
extern "C" int function_solve_max_p() __attribute__((alias("quenta_max_coll_params")));
#endif

int function_solve_max_d() {
    return 8;
}

int quenta_num_supported_settings() {
    return quenta::supported_setting_count;
}
