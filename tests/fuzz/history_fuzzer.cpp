// Compares the online convolution on every instruction set with the reference implementation.
#include "fuzz/fuzz_input.hpp"
#include "reference/toeplitz_history.hpp"
#include "support/bits.hpp"
#include "toeplitz_history/toeplitz_history.hpp"
#include "utility/instruction_sets.hpp"

#include <algorithm>
#include <span>

using namespace quenta_tests;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz_input input{data, size};
    const int p = 1 + input.below(12), q = 1 + input.below(12), n = 1 + input.below(p * q < 16 ? 400 : 140);
    const std::size_t rows = std::size_t(p), columns = std::size_t(q);
    const std::vector<double> blocks = input.reals(std::size_t(n) * rows * columns);
    const std::vector<double> x = input.reals(std::size_t(n) * columns);

    reference::toeplitz_history start{n, p, q};
    for (int d = 0; d < n; ++d)
        for (int R = 0; R < p; ++R)
            for (int C = 0; C < q; ++C)
                start.kernel_at(d, R, C) = blocks[(std::size_t(d) * rows + R) * columns + C];
    for (const quenta::vector_kernels* const table : quenta::runnable_tables<quenta::vector_kernels>()) {
        SCOPED_TRACE(table->name);
        quenta::ToeplitzHistory history;
        history.init(n, p, q);
        history.kernels = table;
        std::copy(blocks.begin(), blocks.end(), history.kernel.begin());
        reference::toeplitz_history expected = start;
        for (int t = 0; t < n; ++t) {
            std::vector<double> pushed(x.begin() + t * q, x.begin() + (t + 1) * q);
            expected.push(pushed);
            history.push({pushed.size(), pushed.data()});
        }
        for (int t = 0; t < n; ++t)
            for (int R = 0; R < p; ++R)
                EXPECT_TRUE(equal_bits(expected.sum_at(t, R), history.history_at(t).at(std::uint64_t(R))))
                    << "step " << t << ", row " << R << ", n " << n << ", p " << p << ", q " << q;
    }
    return 0;
}
