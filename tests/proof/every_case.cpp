// Compares every export with the reference implementation, for every row and dimension, on seeded random data. Computes
// one hash of all results for each export, row and dimension, so that builds and instruction sets can be compared.
//
//   --full               all numbers of steps and kinds of data, instead of a random choice
//   --seed=N
//   --instruction-set=S  uses at most baseline, avx2 or avx512 (default: the widest of the processor)
//   --manifest=FILE      writes the hashes; results with transforms have hashes of their own
//   --hashes-only        does not compare with the reference implementation, which takes long in a slow build
//
// Exits with 77 if all tests passed but the processor lacks the instruction set, so that a narrower one was used.
#include "conformance/function_call.hpp"
#include "conformance/sampled_bits.hpp"
#include "quenta_function_solvers/history_kernels.hpp"
#include "quenta_solvers/dense_kernels.hpp"
#include "support/options.hpp"
#include "toeplitz_history/vector_kernels.hpp"
#include "utility/failure.hpp"
#include "utility/instruction_sets.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

struct {
    bool full = false;
    bool hashes_only = false;
    std::uint64_t seed = 20260701;
    std::string instruction_set = "widest";
    std::string manifest;
} options;

} // namespace

// The linker replaces the function with which the library detects the features of the processor.
extern "C" {
quenta::processor_features __real__ZN6quenta27detected_processor_featuresEv();

quenta::processor_features __wrap__ZN6quenta27detected_processor_featuresEv() {
    quenta::processor_features features = __real__ZN6quenta27detected_processor_featuresEv();
    features.avx512 = features.avx512 && options.instruction_set != "baseline" && options.instruction_set != "avx2";
    features.avx2 = features.avx2 && options.instruction_set != "baseline";
    return features;
}
}

namespace quenta_tests {

namespace {

// ---- Instruction sets ----

constexpr const char* instruction_sets[] = {quenta::baseline::name, quenta::avx2::name, quenta::avx512::name};

// A number that grows with the width of the instruction set. -1 for an unknown name.
int width_of(std::string_view name) {
    if (name == "widest")
        return int(std::size(instruction_sets)) - 1;
    const auto found = std::find(std::begin(instruction_sets), std::end(instruction_sets), name);
    return found == std::end(instruction_sets) ? -1 : int(found - std::begin(instruction_sets));
}

int width_of_processor() {
    const quenta::processor_features features = __real__ZN6quenta27detected_processor_featuresEv();
    return features.avx512 ? 2 : features.avx2 ? 1 : 0;
}

template <class table>
const char* set_in_use() {
    const auto all = quenta::runnable_tables<table>({.avx2 = true, .avx512 = true});
    return instruction_sets[std::find(all.begin(), all.end(), &quenta::widest_table<table>()) - all.begin()];
}

// Otherwise, runs with different instruction sets would compare one of them with itself.
TEST(every_case, uses_the_requested_instruction_set) {
    const std::string expected = instruction_sets[std::min(width_of(options.instruction_set), width_of_processor())];
    EXPECT_EQ(set_in_use<quenta::vector_kernels>(), expected);
    EXPECT_EQ(set_in_use<quenta::dense_kernels>(), expected);
    EXPECT_EQ(set_in_use<quenta::history_kernels>(), expected);
}

// ---- Hashes ----

// The FNV-1a hash of the bits. All NaNs count as the same value.
class hash {
public:
    void add(std::uint64_t word) {
        for (int byte = 0; byte < 8; ++byte, word >>= 8)
            value = (value ^ (word & 0xFF)) * 0x100000001B3;
    }
    void add(std::span<const double> values) {
        for (const double each : values)
            add(std::isnan(each) ? 0x7FF8000000000000 : std::bit_cast<std::uint64_t>(each));
    }
    std::string text() const {
        char digits[17];
        std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(value));
        return digits;
    }

private:
    std::uint64_t value = 0xCBF29CE484222325;
};

std::map<std::string, hash> manifest; // by export, row and dimension, and whether there was a transform

std::string numbered(const char* name, std::size_t number) {
    std::string digits = std::to_string(number);
    return name + std::string(2 - std::min<std::size_t>(digits.size(), 2), '0') + digits;
}

// ---- Sample-based solvers ----

// One case. text() is a line of C++ that repeats it.
struct sampled_case {
    const char* solver;
    std::size_t row;
    int D, N, want_coeffs;
    std::size_t data;
    std::uint64_t seed;

