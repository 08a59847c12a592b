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

TEST(instruction_sets, features_choose_the_tables_from_the_baseline_up) {
    EXPECT_EQ(runnable_names({.avx2 = false, .avx512 = false}), (names{"baseline"}));
#if defined(__x86_64__)
    EXPECT_EQ(runnable_names({.avx2 = true, .avx512 = false}), (names{"baseline", "avx2"}));
    EXPECT_EQ(runnable_names({.avx2 = true, .avx512 = true}), (names{"baseline", "avx2", "avx512"}));
    // No processor is like this, but the widest is what it can run.
    EXPECT_EQ(runnable_names({.avx2 = false, .avx512 = true}).back(), "avx512");
#endif
}

#if defined(__x86_64__)
// The system lists what the processor has and what it saves of it.
TEST(instruction_sets, features_are_those_that_the_system_lists) {
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
        GTEST_SKIP() << "no list, or the processor is another one";
    const auto has = [&](const char* feature) {
        return std::find(listed.begin(), listed.end(), feature) != listed.end();
    };
    EXPECT_EQ(detected_processor_features().avx2, has("avx2"));
    EXPECT_EQ(detected_processor_features().avx512, has("avx512f") && has("avx512dq") && has("avx512vl"));
}
#endif

TEST(instruction_sets, the_widest_table_is_the_last_that_the_processor_at_hand_can_run) {
    EXPECT_EQ(widest_table<named_table>().name, runnable_names(detected_processor_features()).back());
}

#if defined(__unix__)
// A table that takes its time to be found.
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

TEST(instruction_sets, the_widest_table_is_found_in_the_child_of_a_fork_while_another_thread_looks_for_it) {
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
