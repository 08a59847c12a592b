// The collocation settings as a user writes and reads them: "2:0,1,2" is m = 2 with the nodes 0, 1, 2.
#pragma once

#include <string>
#include <vector>

namespace quenta_program {

struct setting {
    int m;
    std::vector<int> nodes;

    int count() const { return static_cast<int>(nodes.size()); }
    int samples_per_step() const { return m * m; }
    std::string text() const;
    bool operator==(const setting&) const = default;
};

// The setting taken when none is asked for. Of the settings with few samples per step it is the most accurate for
// smooth data: parabolas, with Simpson's rule for the integrals. It keeps the nodes at both ends of a step, where
// samples are, and its errors shrink with the third power of the spacing, at the nodes with the fourth. It reads half
// of the samples: a warning is given if the other half contradicts them.
inline constexpr const char* default_setting = "2:0,1,2";

// The same for first-kind equations, which take no node 0: again parabolas. It is the smallest setting of more than one
// node whose errors grow in neither form.
inline constexpr const char* default_first_kind_setting = "3:1,2,3";

// The settings that read every sample, of the first kind all except the first of g and the last of K.
inline constexpr const char* every_sample_setting = "1:0,1";
inline constexpr const char* every_sample_first_kind_setting = "1:1";

// The library's table, row by row.
std::vector<setting> supported_settings();

// The table with the settings nearest to a wanted one first, which may be a row itself.
std::vector<setting> nearest_settings(const setting& asked);

// Reads "m:k1,k2,..". Throws bad_input if the text has another form, or with the nearest settings if it is no row of
// the table.
setting parse_setting(const std::string& text);

// The table for people.
std::string settings_listing();

} // namespace quenta_program
