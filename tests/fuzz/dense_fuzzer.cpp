// Compares every form of the dense solve with the reference implementation: those for any order on every instruction
// set, and those for a fixed order.
#include "fuzz/fuzz_input.hpp"
#include "quenta_solvers/dense_kernels.hpp"
#include "quenta_solvers/dense_solve.hpp"
#include "reference/dense_solve.hpp"
#include "support/bits.hpp"
#include "utility/instruction_sets.hpp"

#include <array>
#include <utility>

using namespace quenta_tests;

namespace {

// The matrix is column-major. x is the solution of the reference implementation.
template <int n>
void compare_fixed_order(const std::vector<double>& a, const std::vector<double>& b, bool regular,
                         const std::vector<double>& x) {
    quenta::square_matrix<n> rows;
    std::array<double, n> right_side;
    for (std::size_t i = 0; i < n; ++i) {
        right_side[i] = b[i];
        for (std::size_t j = 0; j < n; ++j)
            rows[i][j] = a[i + j * n];
    }
    bool solved = !regular;
    const std::array<double, n> our_x = quenta::solve_dense_fixed<n>(rows, right_side, solved);
    EXPECT_EQ(solved, regular);
    if (regular) {
        EXPECT_TRUE(equal_bits(x, our_x));
    }
}

} // namespace

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
    [&]<int... smaller>(std::integer_sequence<int, smaller...>) {
        ((n == 1 + smaller ? compare_fixed_order<1 + smaller>(a, b, regular, x) : void()), ...);
    }
    (std::make_integer_sequence<int, quenta::largest_straight_order + 1>{});
    return 0;
}
