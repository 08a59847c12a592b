// Requests that no sample-based solver accepts return their status before any array is read or written. All arrays are
// null pointers, so that an access would end the test.
#include "conformance/sampled_call.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace quenta_tests {

namespace {

struct request {
    int N, D, m, count, status;
    std::vector<int> list; // passed as a null pointer if empty

    const int* nodes() const { return list.empty() ? nullptr : list.data(); }
};

void PrintTo(const request& asked, std::ostream* stream) {
    *stream << "N = " << asked.N << ", D = " << asked.D << ", m = " << asked.m << ", count = " << asked.count << ", "
            << asked.list.size() << " ints in list";
}

struct solver {
    const char* name;
    int (*call)(const request& asked, int* n_steps);
};

void PrintTo(const solver& called, std::ostream* stream) {
    *stream << called.name;
}

int call_vie1_vec(const request& asked, int* n_steps) {
    return quenta_solve_vie1_vec(nullptr, nullptr, asked.N, asked.D, nullptr, 0.03, asked.m, asked.nodes(), asked.count,
                                 1, 1, nullptr, nullptr, n_steps);
}
int call_vie1(const request& asked, int* n_steps) {
    return quenta_solve_vie1(nullptr, nullptr, asked.N, 1.0, 0.03, asked.m, asked.nodes(), asked.count, 1, 1, nullptr,
                             nullptr, n_steps);
}
int call_vie2_vec(const request& asked, int* n_steps) {
    return quenta_solve_vie2_vec(nullptr, nullptr, asked.N, asked.D, 0.03, asked.m, asked.nodes(), asked.count, 1,
                                 nullptr, nullptr, n_steps);
}
int call_vie2(const request& asked, int* n_steps) {
    return quenta_solve_vie2(nullptr, nullptr, asked.N, 0.03, asked.m, asked.nodes(), asked.count, 1, nullptr, nullptr,
                             n_steps);
}

int call_vide_vec(const request& asked, int* n_steps) {
    return quenta_solve_vide_vec(nullptr, nullptr, nullptr, asked.N, asked.D, nullptr, 0.03, asked.m, asked.nodes(),
                                 asked.count, 1, nullptr, nullptr, n_steps);
}
int call_vide(const request& asked, int* n_steps) {
    return quenta_solve_vide(nullptr, nullptr, nullptr, asked.N, 1.0, 0.03, asked.m, asked.nodes(), asked.count, 1,
                             nullptr, nullptr, n_steps);
}

const solver vector_solvers[] = {{"vie1_vec", call_vie1_vec}, {"vie2_vec", call_vie2_vec}, {"vide_vec", call_vide_vec}};
const solver all_solvers[] = {{"vie1", call_vie1},         {"vie1_vec", call_vie1_vec}, {"vie2", call_vie2},
                              {"vie2_vec", call_vie2_vec}, {"vide", call_vide},         {"vide_vec", call_vide_vec}};

class refused_request : public ::testing::TestWithParam<std::tuple<solver, request>> {};

TEST_P(refused_request, returns_its_status_and_does_not_write_n_steps) {
    const auto& [solver, asked] = GetParam();
    int n_steps = marked_steps;
    EXPECT_EQ(solver.call(asked, &n_steps), asked.status);
    EXPECT_EQ(n_steps, marked_steps);
}

template <class solver_list, class request_list>
auto each_of(const solver_list& solvers, const request_list& requests) {
    return ::testing::Combine(::testing::ValuesIn(solvers), ::testing::ValuesIn(requests));
}
std::string case_name(const ::testing::TestParamInfo<std::tuple<solver, request>>& instance) {
    return std::string{std::get<0>(instance.param).name} + "_" + std::to_string(instance.index);
}

constexpr int unsupported = QUENTA_UNSUPPORTED_SETTING, overflow = QUENTA_SIZE_OVERFLOW;

// No row has this m or this number of nodes, so the list is not read.
const request without_a_list[] = {
    {1000, 2, 1, 0, unsupported, {}},       {1000, 2, 2, 0, unsupported, {}},
    {1000, 2, 3, 0, unsupported, {}},       {1000, 2, 4, 0, unsupported, {}},
    {1000, 2, 5, 0, unsupported, {}},       {1000, 2, 5, 1, unsupported, {}},
    {1000, 2, -1, 1, unsupported, {}},      {1000, 2, 1, 3, unsupported, {}},
    {1000, 2, 3, 5, unsupported, {}},       {1000, 2, 4, 6, unsupported, {}},
    {1000, 2, 4, -1, unsupported, {}},      {1000, 2, 4, -2, unsupported, {}},
    {1000, 2, INT_MAX, 2, unsupported, {}}, {1000, 2, INT_MIN + 1, 2, unsupported, {}},
};
INSTANTIATE_TEST_SUITE_P(unsupported_without_a_list, refused_request, each_of(all_solvers, without_a_list), case_name);

const request unsupported_lists[] = {
    {1000, 2, 2, 0, unsupported, {1}},       {1000, 2, 2, 2, unsupported, {2, 1}},
    {1000, 2, 2, 2, unsupported, {1, 0}},    {1000, 2, 2, 2, unsupported, {1, 1}},
    {1000, 2, 2, 2, unsupported, {0, 3}},    {1000, 2, 2, 1, unsupported, {-1}},
    {1000, 2, 3, 3, unsupported, {1, 2, 2}}, {1000, 2, 4, 5, unsupported, {0, 1, 2, 3, 5}},
    {1000, 2, 5, 1, unsupported, {1}}};
INSTANTIATE_TEST_SUITE_P(unsupported_lists, refused_request, each_of(all_solvers, unsupported_lists), case_name);

// The limit is on (count + 1) squared: 46340 squared is below 2^31, 46341 squared is not. Counts may be negative.
const request wide_scalar_blocks[] = {
    {2, 1, 4, 46339, unsupported, {}}, {2, 1, 4, 46340, overflow, {}},         {2, 1, 4, -46341, unsupported, {}},
    {2, 1, 4, -46342, overflow, {}},   {2, 1, 1, 70000, overflow, {}},         {2, 1, 1, INT_MAX, overflow, {}},
    {2, 1, 1, INT_MIN, overflow, {}},  {INT_MAX, 1, 1, INT_MAX, overflow, {}}, {INT_MAX, 1, 1, INT_MIN, overflow, {}},
};
INSTANTIATE_TEST_SUITE_P(wide_blocks, refused_request, each_of(all_solvers, wide_scalar_blocks), case_name);

// The limit is on (count + 1) * steps: 2^31 - 1 is accepted.
const request many_steps[] = {
    {INT_MAX, 1, 1, 1, overflow, {0}},       {INT_MAX, 1, 2, 3, unsupported, {0, 1, 1}},
    {INT_MAX, 1, 2, 4, overflow, {}},        {1 << 30, 1, 1, 1, unsupported, {7}},
    {(1 << 30) + 1, 1, 1, 1, overflow, {0}}, {(1 << 30) + 1, 1, 1, 1, overflow, {7}},
    {INT_MAX, 1, 1, -2, unsupported, {}},    {INT_MAX, 1, 3, 46000, overflow, {}},
};
INSTANTIATE_TEST_SUITE_P(many_steps, refused_request, each_of(all_solvers, many_steps), case_name);

// A negative number of samples is not treated specially: the products are computed and compared.
const request fewer_than_no_steps[] = {{-INT_MAX, 1, 1, -2, overflow, {}}};
INSTANTIATE_TEST_SUITE_P(fewer_than_no_steps, refused_request, each_of(all_solvers, fewer_than_no_steps), case_name);

// The limits are on N * D * D, the number of coefficients, and the size of a block of order (count + 1) * D. Sizes
// within the limits are combined with an unsupported setting, which then determines the status.
const request large_systems[] = {
    {1000, 2000, 1, 1, overflow, {1}},       {INT_MAX, 1, 4, 1, unsupported, {5}},
    {INT_MAX, 2, 4, 1, overflow, {1}},       {INT_MAX, INT_MAX, 4, 1, overflow, {1}},
    {1 << 29, 2, 4, 1, overflow, {1}},       {(1 << 29) - 1, 2, 4, 1, unsupported, {5}},
    {INT_MAX, 1, 1, 1, overflow, {1}},       {1, 23170, 4, 1, unsupported, {5}},
    {1, 23171, 4, 1, overflow, {1}},         {1, -23170, 4, 1, unsupported, {5}},
    {1, -23171, 4, 1, overflow, {1}},        {1000, 0, 4, 1, unsupported, {5}},
    {INT_MAX, 0, 1, 70000, unsupported, {}},
};
INSTANTIATE_TEST_SUITE_P(large_systems, refused_request, each_of(vector_solvers, large_systems), case_name);

} // namespace

} // namespace quenta_tests
