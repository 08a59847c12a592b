// Reads the samples of an equation from a CSV file, in the array shapes of the library.
#pragma once

#include "settings_table.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace quenta_program {

// The terms of each kind, in addition to the kernel.
enum class equation_kind {
    first,               // g
    second,              // g
    integro_differential // g and a; a term without columns is zero
};

struct equation_samples {
    std::vector<double> t;
    std::vector<double> g;             // g[sample][a]
    std::vector<double> K;             // K[sample][a][b]
    std::vector<double> a;             // as K; empty if the kind has no coefficient
    std::vector<std::string> unknowns; // "y"; "y1", "y2", .. for a system
    double spacing;
    int steps;
    std::size_t used;      // number of samples in the whole steps
    bool reads_non_finite; // the setting reads a sample that is NaN or infinite

    int samples() const { return static_cast<int>(t.size()); }
    std::size_t dimension() const { return unknowns.size(); }

    // K at `count` samples from `first` on.
    std::span<const double> kernels(std::size_t first, std::size_t count) const {
        const std::size_t entries = dimension() * dimension();
        return std::span(K).subspan(first * entries, count * entries);
    }
};

// Reads the columns t, g, K and a, or those of a system: t, g1 .. gD, K11, K12 .. KDD and a11, a12 .. aDD. For ten or
// more equations the matrices are K1_1, K1_2 .. KD_D, because K111 would be ambiguous.
//
// Throws bad_input on samples that the library does not accept. Warns of samples that are not finite, and of samples
// that the setting does not read and that contradict those it reads.
equation_samples read_equation(const std::string& input, equation_kind kind, const setting& chosen);

} // namespace quenta_program
