// The table of collocation settings, written out. A setting is the collocation scheme with the nodes k / m.
#pragma once

#include <initializer_list>
#include <vector>

namespace reference {

struct setting {
    int m;
    std::vector<int> indices;

    std::vector<double> nodes() const {
        std::vector<double> c;
        for (const int k : indices)
            c.push_back(double(k) / double(m));
        return c;
    }
    // c_i c_q at i * P + q: the points of the quadrature rule for the current step.
    std::vector<double> products_of_nodes() const {
        std::vector<double> products;
        for (const double c_i : nodes())
            for (const double c_q : nodes())
                products.push_back(c_i * c_q);
        return products;
    }
    // The positions of the samples in a step, in units of the step.
    std::vector<double> samples() const {
        std::vector<double> s;
        for (int e = 0; e <= m * m; ++e)
            s.push_back(double(e) / double(m * m));
        return s;
    }
};

inline const std::vector<setting>& settings() {
    static const std::vector<setting> table = [] {
        std::vector<setting> rows;
        const auto add = [&](int m, std::initializer_list<std::vector<int>> lists) {
            for (const std::vector<int>& indices : lists)
                rows.push_back({m, indices});
        };
        add(1, {{0}, {1}, {0, 1}});                                                               // rows 0 to 2
        add(2, {{0}, {1}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}});                               // rows 3 to 9
        add(3, {{0}, {1}, {2}, {3}});                                                             // rows 10 to 13
        add(3, {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}});                                 // rows 14 to 19
        add(3, {{0, 1, 2}, {0, 1, 3}, {0, 2, 3}, {1, 2, 3}});                                     // rows 20 to 23
        add(3, {{0, 1, 2, 3}});                                                                   // row 24
        add(4, {{0}, {1}, {2}, {3}, {4}});                                                        // rows 25 to 29
        add(4, {{0, 1}, {0, 2}, {0, 3}, {0, 4}, {1, 2}, {1, 3}, {1, 4}, {2, 3}, {2, 4}, {3, 4}}); // rows 30 to 39
        add(4, {{0, 1, 2},
                {0, 1, 3},
                {0, 1, 4},
                {0, 2, 3},
                {0, 2, 4},
                {0, 3, 4},
                {1, 2, 3},
                {1, 2, 4},
                {1, 3, 4},
                {2, 3, 4}});                                                            // rows 40 to 49
        add(4, {{0, 1, 2, 3}, {0, 1, 2, 4}, {0, 1, 3, 4}, {0, 2, 3, 4}, {1, 2, 3, 4}}); // rows 50 to 54
        add(4, {{0, 1, 2, 3, 4}});                                                      // row 55
        return rows;
    }();
    return table;
}

} // namespace reference
