// The instruction sets for which vector loops are compiled, and the choice among them at run time.
//
// A loop is written once, as a template on the tag of an instruction set. Its functions are collected in a table: a
// struct with a template function `of<instruction_set>()`, which returns the table of that instruction set. For each
// instruction set, one unit instantiates this function and is compiled with the options of the set. All tables give the
// same bits. The choice of the table is made outside the loops.
#pragma once

#include <array>
#include <cstddef>

namespace quenta {

// Two lanes: available on every x86-64 and most other 64-bit machines.
struct baseline {
    static constexpr const char* name = "baseline";
    static constexpr int width = 2;
};

struct avx2 {
    static constexpr const char* name = "avx2";
    static constexpr int width = 4;
};

// It also has twice as many registers.
struct avx512 {
    static constexpr const char* name = "avx512";
    static constexpr int width = 8;
};

// What the processor supports, and the operating system, which must save its registers.
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

    // For tests of all tables.
    const table* const* begin() const { return tables.data(); }
    const table* const* end() const { return tables.data() + count; }
    const table* back() const { return tables[count - 1]; }
};

// Every table that a processor with these features can run. Nothing is allocated, since the block solvers promise that.
// Getting the table of an instruction set executes no instruction of that set.
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
