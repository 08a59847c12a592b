// An equation from its samples in a CSV file: which columns it has, and their values in the shapes of the library.
#pragma once

#include "settings_table.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace quenta_program {

// Which terms an equation has beside its kernel.
enum class equation_kind {
    first,               // g
    second,              // g
    integro_differential // g and a, each zero if it has no column
};

struct equation_samples {
    std::vector<double> t;
    std::vector<double> g;             // the components of a sample side by side
    std::vector<double> K;             // the matrix of a sample row by row
    std::vector<double> a;             // as K; empty if the kind has none
    std::vector<std::string> unknowns; // "y", or "y1", "y2", .. of a system
    double spacing;
    int steps;
    std::size_t solved;    // samples of the whole steps
    bool reads_non_finite; // a sample that is read is NaN or infinite

    int samples() const { return static_cast<int>(t.size()); }
    std::size_t dimension() const { return unknowns.size(); }

    // The matrices of so many samples of K.
    std::span<const double> kernels(std::size_t first, std::size_t count) const {
        const std::size_t entries = dimension() * dimension();
        return std::span(K).subspan(first * entries, count * entries);
    }
};

// Reads the columns t, g, K and a, or those of a system: t, g1 .. gD, K11, K12 .. KDD and a11, a12 .. aDD. From ten
// equations on two indices side by side could be read in two ways, and the matrices are K1_1, K1_2 .. KD_D.
//
// Throws bad_input on what the library may not see, and warns of what the user may not have meant: samples that are not
// finite, and samples that the setting does not read and that contradict the others.
equation_samples read_equation(const std::string& input, equation_kind kind, const setting& chosen);

} // namespace quenta_program
