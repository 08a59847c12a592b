// The instruction sets for which a vector loop is compiled, and the choice among them while the program runs.
//
// A loop is written once, as a template on the tag of a set. A table of functions (a struct with a template function
// `of<set>()` that gives the table of a set) is instantiated by one unit for each set, which is compiled with the
// options of that set. Every table gives the same bits; which one runs is chosen once, far away from the loops.
#pragma once

#include <array>
#include <span>

namespace quenta {

// Two lanes: what every x86-64 has, and most other 64-bit machines.
struct baseline {
    static constexpr const char* name = "baseline";
    static constexpr int width = 2;
};

struct avx2 {
    static constexpr const char* name = "avx2";
    static constexpr int width = 4;
};

// Twice as many registers, too.
struct avx512 {
    static constexpr const char* name = "avx512";
    static constexpr int width = 8;
};

// What the processor, and the system that saves its registers, can do.
struct processor_features {
    bool avx2;
    bool avx512;
};

processor_features detected_processor_features();

// Every table that a processor with these features can run, the widest last. Nothing is allocated, since there are
// solvers that promise as much; and to ask a set for its table takes none of its instructions.
template <class table>
std::span<const table* const> runnable_tables(processor_features features = detected_processor_features()) {
#if defined(__x86_64__)
    static const std::array tables{&table::template of<baseline>(), &table::template of<avx2>(),
                                   &table::template of<avx512>()};
    return std::span{tables}.first(features.avx512 ? 3 : features.avx2 ? 2 : 1);
#else
    static_cast<void>(features);
    static const std::array tables{&table::template of<baseline>()};
    return tables;
#endif
}

// The table that solvers use: the widest one that the processor at hand can run.
template <class table>
const table& widest_table() {
    static const table& widest = *runnable_tables<table>().back();
    return widest;
}

} // namespace quenta
