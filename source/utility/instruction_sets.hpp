// The instruction sets for which a vector loop is compiled, and the choice among them while the program runs.
//
// A loop is written once, as a template on the tag of a set. A table of functions (a struct with a template function
// `of<set>()` that gives the table of a set) is instantiated by one unit for each set, which is compiled with the
// options of that set. Every table gives the same bits; which one runs is chosen once, far away from the loops.
#pragma once

#include <array>
#include <cstddef>

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

// Tables of one kind, the widest last.
template <class table>
struct table_list {
    std::array<const table*, 3> tables;
    std::size_t count;

    const table* const* begin() const { return tables.data(); }
    const table* const* end() const { return tables.data() + count; }
    const table* back() const { return tables[count - 1]; }
};

// Every table that a processor with these features can run. Nothing is allocated, since there are solvers that promise
// as much; and to ask a set for its table takes none of its instructions.
template <class table>
table_list<table> runnable_tables(processor_features features = detected_processor_features()) {
#if defined(__x86_64__)
    const std::size_t count = features.avx512 ? 3 : features.avx2 ? 2 : 1;
    return {{&table::template of<baseline>(), &table::template of<avx2>(), &table::template of<avx512>()}, count};
#else
    static_cast<void>(features);
    return {{&table::template of<baseline>()}, 1};
#endif
}

// The table that solvers use: the widest one that the processor supports. The choice is made at each call, from
// features that were detected when the library was loaded, so it needs neither state nor a lock.
template <class table>
const table& widest_table() {
    return *runnable_tables<table>().back();
}

} // namespace quenta
