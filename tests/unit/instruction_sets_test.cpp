#include "utility/instruction_sets.hpp"

#if defined(__unix__)
#include "support/forked_child.hpp"
#include "support/latch.hpp"
#endif

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace quenta {
namespace {

struct named_table {
    template <class set>
    static const named_table& of() {
        static constexpr named_table table{set::name};
        return table;
    }
    const char* name;
};

using names = std::vector<std::string>;

names runnable_names(processor_features features) {
    names found;
    for (const named_table* table : runnable_tables<named_table>(features))
        found.push_back(table->name);
    return found;
}

TEST(instruction_sets, the_runnable_tables_are_those_of_the_features_and_the_baseline) {
    EXPECT_EQ(runnable_names({.avx2 = false, .avx512 = false}), (names{"baseline"}));
#if defined(__x86_64__)
    EXPECT_EQ(runnable_names({.avx2 = true, .avx512 = false}), (names{"baseline", "avx2"}));
    EXPECT_EQ(runnable_names({.avx2 = true, .avx512 = true}), (names{"baseline", "avx2", "avx512"}));
    // No processor is known that has AVX-512 and not AVX2. The widest table would still be the last.
    EXPECT_EQ(runnable_names({.avx2 = false, .avx512 = true}).back(), "avx512");
#endif
}

#if defined(__x86_64__)
// /proc/cpuinfo lists the features that both the processor and the operating system support.
TEST(instruction_sets, the_detected_features_are_those_in_proc_cpuinfo) {
    std::ifstream system{"/proc/cpuinfo"};
    std::vector<std::string> listed;
    for (std::string line; listed.empty() && std::getline(system, line);)
        if (line.starts_with("flags")) {
            std::istringstream words{line};
            for (std::string word; words >> word;)
                listed.push_back(word);
        }
    const char* const preloaded = std::getenv("LD_PRELOAD");
    if (listed.empty() || (preloaded != nullptr && std::strstr(preloaded, "valgrind") != nullptr))
        GTEST_SKIP() << "no list of features, or valgrind replaces the processor";
    const auto has = [&](const char* feature) {
        return std::find(listed.begin(), listed.end(), feature) != listed.end();
    };
    EXPECT_EQ(detected_processor_features().avx2, has("avx2"));
    EXPECT_EQ(detected_processor_features().avx512, has("avx512f") && has("avx512dq") && has("avx512vl"));
}
#endif

TEST(instruction_sets, the_widest_table_is_the_last_that_the_processor_can_run) {
    EXPECT_EQ(widest_table<named_table>().name, runnable_names(detected_processor_features()).back());
}

#if defined(__unix__)
// A table for which one thread waits in of().
struct slow_table {
    template <class set>
    static const slow_table& of() {
        static constexpr slow_table table;
        if (std::this_thread::get_id() == slow) {
            entered->count_down();
            over->wait();
        }
        return table;
    }
    static inline std::atomic<std::thread::id> slow;
    static inline quenta_tests::latch *entered, *over;
};

TEST(instruction_sets, widest_table_returns_in_a_forked_child_while_another_thread_is_inside_it) {
    quenta_tests::latch entered{1}, over{1};
    slow_table::entered = &entered;
    slow_table::over = &over;
    std::thread looking{[] {
        slow_table::slow = std::this_thread::get_id();
        widest_table<slow_table>();
    }};
    entered.wait();
    EXPECT_TRUE(quenta_tests::works_in_forked_child(
        [] { return &widest_table<slow_table>() == runnable_tables<slow_table>().back(); }));
    over.count_down();
    looking.join();
}
#endif

} // namespace
} // namespace quenta
