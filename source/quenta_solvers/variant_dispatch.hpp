// From a row number and a dimension, known at run time, to the solver variant that is compiled for them. This is the
// one place where the two become template arguments.
#pragma once

#include "quenta_solvers/collocation_settings.hpp"

#include <array>
#include <utility>

namespace quenta {

// The dimension of a variant: fixed when the library is built, or known only at run time.
template <int dimension>
struct fixed_dimension {
    static constexpr int D = dimension;
};
struct run_time_dimension {
    int D;
};

// visitor.operator()<row>(), for a row of the settings table.
template <class visitor>
bool dispatch_row(int row, const visitor& visit) {
    using entry = bool (*)(const visitor&);
    static constexpr auto entries = []<int... rows>(std::integer_sequence<int, rows...>) {
        return std::array<entry, sizeof...(rows)>{[](const visitor& v) {
            return v.template operator()<rows>();
        }...};
    }
    (std::make_integer_sequence<int, supported_setting_count>{});
    return entries[static_cast<std::size_t>(row)](visit);
}

// visit(fixed_dimension<D>{}) for D from 1 to 8, visit(run_time_dimension{D}) for any other.
template <class visitor>
bool dispatch_dimension(int D, const visitor& visit) {
    switch (D) {
    case 1:
        return visit(fixed_dimension<1>{});
    case 2:
        return visit(fixed_dimension<2>{});
    case 3:
        return visit(fixed_dimension<3>{});
    case 4:
        return visit(fixed_dimension<4>{});
    case 5:
        return visit(fixed_dimension<5>{});
    case 6:
        return visit(fixed_dimension<6>{});
    case 7:
        return visit(fixed_dimension<7>{});
    case 8:
        return visit(fixed_dimension<8>{});
    default:
        return visit(run_time_dimension{D});
    }
}

} // namespace quenta
