// Measures how much the results of two platforms differ. Only the `cos` and `sin` of the angles of the transform can
// cause differences: the samples are calculated with the four basic operations alone. Every problem has enough steps
// for the transform.
//
//   --write=FILE    writes the results of this platform
//   --compare=FILE  compares the results with those that another platform wrote
#include "conformance/every_solver.hpp"
#include "support/bits.hpp"
#include "support/options.hpp"
#include "support/transform_angles.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace quenta_tests {

namespace {

struct result {
    std::string name;
    std::uint64_t most_ulps; // the largest difference that is accepted
    double negligible;       // differences up to this size are always accepted
    std::vector<double> values;
};

// The function at the angles of all forward transforms of up to 2^24 points. The angles of inverse transforms have the
// opposite sign, which may only change the sign of the result. At half and quarter turns, results close to 0 are not
// accurate to the last digit on every platform. Their errors are negligible compared with 1.
result function_at_angles(const char* name, double (*function)(double), double sign_of_inverse) {
    result made{name, 1, 0x1p-64, {}};
    for (const double angle : transform_angles(std::int64_t{1} << 24, -6.283185307179586)) {
        made.values.push_back(function(angle));
        if (function(-angle) != sign_of_inverse * made.values.back())
            ADD_FAILURE() << name << " differs at " << -angle << " and " << angle << " by more than the sign";
    }
    return made;
}

// A problem on 0 .. 10 whose solution is positive and smooth.
system_samples smooth_samples(equation kind, int D, int N, double dt) {
    system_samples made{D};
    for (int i = 0; i < N; ++i) {
        const double t = i * dt;
        for (int a = 0; a < D; ++a) {
            made.g.push_back((kind == equation::first_kind ? t : 1.0) * (1.0 + 0.125 * a));
            for (int b = 0; b < D; ++b) {
                made.K.push_back((a == b ? 1.0 : 0.25 / (D * (1.0 + a + b))) / (1.0 + t));
                made.a.push_back((a == b ? -1.0 : 0.125 / D) / (2.0 + t));
            }
        }
    }
    for (double& value : made.K)
        value *= kind == equation::first_kind ? 1.0 : 0.25;
    made.y0.assign(std::size_t(D), 1.0);
    return made;
}

// The first kind subtracts sums of the history from each other, which amplifies rounding errors.
std::uint64_t most_ulps_of(equation kind) {
    return kind == equation::first_kind ? 1000000 : 16;
}

std::vector<result> results() {
    std::vector<result> made;
    made.push_back(function_at_angles("cos", std::cos, 1.0));
    made.push_back(function_at_angles("sin", std::sin, -1.0));
    for (const sampled_solver& solver : every_solver)
        for (const reference::setting& row : {reference::setting{1, {1}}, {3, {1, 2, 3}}})
            for (const int D : solver.solves_systems ? std::vector{1, 3, 9} : std::vector{1})
                for (const int steps : {64, 300, 2000}) {
                    const int N = steps * row.m * row.m + 1;
                    const double dt = 10.0 / (N - 1);
                    const sampled_answer answer = solver.solve(smooth_samples(solver.kind, D, N, dt), dt, row, 0);
                    EXPECT_EQ(answer.status, QUENTA_SOLVED);
                    made.push_back({solver.name + (" m " + std::to_string(row.m)) + " D " + std::to_string(D) +
                                        " steps " + std::to_string(steps),
                                    most_ulps_of(solver.kind),
                                    0.0,
                                    {answer.out.values().begin(), answer.out.values().end()}});
                }
    return made;
}

std::string file_to_write, file_to_compare;

// Each result is a line with its name, and a line per value with the bits as an integer.
void write(const std::vector<result>& made, const std::string& path) {
    std::ofstream file{path, std::ios::binary};
    for (const result& each : made) {
        file << each.name << '\n';
        for (const double value : each.values)
            file << std::bit_cast<std::uint64_t>(value) << '\n';
    }
    ASSERT_TRUE(file.flush()) << path;
}

TEST(other_platform, gives_the_results_of_the_other_platform_within_a_few_ulps) {
    const std::vector<result> made = results();
    ASSERT_EQ(made.size(), 2u + 2 * (4 * 3 + 4) * 3);
    if (!file_to_write.empty())
        write(made, file_to_write);
    if (file_to_compare.empty())
        return;
    std::ifstream file{file_to_compare, std::ios::binary};
    std::size_t differences = 0, values = 0;
    std::printf("%-48s %9s %9s %12s\n", "", "values", "differ", "max ulps");
    for (const result& here : made) {
        std::string line;
        ASSERT_TRUE(std::getline(file, line));
        ASSERT_EQ(line, here.name);
        std::size_t differ = 0, worst = 0;
        std::uint64_t most = 0;
        std::vector<double> there;
        for (std::size_t i = 0; i < here.values.size(); ++i) {
            ASSERT_TRUE(std::getline(file, line)) << here.name;
            there.push_back(std::bit_cast<double>(std::uint64_t{std::stoull(line)}));
            const std::uint64_t apart = ulps_apart(there[i], here.values[i]);
            differ += apart != 0;
            if (apart > most && !(std::abs(there[i] - here.values[i]) <= here.negligible)) {
                most = apart;
                worst = i;
            }
        }
        std::printf("%-48s %9zu %9zu %12llu\n", here.name.c_str(), here.values.size(), differ,
                    static_cast<unsigned long long>(most));
        EXPECT_LE(most, here.most_ulps) << here.name << ", index " << worst << ": "
                                        << equal_bits(there[worst], here.values[worst]).message();
        differences += differ;
        values += here.values.size();
    }
    std::printf("%zu of %zu values differ\n", differences, values);
}

} // namespace

} // namespace quenta_tests

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    for (const std::string_view argument : std::vector<std::string_view>(argv + 1, argv + argc)) {
        if (!quenta_tests::value_of("--write=", argument, quenta_tests::file_to_write) &&
            !quenta_tests::value_of("--compare=", argument, quenta_tests::file_to_compare)) {
            std::fprintf(stderr, "other_platform: unknown option %s\n", std::string{argument}.c_str());
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}