    std::string text() const {
        return "prove(sampled_case{\"" + std::string{solver} + "\", " + std::to_string(row) + ", " + std::to_string(D) +
               ", " + std::to_string(N) + ", " + std::to_string(want_coeffs) + ", " + std::to_string(data) + ", " +
               std::to_string(seed) + "});";
    }
};

int proved = 0;

void prove(const sampled_case& given) {
    SCOPED_TRACE(given.text());
    const sampled_solver& solver = solver_named(given.solver);
    random_data random{given.seed};
    const sampled_problem problem =
        random_problem(random, given.row, given.D, std::size_t(given.N), data_kinds[given.data]);
    const auto solve = [&] {
        return solver.solve(problem.data, problem.dt, problem.row(), given.want_coeffs);
    };
    ++proved;
    if (given.N < present_samples(problem.row()) && solver.accepts(problem.row())) {
        EXPECT_THROW(solve(), quenta::index_failure);
        EXPECT_THROW(reference_of(solver, problem), std::logic_error);
        return;
    }
    const sampled_answer answer = solve();
    ASSERT_TRUE(answer.out.fences_hold() && answer.coeffs.fences_hold());
    // From 64 steps on, the history uses transforms, with twiddles from the cosine and sine of the platform.
    const bool transformed = steps_of(std::size_t(given.N), problem.row()) >= 64;
    hash& results = manifest[given.solver + numbered(" row ", given.row) + numbered(" D ", std::size_t(given.D)) +
                             (transformed ? " transformed" : "")];
    results.add(std::uint64_t(answer.status));
    results.add(std::uint64_t(answer.n_steps));
    results.add(answer.out.values());
    results.add(answer.coeffs.values());
    if (!solver.accepts(problem.row())) {
        ASSERT_EQ(answer.status, QUENTA_UNSUPPORTED_SETTING);
        ASSERT_TRUE(answer.untouched());
    } else if (!options.hashes_only) {
        expect_equal(reference_of(solver, problem), answer, given.want_coeffs != 0);
    }
}

// Calls visit(solver, row, D) for every solver and row, and for the dimensions that the solver accepts.
template <class visitor>
void for_each_sampled_variant(std::initializer_list<int> dimensions, const visitor& visit) {
    for (const sampled_solver& solver : every_solver)
        for (std::size_t row = 0; row < reference::settings().size(); ++row)
            for (const int D : dimensions)
                if ((D == 1 || solver.solves_systems) && !::testing::Test::HasFatalFailure())
                    visit(solver, row, D);
}

TEST(every_case, sample_based_solvers_are_bit_identical_to_the_reference) {
    random_data random{options.seed};
    const int proved_before = proved;
    for_each_sampled_variant(
        {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, [&](const sampled_solver& solver, std::size_t row, int D) {
            const reference::setting& setting = reference::settings()[row];
            const auto prove_drawn = [&](int steps, std::size_t data) {
                const int S = setting.m * setting.m, unused = int(random.below(std::uint64_t(S)));
                const int N = std::max(steps * S + 1 + unused, present_samples(setting));
                prove({solver.name, row, D, N, int(random.below(2)), data, random.below(std::uint64_t{1} << 31)});
            };
            if (options.full)
                for (const int steps : boundary_steps)
                    for (std::size_t data = 0; data < std::size(data_kinds); ++data)
                        prove_drawn(steps, data);
            else { // two cases with ordinary data, of few and of many steps, and one with any data
                prove_drawn(int(random.below(33)), 0);
                prove_drawn(boundary_steps[4 + random.below(boundary_steps.size() - 4)], 0);
                // The order in which arguments are evaluated is unspecified.
                const std::size_t data = random.below(std::size(data_kinds));
                prove_drawn(boundary_steps[random.below(5)], data);
            }
        });
    EXPECT_EQ(proved - proved_before, (4 + 4 * 10) * 56 * (options.full ? int(13 * std::size(data_kinds)) : 3));
}

TEST(every_case, sample_based_solvers_are_bit_identical_to_the_reference_for_few_samples) {
    random_data random{options.seed + 2};
    const int proved_before = proved;
    for_each_sampled_variant({1, 2, 9}, [&](const sampled_solver& solver, std::size_t row, int D) {
        for (int N = 0; N <= 40; ++N)
            prove({solver.name, row, D, N, int(random.below(2)), 0, random.below(std::uint64_t{1} << 31)});
    });
    EXPECT_EQ(proved - proved_before, (4 + 4 * 3) * 56 * 41);
}

// The transforms have 4096 and 8192 points and do not fit the first-level cache. The first kind is left out because its
// solution would overflow.
TEST(every_case, sample_based_solvers_are_bit_identical_to_the_reference_for_long_histories) {
    random_data random{options.seed + 3};
    const int proved_before = proved;
    for (const sampled_solver& solver : every_solver)
        for (const int D : {1, 2})
            for (const int steps : {2100, 4500})
                if (solver.kind != equation::first_kind && (D == 1 || solver.solves_systems))
                    prove({solver.name, 1, D, steps + 1, 0, 0, random.below(std::uint64_t{1} << 31)});
    EXPECT_EQ(proved - proved_before, (2 + 2 * 2) * 2);
}

// ---- Block solvers ----

struct block_case {
    block_kind kind;
    int P, D, N;
    std::uint64_t seed;

    std::string text() const {
        return "prove(block_case{block_kind(" + std::to_string(int(kind)) + "), " + std::to_string(P) + ", " +
               std::to_string(D) + ", " + std::to_string(N) + ", " + std::to_string(seed) + "});";
    }
};

void prove(const block_case& given) {
    SCOPED_TRACE(given.text());
    random_data random{given.seed};
    block_problem problem = random_blocks(random, given.kind, given.N, given.P, given.D);
    if (given.seed % 4 == 0) // one special value
        (random.below(2) == 0 ? problem.A[random.below(problem.A.size())] : problem.b[random.below(problem.b.size())]) =
            random.special_value();
    const block_answer answer = call_block_solver(problem);
    ASSERT_TRUE(answer.x.fences_hold() && answer.y.fences_hold());
    hash& results = manifest[problem.text().substr(0, problem.text().find(", N"))];
    results.add(std::uint64_t(answer.status));
    results.add(answer.x.values());
    results.add(answer.y.values());
    ++proved;
    if (!options.hashes_only) {
        ASSERT_TRUE(matches_reference(problem, answer, block_reference(problem)));
    }
}

TEST(every_case, block_solvers_are_bit_identical_to_the_reference) {
    random_data random{options.seed + 1};
    const int proved_before = proved;
    for_each_variant([&](block_kind kind, int P, int D) {
        for (int N = 1; N <= 24; N += options.full ? 1 : 1 + int(random.below(8)))
            for (int repetition = 0; repetition < (options.full ? 20 : 2); ++repetition)
                prove(block_case{kind, P, D, N, random.below(std::uint64_t{1} << 31)});
    });
    EXPECT_GT(proved - proved_before, 4 * 5 * 9 * 6);
}

} // namespace

} // namespace quenta_tests

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    for (const std::string_view argument : std::vector<std::string_view>(argv + 1, argv + argc)) {
        std::string seed;
        if (argument == "--full")
            options.full = true;
        else if (argument == "--hashes-only")
            options.hashes_only = true;
        else if (quenta_tests::value_of("--seed=", argument, seed))
            options.seed = std::stoull(seed);
        else if (!quenta_tests::value_of("--manifest=", argument, options.manifest) &&
                 !quenta_tests::value_of("--instruction-set=", argument, options.instruction_set)) {
            std::fprintf(stderr, "every_case: unknown option %s\n", std::string{argument}.c_str());
            return 2;
        }
    }
    const int width = quenta_tests::width_of(options.instruction_set);
    if (width < 0) {
        std::fprintf(stderr, "every_case: unknown instruction set %s\n", options.instruction_set.c_str());
        return 2;
    }
    const int failures = RUN_ALL_TESTS();
    std::printf("%d cases\n", quenta_tests::proved);
    if (!options.manifest.empty()) {
        std::ofstream file{options.manifest};
        for (const auto& [name, hash] : quenta_tests::manifest)
            file << name << "  " << hash.text() << '\n';
        if (!file.flush())
            return 2;
    }
    const bool other_set = options.instruction_set != "widest" && width > quenta_tests::width_of_processor();
    return failures == 0 && other_set ? 77 : failures;
}
