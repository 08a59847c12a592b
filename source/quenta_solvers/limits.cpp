// The constants that the library reports.
#include "quenta_solvers/collocation_settings.hpp"
#include "quenta_solvers/quenta_native.h"

int quenta_have_lapack() {
    return 0;
}

int quenta_max_coll_params() {
    return quenta::max_nodes;
}

// The same number under its name in the other family.
int function_solve_max_p() {
    return quenta::max_nodes;
}

int function_solve_max_d() {
    return 8;
}

int quenta_num_supported_settings() {
    return quenta::supported_setting_count;
}
