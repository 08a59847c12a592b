// Collocation settings and their text form: "2:0,1,2" is m = 2 with the nodes 0, 1, 2.
#pragma once

#include <string>
#include <vector>

namespace quenta_program {

struct setting {
    int m;
    std::vector<int> nodes; // k_i: node i is at c_i = k_i / m

    int count() const { return static_cast<int>(nodes.size()); }
    int samples_per_step() const { return m * m; }
    std::string text() const;
    bool operator==(const setting&) const = default;
};

// The default. Of the settings with few samples per step it is the most accurate for smooth data: quadratic
// polynomials, with Simpson's rule for the integrals. Its order is 3, and 4 at the nodes. It reads half of the samples;
// the program warns if the other half contradicts them.
inline constexpr const char* default_setting = "2:0,1,2";

// The default for first-kind equations, for which the node 0 is singular: again quadratic polynomials. It is the
// smallest setting with more than one node whose errors do not grow in either form.
inline constexpr const char* default_first_kind_setting = "3:1,2,3";

// The settings that read every sample; for the first kind, every sample except the first of g and the last of K.
inline constexpr const char* every_sample_setting = "1:0,1";
inline constexpr const char* every_sample_first_kind_setting = "1:1";

// The settings that the library supports, in its order.
std::vector<setting> supported_settings();

// The same settings, sorted by their distance from `asked`. If `asked` is supported, it is the first.
std::vector<setting> nearest_settings(const setting& asked);

// Parses "m:k1,k2,..". Throws bad_input if the text has another form or the setting is not supported; then the message
// names the nearest settings.
setting parse_setting(const std::string& text);

// The table that `quenta settings` prints.
std::string settings_listing();

} // namespace quenta_program
