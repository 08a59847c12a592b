// The dense solve in every instruction set against its twin.
#include "fuzz/fuzz_input.hpp"
#include "quenta_solvers/dense_kernels.hpp"
#include "reference/dense_solve.hpp"
#include "support/bits.hpp"
#include "utility/instruction_sets.hpp"

using namespace quenta_tests;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz_input input{data, size};
    const int n = 1 + input.below(40);
    const std::vector<double> a = input.reals(std::size_t(n) * n), b = input.reals(std::size_t(n));
    std::vector<double> factors = a, x = b;
    std::vector<int> pivots(b.size(), -1);
    const bool regular = reference::solve_dense(reference::matrix_order::column_major, n, factors, x, pivots);
    for (const quenta::dense_kernels* const table : quenta::runnable_tables<quenta::dense_kernels>()) {
        SCOPED_TRACE(table->name);
        std::vector<double> our_factors = a, our_x = b;
        std::vector<int> our_pivots(b.size(), -1);
        const bool solved = table->eliminate(our_factors.data(), n, our_pivots.data()) == n;
        EXPECT_EQ(solved, regular);
        EXPECT_TRUE(equal_bits(factors, our_factors));
        EXPECT_EQ(our_pivots, pivots);
        if (solved) {
            table->substitute(our_factors.data(), n, our_pivots.data(), our_x.data());
            EXPECT_TRUE(equal_bits(x, our_x));
        }
    }
    return 0;
}
