// Compares the block solvers with the reference implementation.
#include "conformance/function_call.hpp"
#include "fuzz/fuzz_input.hpp"

using namespace quenta_tests;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz_input input{data, size};
    block_problem problem{block_kinds[std::size_t(input.below(4))],
                          1 + input.below(40),
                          1 + input.below(5),
                          input.below(9),
                          {},
                          {},
                          {},
                          {},
                          {},
                          {},
                          {}};
    if (problem.N * problem.P * problem.D > 600) // the size of A is its square
        return -1;
    problem.rho = input.real();
    const reference::block_shape shape = problem.shape();
    const std::size_t points = shape.N * shape.P, square = shape.D * shape.D;
    problem.A = input.reals(shape.matrix_length());
    problem.b = input.reals(points * shape.D);
    problem.C = input.reals(points * square);
    problem.E = input.reals(shape.P * shape.P);
    problem.w = input.reals(shape.P);
    problem.h = input.reals(shape.N);
    problem.y0 = input.reals(shape.D);
    EXPECT_TRUE(matches_reference(problem, call_block_solver(problem), block_reference(problem)));
    return 0;
}
