// How the history of a step enters its right-hand side, kind by kind.
//
// One sum belongs to every row of a step's system. The slots of the steps before contribute in a fixed order: steps
// ascending, in a step first the slot of the carried value, if the kind has one, then the points ascending. What a slot
// contributes is the product of a row of its D by D matrix with the D values of its unknown. In the vector forms this
// row product starts from 0.0; in the scalar forms it is the one product.
//
// A sum is a double, or a register of several sums: `number` is either.
#pragma once

#include "quenta_function_solvers/history_kernels.hpp"

#include <type_traits>

namespace quenta {

enum class form { scalar, vector };

// What a slot's matrix acts on.
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

// The step length multiplies the derivative in the scalar form, and the whole row product in the vector form.
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
