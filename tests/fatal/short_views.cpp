// The variants behind the exports look at the length of each array before they use it: one that ends a single element
// too early is an index failure at its end. The kernel has no wrong length, as it is what says how many samples there
// are.
#include "quenta_solvers/variant_dispatch.hpp"
#include "quenta_solvers/vide.hpp"
#include "quenta_solvers/vie1.hpp"
#include "quenta_solvers/vie2.hpp"
#include "reference/settings.hpp"
#include "support/failures.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>
#include <vector>

namespace quenta_tests {

namespace {

using quenta::view;

enum class kind { first, continuous_first, second, integro_differential };

// For the variants of scalars, of which the first kind has none.
struct scalar {
    static constexpr int D = 1;
};
template <class dimension>
inline constexpr bool is_scalar = std::is_same_v<dimension, scalar>;

constexpr int steps = 3;
constexpr double dt = 0.01;

// A smooth kernel that is invertible at the start, and every array as long as the march has to have it.
struct exact_arrays {
    exact_arrays(kind of, const reference::setting& row, std::size_t D) {
        const std::size_t S = std::size_t(row.m * row.m), samples = steps * S + 1, P = row.indices.size();
        const std::size_t powers = of == kind::first || of == kind::second ? P : P + 1;
        for (std::size_t n = 0; n < samples; ++n)
            for (std::size_t entry = 0; entry < D * D; ++entry)
                K.push_back((entry % (D + 1) == 0 ? 1.0 : 0.0625) + 0.001 * double(n));
        g.assign(samples * D, 0.5);
        if (of == kind::integro_differential)
            a.assign(samples * D * D, 0.25);
        if (of == kind::continuous_first || of == kind::integro_differential)
            y0.assign(D, 1.0);
        out.resize(samples * D);
        // As far as the last coefficient of the last step: the first places of the later ones are left out.
        coeffs.resize(((P + 1) * (steps - 1) + powers) * D);
    }
    std::vector<double> K, g, a, y0, out, coeffs;
};

template <int row, class dimension>
bool call(kind of, dimension dim, exact_arrays& arrays) {
    const auto in = [](const std::vector<double>& array) {
        return view<const double>{array.size(), array.data()};
    };
    const view<const double> g = in(arrays.g), K = in(arrays.K), a = in(arrays.a), y0 = in(arrays.y0);
    const view<double> out{arrays.out.size(), arrays.out.data()}, coeffs{arrays.coeffs.size(), arrays.coeffs.data()};
    int n_steps = 0;
    bool solved = false;
    if constexpr (is_scalar<dimension>)
        solved = of == kind::second ? quenta::solve_vie2_impl<row>(g, K, dt, true, out, coeffs, &n_steps)
                                    : quenta::solve_vide_impl<row>(g, K, a, y0.at(0), dt, true, out, coeffs, &n_steps);
    else if (of == kind::second)
        solved = quenta::solve_vie2_vec_impl<row>(g, K, dim, dt, true, out, coeffs, &n_steps);
    else if (of == kind::integro_differential)
        solved = quenta::solve_vide_vec_impl<row>(g, K, a, dim, y0, dt, true, out, coeffs, &n_steps);
    else
        solved = quenta::vie1_solve<row>(g, K, dim, y0, dt, true, of == kind::continuous_first, out, coeffs, &n_steps);
    EXPECT_EQ(n_steps, steps);
    return solved;
}

template <int row, class dimension>
void shorten_one_after_the_other(dimension dim, int& failures) {
    const reference::setting& setting = reference::settings()[row];
    for (const kind of : {kind::first, kind::continuous_first, kind::second, kind::integro_differential}) {
        if (is_scalar<dimension> && (of == kind::first || of == kind::continuous_first))
            continue;
        if (of == kind::first && setting.indices.front() == 0) // where the equation says 0 = g(0): always singular
            continue;
        SCOPED_TRACE(testing::Message() << "kind " << int(of) << ", row " << row << ", D = " << dim.D);
        exact_arrays whole{of, setting, std::size_t(dim.D)};
        EXPECT_TRUE((call<row>(of, dim, whole)));
        for (const auto array :
             {&exact_arrays::g, &exact_arrays::a, &exact_arrays::y0, &exact_arrays::out, &exact_arrays::coeffs}) {
            exact_arrays arrays = whole;
            const bool no_view = is_scalar<dimension> && array == &exact_arrays::y0;
            if ((arrays.*array).empty() || no_view)
                continue;
            (arrays.*array).pop_back();
            (arrays.*array).shrink_to_fit();
            const auto failure = failure_of<quenta::index_failure>([&] { call<row>(of, dim, arrays); });
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
    shorten_one_after_the_other<row>(scalar{}, failures);
    shorten_one_after_the_other<row>(quenta::fixed_dimension<1>{}, failures);
    shorten_one_after_the_other<row>(quenta::fixed_dimension<2>{}, failures);
    shorten_one_after_the_other<row>(quenta::run_time_dimension{9}, failures);
}

// The rows have one node, two, and three of which the first is at the start of a step.
TEST(short_views, are_index_failures_at_their_end) {
    int failures = 0;
    shorten_in_every_dimension<1>(failures);
    shorten_in_every_dimension<37>(failures);
    shorten_in_every_dimension<41>(failures);
    EXPECT_EQ(failures, 3 * (3 + 4) + 3 * (2 * 3 + 3 * (4 + 3 + 5)));
}

} // namespace

} // namespace quenta_tests
