// The collocation settings, written out.
#pragma once

#include <cstddef>
#include <vector>

namespace reference {

struct setting {
    int m;
    std::vector<int> indices;

    // The collocation parameters k / m.
    std::vector<double> nodes() const {
        std::vector<double> c;
        for (const int k : indices)
            c.push_back(double(k) / double(m));
        return c;
    }
    // c_i c_q at i * P + q: where the first of the integrals of a step is sampled.
    std::vector<double> products_of_nodes() const {
        std::vector<double> products;
        for (const double c_i : nodes())
            for (const double c_q : nodes())
                products.push_back(c_i * c_q);
        return products;
    }
    // The places of the samples in a step, in units of the step.
    std::vector<double> samples() const {
        std::vector<double> s;
        for (int e = 0; e <= m * m; ++e)
            s.push_back(double(e) / double(m * m));
        return s;
    }
};

inline const std::vector<setting>& settings() {
    static const std::vector<setting> table{
        {1, {0}},
        {1, {1}},
        {1, {0, 1}}, // 0 .. 2
        {2, {0}},
        {2, {1}},
        {2, {2}}, // 3 .. 5
        {2, {0, 1}},
        {2, {0, 2}},
        {2, {1, 2}},
        {2, {0, 1, 2}}, // 6 .. 9
        {3, {0}},
        {3, {1}},
        {3, {2}},
        {3, {3}}, // 10 .. 13
        {3, {0, 1}},
        {3, {0, 2}},
        {3, {0, 3}},
        {3, {1, 2}},
        {3, {1, 3}}, // 14 .. 18
        {3, {2, 3}},
        {3, {0, 1, 2}},
        {3, {0, 1, 3}},
        {3, {0, 2, 3}},
        {3, {1, 2, 3}},    // 19 .. 23
        {3, {0, 1, 2, 3}}, // 24
        {4, {0}},
        {4, {1}},
        {4, {2}},
        {4, {3}},
        {4, {4}}, // 25 .. 29
        {4, {0, 1}},
        {4, {0, 2}},
        {4, {0, 3}},
        {4, {0, 4}},
        {4, {1, 2}}, // 30 .. 34
        {4, {1, 3}},
        {4, {1, 4}},
        {4, {2, 3}},
        {4, {2, 4}},
        {4, {3, 4}}, // 35 .. 39
        {4, {0, 1, 2}},
        {4, {0, 1, 3}},
        {4, {0, 1, 4}},
        {4, {0, 2, 3}},
        {4, {0, 2, 4}}, // 40 .. 44
        {4, {0, 3, 4}},
        {4, {1, 2, 3}},
        {4, {1, 2, 4}},
        {4, {1, 3, 4}},
        {4, {2, 3, 4}}, // 45 .. 49
        {4, {0, 1, 2, 3}},
        {4, {0, 1, 2, 4}},
        {4, {0, 1, 3, 4}},
        {4, {0, 2, 3, 4}},
        {4, {1, 2, 3, 4}},    // 50 .. 54
        {4, {0, 1, 2, 3, 4}}, // 55
    };
    return table;
}

} // namespace reference
