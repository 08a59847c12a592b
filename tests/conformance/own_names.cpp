// A host defines functions with the names of library functions. The library must still call its own.
#include "quenta_function_solvers/function_solvers.hpp"

#include "quenta_solvers/quenta_native.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

int calls_of_the_host = 0;

extern "C" __attribute__((visibility("default"), used)) int quenta_solve_vie1_vec(const double*, const double*, int,
                                                                                  int, const double*, double, int,
                                                                                  const int*, int, int, int, double*,
                                                                                  double*, int*) {
    ++calls_of_the_host;
    return -1;
}

namespace quenta {

template <>
__attribute__((used)) bool function_solve_vie1_impl<1>(view<const double>, view<const double>, int, view<double>) {
    ++calls_of_the_host;
    return false;
}

} // namespace quenta

namespace quenta_tests {

namespace {

// Otherwise the next tests could not fail.
TEST(names_of_the_host, are_found_before_those_of_the_library) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "quenta_solve_vie1_vec"), reinterpret_cast<void*>(&quenta_solve_vie1_vec));
    const char* const variant = "_ZN6quenta24function_solve_vie1_implILi1EEEbNS_4viewIKdEES3_iNS1_IdEE";
    EXPECT_EQ(dlsym(RTLD_DEFAULT, variant), reinterpret_cast<void*>(&quenta::function_solve_vie1_impl<1>));
}

TEST(names_of_the_host, do_not_replace_a_variant_that_the_library_calls) {
    const double A = 4.0, b = 2.0;
    double x = 0.0;
    EXPECT_EQ(function_solve_vie1(&A, &b, 1, 1, &x), QUENTA_SOLVED);
    EXPECT_EQ(x, 0.5);
    EXPECT_EQ(calls_of_the_host, 0);
}

TEST(names_of_the_host, do_not_replace_an_export_that_the_library_calls) {
    const double g[] = {0.0, 1.0}, K[] = {2.0, 2.0};
    const int nodes[] = {1};
    double out[2] = {};
    int n_steps = 0;
    quenta_rt_init();
    EXPECT_EQ(quenta_solve_vie1(g, K, 2, 0.0, 1.0, 1, nodes, 1, 0, 0, out, nullptr, &n_steps), QUENTA_SOLVED);
    EXPECT_EQ(out[1], 0.5);
    EXPECT_EQ(calls_of_the_host, 0);
}

// Both names have the same address.
TEST(limits, for_points_and_for_nodes_are_one_function) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "function_solve_max_p"), dlsym(RTLD_DEFAULT, "quenta_max_coll_params"));
    EXPECT_NE(dlsym(RTLD_DEFAULT, "function_solve_max_p"), dlsym(RTLD_DEFAULT, "function_solve_max_d"));
}

} // namespace

} // namespace quenta_tests
