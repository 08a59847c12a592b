// The contribution of the history to the right-hand side of a step, for each kind of equation.
//
// Every row of the system of a step has a sum. The slots of the previous steps are added in a fixed order: steps
// ascending; within a step first the slot of the carried value, if the kind has one, then the points ascending. The
// contribution of a slot is the product of a row of its D by D matrix with the D values of its unknown. In the vector
// forms this product is a sum that starts from 0.0; in the scalar forms it is a single product.
//
// A sum is a double, or a register of several sums: `number` is either.
#pragma once

#include "quenta_function_solvers/history_kernels.hpp"

#include <type_traits>

namespace quenta {

enum class form { scalar, vector };

// The factor of the matrix of a slot.
struct unknown_itself {
    template <class number>
    [[gnu::always_inline]] static number factor(number unknown, double) {
        return unknown;
    }
};
struct unknown_times_step_length {
    template <class number>
    [[gnu::always_inline]] static number factor(number unknown, double h) {
        return unknown * h;
    }
};

template <form F>
struct first_kind_history {
    static constexpr form written_in = F;
    static constexpr auto table = &history_kernels::first_kind;
    static constexpr bool has_carried_value = false;
    static constexpr bool has_step_lengths = false;

    using point = unknown_itself;

    template <class number>
    [[gnu::always_inline]] static void add_point(number& sum, number product, double) {
        sum -= product;
    }
};

template <form F>
struct continuous_first_kind_history : first_kind_history<F> {
    static constexpr auto table = &history_kernels::continuous_first_kind;
    static constexpr bool has_carried_value = true;

    template <class number>
    [[gnu::always_inline]] static void add_carried(number& sum, number product) {
        sum -= product;
    }
};

template <form F>
struct second_kind_history {
    static constexpr form written_in = F;
    static constexpr auto table = &history_kernels::second_kind;
    static constexpr bool has_carried_value = false;
    static constexpr bool has_step_lengths = false;

    using point = unknown_itself;

    template <class number>
    [[gnu::always_inline]] static void add_point(number& sum, number product, double) {
        sum += product;
    }
};

// The scalar form multiplies the derivative by the step length, the vector form the whole row product.
template <form F>
struct integro_differential_history {
    static constexpr form written_in = F;
    static constexpr auto table = &history_kernels::integro_differential;
    static constexpr bool has_carried_value = true;
    static constexpr bool has_step_lengths = true;

    template <class number>
    [[gnu::always_inline]] static void add_carried(number& sum, number product) {
        sum += product;
    }

    using point = std::conditional_t<F == form::scalar, unknown_times_step_length, unknown_itself>;

    template <class number>
    [[gnu::always_inline]] static void add_point(number& sum, number product, double h) {
        if constexpr (F == form::scalar)
            sum += product;
        else
            sum += h * product;
    }
};

} // namespace quenta
