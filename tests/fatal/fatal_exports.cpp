// Inconsistent arguments are fatal: the call throws instead of returning a status. A process that does not catch the
// exception ends by a signal; a host that catches it continues. All calls here go through the shared library.
#include "conformance/vie2_call.hpp"
#include "support/bits.hpp"
#include "support/process_end.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <ostream>
#include <string>
#include <string_view>

#include <unistd.h>

namespace quenta_tests {

namespace {

using reference::setting;

enum solver {
    second_kind,
    second_kind_system,
    discontinuous,
    continuous,
    integro_differential,
    integro_differential_system
};

struct fatal_request {
    const char* name;
    int N;
    setting row;
    bool want_null_coeffs;
    const char* message;
    solver called = second_kind;
    int D = 1;
};

void PrintTo(const fatal_request& request, std::ostream* stream) {
    *stream << request.name;
}

// Arrays have N samples, at least one. Each sample of the kernel is the identity. coeffs is null, and `out` is filled
// with `untouched` before the call.
constexpr double untouched = -77.0;

int call(const fatal_request& request, std::vector<double>& out) {
    const int D = std::max(request.D, 1), N = request.N, m = request.row.m, count = int(request.row.indices.size());
    const int want_coeffs = request.want_null_coeffs ? 1 : 0;
    const int* const list = request.row.indices.data();
    const std::vector<double> g(std::size_t(std::max(N, 1) * D), 1.0);
    std::vector<double> K(g.size() * D);
    out.assign(g.size(), untouched);
    for (std::size_t row = 0; row < g.size(); ++row)
        K[row * D + row % D] = 1.0;
    constexpr double dt = 0.01;
    int n_steps = 0;
    switch (request.called) {
    case second_kind:
        return quenta_solve_vie2(g.data(), K.data(), N, dt, m, list, count, want_coeffs, out.data(), nullptr, &n_steps);
    case second_kind_system:
        return quenta_solve_vie2_vec(g.data(), K.data(), N, request.D, dt, m, list, count, want_coeffs, out.data(),
                                     nullptr, &n_steps);
    case discontinuous:
    case continuous:
        if (request.D == 1)
            return quenta_solve_vie1(g.data(), K.data(), N, 1.0, dt, m, list, count, want_coeffs,
                                     request.called == continuous, out.data(), nullptr, &n_steps);
        return quenta_solve_vie1_vec(g.data(), K.data(), N, request.D, g.data(), dt, m, list, count, want_coeffs,
                                     request.called == continuous, out.data(), nullptr, &n_steps);
    case integro_differential:
        return quenta_solve_vide(g.data(), K.data(), K.data(), N, 1.0, dt, m, list, count, want_coeffs, out.data(),
                                 nullptr, &n_steps);
    case integro_differential_system:
        return quenta_solve_vide_vec(g.data(), K.data(), K.data(), N, request.D, g.data(), dt, m, list, count,
                                     want_coeffs, out.data(), nullptr, &n_steps);
    }
    return -1;
}

int call(const fatal_request& request) {
    std::vector<double> out;
    return call(request, out);
}

// A host without handlers: an exception ends the process. A status becomes the exit code.
void call_without_handler(const fatal_request& request) noexcept {
    _exit(call(request));
}

const fatal_request fatal_requests[] = {
    {"no_samples_one_step_rows", 0, {1, {0}}, false, "index 0, length 0"},
    {"no_samples_one_node", 0, {2, {1}}, false, "index 1, length 0"},
    {"no_samples_two_nodes", 0, {3, {1, 2}}, false, "index 2, length 0"},
    {"no_samples_five_nodes", 0, {4, {0, 1, 2, 3, 4}}, false, "index 0, length 0"},
    {"minus_one_sample", -1, {1, {0}}, false, "Conversion positive overflow"},
    {"minus_five_samples", -5, {2, {0, 1, 2}}, false, "Conversion positive overflow"},
    {"large_negative_number_of_samples", INT_MIN + 1, {4, {1, 3}}, false, "Conversion positive overflow"},
    {"smallest_number_of_samples", INT_MIN, {2, {0, 1}}, false, "Conversion positive overflow"},
    {"null_coeffs_one_step", 2, {1, {0}}, true, "index 0, length 0"},
    {"null_coeffs_many_steps", 401, {2, {0, 1, 2}}, true, "index 0, length 0"},
    {"kernel_shorter_than_the_first_step_needs", 4, {2, {0, 2}}, false, "index 4, length 4"},
    {"one_sample_of_two", 1, {1, {0, 1}}, false, "index 1, length 1"},
    {"a_kernel_shorter_by_one", 12, {4, {0, 3}}, false, "index 12, length 12"},
    // The index is that of the first sample that is accessed past the end, not that of the end.
    {"a_kernel_that_ends_between_two_samples", 10, {4, {0, 3}}, false, "index 12, length 10"},
    {"one_sample_of_three", 1, {2, {0, 2}}, false, "index 4, length 1", integro_differential},
    {"two_samples_of_four", 2, {4, {1, 3}}, false, "index 27, length 18", second_kind_system, 3},
    {"two_samples_of_four_with_a_first_value", 2, {4, {1, 3}}, false, "index 243, length 162", continuous, 9},
    {"first_kind_no_samples", 0, {1, {1}}, false, "index 0, length 0", discontinuous},
    {"first_kind_no_samples_continuous", 0, {2, {1}}, false, "index 1, length 0", continuous},
    {"first_kind_no_samples_of_two_components", 0, {1, {1}}, false, "index 0, length 0", discontinuous, 2},
    {"first_kind_no_samples_of_vectors", 0, {2, {1, 2}}, false, "index 81, length 0", continuous, 9},
    {"first_kind_one_sample_of_two", 1, {1, {0, 1}}, false, "index 1, length 1", discontinuous},
    {"first_kind_one_sample_of_two_continuous", 1, {1, {0, 1}}, false, "index 1, length 1", continuous},
    {"first_kind_one_sample_of_two_before_the_middle", 1, {2, {1}}, false, "index 4, length 4", continuous, 2},
    {"first_kind_a_kernel_shorter_by_one", 4, {2, {0, 2}}, false, "index 324, length 324", discontinuous, 9},
    {"first_kind_null_coeffs", 5, {2, {1}}, true, "index 0, length 0", discontinuous},
    {"first_kind_null_coeffs_of_vectors", 41, {2, {1, 2}}, true, "index 0, length 0", continuous, 3},
    {"first_kind_null_coeffs_of_many_components", 41, {2, {1, 2}}, true, "index 0, length 0", discontinuous, 9},
    {"first_kind_no_first_value_of_none", 5, {2, {1}}, false, "index 0, length 0", continuous, 0},
    {"first_kind_minus_one_sample", -1, {2, {1}}, false, "index 0, length 0", discontinuous},
    {"first_kind_minus_two_samples", -2, {2, {2}}, false, "index 0, length 0", continuous},
    {"first_kind_minus_five_samples", -5, {2, {2}}, false, "index 0, length 0", continuous, 9},
    {"vie2_vec_minus_one_sample", -1, {2, {2}}, false, "index 0, length 0", second_kind_system},
    {"vie2_vec_minus_five_samples", -5, {1, {1}}, false, "index 0, length 0", second_kind_system, 3},
    {"vie2_vec_fewest_samples", INT_MIN, {2, {0, 1}}, false, "index 0, length 0", second_kind_system, 1},
    {"vide_vec_minus_one_sample", -1, {2, {2}}, false, "index 0, length 0", integro_differential_system, 2},
    {"vide_vec_minus_five_samples", -5, {4, {1, 3}}, false, "index 0, length 0", integro_differential_system, 9},
    {"first_kind_no_first_value", 5, {2, {1}}, false, "index 0, length 0", continuous, -1},
    {"first_kind_no_first_value_of_many", 5, {2, {1}}, false, "index 0, length 0", continuous, -9},
    {"vie2_vec_no_samples", 0, {1, {0}}, false, "index 0, length 0", second_kind_system, 2},
    {"vie2_vec_no_samples_five_nodes", 0, {4, {0, 1, 2, 3, 4}}, false, "index 0, length 0", second_kind_system, 8},
    {"vie2_vec_no_samples_of_many", 0, {2, {1, 2}}, false, "index 81, length 0", second_kind_system, 9},
    {"vie2_vec_one_sample_of_two", 1, {1, {0, 1}}, false, "index 9, length 9", second_kind_system, 3},
    {"vie2_vec_a_kernel_shorter_by_one", 4, {2, {0, 2}}, false, "index 16, length 16", second_kind_system, 2},
    {"vie2_vec_a_kernel_shorter_by_one_of_many",
     12,
     {4, {0, 3}},
     false,
     "index 972, length 972",
     second_kind_system,
     9},
    {"vie2_vec_null_coeffs", 5, {2, {1}}, true, "index 0, length 0", second_kind_system, 1},
    {"vie2_vec_null_coeffs_of_vectors", 41, {2, {1, 2}}, true, "index 0, length 0", second_kind_system, 3},
    {"vie2_vec_null_coeffs_of_many_components", 41, {2, {0, 2}}, true, "index 0, length 0", second_kind_system, 9},
    {"vide_no_samples", 0, {2, {0}}, false, "index 0, length 0", integro_differential},
    {"vide_no_samples_two_nodes", 0, {3, {1, 2}}, false, "index 2, length 0", integro_differential},
    {"vide_minus_one_sample", -1, {1, {0}}, false, "Conversion positive overflow", integro_differential},
    {"vide_minus_five_samples", -5, {2, {0, 1, 2}}, false, "Conversion positive overflow", integro_differential},
    {"vide_fewest_samples", INT_MIN, {2, {0, 1}}, false, "Conversion positive overflow", integro_differential},
    {"vide_one_sample_of_two", 1, {1, {0, 1}}, false, "index 1, length 1", integro_differential},
    {"vide_a_kernel_shorter_by_one", 4, {2, {0, 2}}, false, "index 4, length 4", integro_differential},
    {"vide_null_coeffs", 41, {2, {1, 2}}, true, "index 0, length 0", integro_differential},
    {"vide_vec_no_samples", 0, {2, {0}}, false, "index 0, length 0", integro_differential_system, 2},
    {"vide_vec_no_samples_of_many", 0, {2, {1, 2}}, false, "index 81, length 0", integro_differential_system, 9},
    {"vide_vec_one_sample_of_two", 1, {1, {0, 1}}, false, "index 9, length 9", integro_differential_system, 3},
    {"vide_vec_a_kernel_shorter_by_one", 4, {2, {0, 2}}, false, "index 16, length 16", integro_differential_system, 2},
    {"vide_vec_a_kernel_shorter_by_one_of_many",
     12,
     {4, {0, 3}},
     false,
     "index 972, length 972",
     integro_differential_system,
     9},
    {"vide_vec_null_coeffs", 41, {2, {1, 2}}, true, "index 0, length 0", integro_differential_system, 3},
    {"vide_vec_null_coeffs_of_many", 41, {2, {1, 2}}, true, "index 0, length 0", integro_differential_system, 9},
    {"vide_no_samples_of_single_spacing", 0, {1, {0}}, false, "index 0, length 0", integro_differential},
    {"vide_vec_no_samples_of_single_spacing", 0, {1, {0}}, false, "index 0, length 0", integro_differential_system, 3},
    {"vide_vec_no_samples_of_single_spacing_of_many",
     0,
     {1, {0}},
     false,
     "index 0, length 0",
     integro_differential_system,
     9},
};

class fatal : public ::testing::TestWithParam<fatal_request> {};

TEST_P(fatal, ends_a_process_that_does_not_catch) {
    EXPECT_EXIT(call_without_handler(GetParam()), ends_uncaught(), message_of_the_uncaught(GetParam().message));
}

TEST_P(fatal, throws_an_exception_that_a_host_can_catch_and_the_next_call_works) {
    const setting simpson{2, {0, 1, 2}};
    const std::vector<double> ones(401, 1.0);
    const sampled_answer before = call_vie2(ones, ones, 0.01, simpson);
    int caught = 0;
    try {
        const int status = call(GetParam());
        ADD_FAILURE() << "expected an exception, got status " << status;
    } catch (const std::exception& failure) {
        ++caught;
        ASSERT_NE(failure.what(), nullptr);
        EXPECT_NE(std::string{failure.what()}, "");
        EXPECT_TRUE(std::string_view{failure.what()}.starts_with(GetParam().message)) << failure.what();
    }
    EXPECT_EQ(caught, 1);
    const sampled_answer after = call_vie2(ones, ones, 0.01, simpson);
    EXPECT_EQ(after.status, QUENTA_SOLVED);
    EXPECT_TRUE(equal_bits(before.out.values(), after.out.values()));
}

INSTANTIATE_TEST_SUITE_P(request, fatal, ::testing::ValuesIn(fatal_requests),
                         [](const auto& instance) { return std::string{instance.param.name}; });

// Whether the message of a failure ends with a place in the library.
bool gives_a_place(const std::string& text) {
    const std::size_t place = text.rfind(", at "), extension = text.rfind("pp:");
    if (place == std::string::npos || extension == std::string::npos || extension < place)
        return false;
    const std::string line = text.substr(extension + 3);
    return text[extension - 2] == '.' && !line.empty() && line.find_first_not_of("0123456789") == std::string::npos;
}

// The message of the exception that an action throws, or an empty text.
template <class action>
std::string thrown_by(const action& call) {
    try {
        call();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "";
}

TEST(message_of_a_failure, gives_a_place_only_if_an_array_is_too_short) {
    int without_a_place = 0;
    for (const fatal_request& request : fatal_requests) {
        const std::string text = thrown_by([&] { call(request); });
        const bool scalar = request.called == second_kind || request.called == integro_differential;
        if (scalar && request.N < 0) {
            EXPECT_EQ(text, "Conversion positive overflow") << request.name;
            ++without_a_place;
        } else {
            EXPECT_TRUE(gives_a_place(text)) << request.name << ": " << text;
        }
    }
    EXPECT_GT(without_a_place, 5);
}

TEST(message_of_a_failure, gives_no_place_for_a_negative_dimension) {
    for (const solver called : {second_kind_system, discontinuous, integro_differential_system}) {
        const std::string text = thrown_by([&] { call({"", 5, {2, {1}}, false, "", called, -1}); });
        EXPECT_NE(text, "");
        EXPECT_FALSE(gives_a_place(text)) << text;
    }
}

struct called_with {
    solver called;
    int D;
};
constexpr called_with every_call[] = {{second_kind, 1},
                                      {second_kind_system, 1},
                                      {second_kind_system, 2},
                                      {second_kind_system, 9},
                                      {discontinuous, 2},
                                      {continuous, 9},
                                      {discontinuous, 1},
                                      {continuous, 1},
                                      {integro_differential, 1},
                                      {integro_differential_system, 2},
                                      {integro_differential_system, 9}};

// The scalar solvers of the second kind and of integro-differential equations clear `out` before they write
// coefficients. All others write the coefficients first.
TEST(null_coeffs, fail_before_the_solution_is_written_to_out) {
    for (const auto& [called, D] : every_call) {
        std::vector<double> out;
        EXPECT_THROW(call({"", 41, {2, {1, 2}}, true, "", called, D}, out), std::exception);
        const bool cleared = called == second_kind || called == integro_differential;
        const std::vector<double> expected(out.size(), cleared ? 0.0 : untouched);
        EXPECT_TRUE(equal_bits(expected, out)) << "solver " << called << ", D = " << D;
    }
}

TEST(null_coeffs, are_not_fatal_without_a_step) {
    for (const auto& [called, D] : every_call)
        for (const auto& [N, row] : {std::pair{1, setting{1, {1}}}, {4, {2, {1}}}})
            EXPECT_EQ(call({"", N, row, true, "", called, D}), QUENTA_SOLVED);
}

TEST(null_coeffs, are_not_fatal_if_want_coeffs_is_0) {
    for (const auto& [called, D] : every_call)
        EXPECT_EQ(call({"", 41, {2, {1, 2}}, false, "", called, D}), QUENTA_SOLVED);
}

TEST(null_coeffs, are_not_fatal_with_a_singular_block) {
    const double samples[] = {1.0, 1.0};
    const int list[] = {1};
    double out[2];
    int n_steps = 0;
    EXPECT_EQ(quenta_solve_vie2(samples, samples, 2, 1.0, 1, list, 1, 1, out, nullptr, &n_steps),
              QUENTA_SINGULAR_BLOCK);
    EXPECT_EQ(call({"", 5, {2, {0}}, true, "", discontinuous, 2}), QUENTA_SINGULAR_BLOCK);
}

TEST(no_step, is_fatal_for_the_15_settings_that_read_the_kernel_at_the_end_of_the_first_step) {
    for (const auto& [called, D] : every_call) {
        int fatal_settings = 0;
        for (const setting& row : reference::settings()) {
            const std::vector<int>& nodes = row.indices;
            const bool both_ends = nodes.front() == 0 && nodes.back() == row.m;
            const auto solve = [&, called = called, D = D] {
                const int status = call({"", row.m * row.m, row, false, "", called, D});
                EXPECT_TRUE(status == QUENTA_SOLVED || status == QUENTA_UNSUPPORTED_SETTING) << status;
            };
            EXPECT_EQ(thrown_by(solve) != "", both_ends) << "m = " << row.m << ", " << nodes.size() << " nodes";
            fatal_settings += both_ends;
        }
        EXPECT_EQ(fatal_settings, 15);
    }
}

// ---- Division by m * m = 0, for every disposition of the signal ----

void call_with_m(int m) noexcept {
    int n_steps = 0;
    _exit(quenta_solve_vie2(nullptr, nullptr, 10, 0.01, m, nullptr, 0, 0, nullptr, nullptr, &n_steps));
}

[[maybe_unused]] void print_and_return(int) {
    constexpr char text[] = "the handler was called";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, text, sizeof text - 1);
}

class division_by_zero : public ::testing::TestWithParam<int> {
protected:
    static void call_with_disposition(void (*disposition)(int)) {
        std::signal(SIGFPE, disposition);
        call_with_m(GetParam());
    }
#if !defined(_WIN32)
    static void call_blocked() {
        sigset_t fault;
        sigemptyset(&fault);
        sigaddset(&fault, SIGFPE);
        pthread_sigmask(SIG_BLOCK, &fault, nullptr);
        call_with_disposition(SIG_DFL);
    }
#endif
};

TEST_P(division_by_zero, raises_the_arithmetic_fault_by_default) {
    EXPECT_EXIT(call_with_disposition(SIG_DFL), ends_by_arithmetic_fault(), "");
}

TEST_P(division_by_zero, raises_the_arithmetic_fault_in_every_solver) {
    for (const auto& [called, D] : every_call)
        for (const std::size_t count : {0, 70000}) { // with 70000 nodes, the block of a step would be too large
            const auto call_by_default = [called = called, D = D, count] {
                std::signal(SIGFPE, SIG_DFL);
                call_without_handler({"", 10, {GetParam(), std::vector<int>(count)}, false, "", called, D});
            };
            EXPECT_EXIT(call_by_default(), ends_by_arithmetic_fault(), "") << called << ", D = " << D;
        }
}

#if !defined(_WIN32) // Windows only emulates signals
TEST_P(division_by_zero, raises_the_arithmetic_fault_if_the_signal_is_ignored) {
    EXPECT_EXIT(call_with_disposition(SIG_IGN), ends_by_arithmetic_fault(), "");
}

TEST_P(division_by_zero, raises_the_arithmetic_fault_if_the_signal_is_blocked) {
    EXPECT_EXIT(call_blocked(), ends_by_arithmetic_fault(), "");
}

TEST_P(division_by_zero, raises_the_arithmetic_fault_after_a_handler_that_returns) {
    EXPECT_EXIT(call_with_disposition(print_and_return), ends_by_arithmetic_fault(), "the handler was called");
}

TEST_P(division_by_zero, allows_a_handler_to_exit) {
    EXPECT_EXIT(call_with_disposition([](int) { std::exit(3); }), ::testing::ExitedWithCode(3), "");
}

#endif

TEST(dimension_0, raises_the_arithmetic_fault) {
    for (const solver called : {second_kind_system, discontinuous, integro_differential_system}) {
        const auto call_by_default = [called] {
            std::signal(SIGFPE, SIG_DFL); // a sanitizer has a handler of its own
            call_without_handler({"", 5, {2, {1}}, false, "", called, 0});
        };
        EXPECT_EXIT(call_by_default(), ends_by_arithmetic_fault(), "");
    }
}

// Their squares are 0 in 32 bits.
INSTANTIATE_TEST_SUITE_P(m, division_by_zero, ::testing::Values(0, 65536, -65536, 1 << 20, INT_MIN));

} // namespace

} // namespace quenta_tests
