// The implementations behind the exports check the length of each array. An array that is one element too short causes
// an index failure at its end. The kernel is not tested, since its length defines the number of samples.
#include "quenta_solvers/vide.hpp"
#include "quenta_solvers/vie1.hpp"
#include "quenta_solvers/vie2.hpp"
#include "reference/settings.hpp"
#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

namespace quenta_tests {

namespace {

using quenta::view;

enum class kind { first, continuous_first, second, integro_differential };

// Selects the scalar solver instead of a dimension. The first kind has none.
constexpr int scalar = 0;

constexpr int steps = 3;
constexpr double dt = 0.01;

// A smooth kernel that is invertible at lag 0. Every array has exactly the length that is needed.
struct exact_arrays {
    exact_arrays(kind of, const reference::setting& row, std::size_t D) {
        const std::size_t S = std::size_t(row.m * row.m), samples = steps * S + 1, P = row.indices.size();
        const std::size_t powers = of == kind::first || of == kind::second ? P : P + 1;
        for (std::size_t sample = 0; sample < samples; ++sample)
            for (std::size_t entry = 0; entry < D * D; ++entry)
                K.push_back((entry % (D + 1) == 0 ? 1.0 : 0.0625) + 0.001 * double(sample));
        g.assign(samples * D, 0.5);
        if (of == kind::integro_differential)
            a.assign(samples * D * D, 0.25);
        if (of == kind::continuous_first || of == kind::integro_differential)
            y0.assign(D, 1.0);
        out.resize(samples * D);
        // Up to the last coefficient of the last step. Unused slots after it are not needed.
        coeffs.resize(((P + 1) * (steps - 1) + powers) * D);
    }
    std::vector<double> K, g, a, y0, out, coeffs;
};

template <int row>
bool call(kind of, int D, exact_arrays& arrays) {
    const auto [K, g, a, y0, out, coeffs] =
        std::array{quenta::whole(arrays.K),  quenta::whole(arrays.g),   quenta::whole(arrays.a),
                   quenta::whole(arrays.y0), quenta::whole(arrays.out), quenta::whole(arrays.coeffs)};
    int n_steps = 0;
    const quenta::vie1_arguments first{g, K, y0, dt, true, of == kind::continuous_first, out, coeffs, &n_steps};
    const quenta::vie2_arguments second{g, K, dt, true, out, coeffs, &n_steps};
    const quenta::vide_arguments derivative{g, K, a, y0, dt, true, out, coeffs, &n_steps};
    const bool solved =
        of == kind::second
            ? D == scalar ? quenta::solve_vie2_impl<row>(second) : quenta::solve_vie2_vec_row<row>(second, D)
        : of == kind::integro_differential
            ? D == scalar ? quenta::solve_vide_impl<row>(derivative) : quenta::solve_vide_vec_row<row>(derivative, D)
            : quenta::vie1_solve_row<row>(first, D);
    EXPECT_EQ(n_steps, steps);
    return solved;
}

template <int row>
void shorten_each_array(int D, int& failures) {
    const reference::setting& setting = reference::settings()[row];
    for (const kind of : {kind::first, kind::continuous_first, kind::second, kind::integro_differential}) {
        if (D == scalar && (of == kind::first || of == kind::continuous_first))
            continue;
        if (of == kind::first &&
            setting.indices.front() == 0) // the equation at t = 0 is 0 = g(0), so the block is singular
            continue;
        SCOPED_TRACE(testing::Message() << "kind " << int(of) << ", row " << row << ", D = " << D);
        exact_arrays sufficient{of, setting, std::size_t(D == scalar ? 1 : D)};
        EXPECT_TRUE(call<row>(of, D, sufficient));
        for (const auto array :
             {&exact_arrays::g, &exact_arrays::a, &exact_arrays::y0, &exact_arrays::out, &exact_arrays::coeffs}) {
            exact_arrays arrays = sufficient;
            if ((arrays.*array).empty())
                continue;
            (arrays.*array).pop_back();
            (arrays.*array).shrink_to_fit();
            const auto failure = failure_of<quenta::index_failure>([&] { call<row>(of, D, arrays); });
            ASSERT_TRUE(failure);
            EXPECT_EQ(failure->length, (arrays.*array).size());
            EXPECT_EQ(failure->index, (arrays.*array).size());
            EXPECT_NE(std::strstr(failure->where.file, "quenta_solvers"), nullptr) << failure->where.file;
            ++failures;
        }
    }
}

template <int row>
void shorten_in_every_dimension(int& failures) {
    for (const int D : {scalar, 1, 2, 9})
        shorten_each_array<row>(D, failures);
}

// The rows have one node, two nodes, and three nodes with a node 0.
TEST(short_views, cause_index_failures_at_their_end) {
    int failures = 0;
    shorten_in_every_dimension<1>(failures);
    shorten_in_every_dimension<37>(failures);
    shorten_in_every_dimension<41>(failures);
    EXPECT_EQ(failures, 3 * (3 + 5) + 3 * (2 * 3 + 3 * (4 + 3 + 5)));
}

} // namespace

} // namespace quenta_tests
