// The peer of loops that are bound by memory: one read of an array.
#pragma once

#include <cstdint>
#include <cstring>

// The sum of an array, with four independent vector sums so that memory is the only limit.
inline double read_all(const double* values, std::int64_t count) {
    constexpr std::int64_t lanes = 8, in_flight = 4;
    typedef double wide __attribute__((vector_size(lanes * sizeof(double))));
    wide partial[in_flight]{};
    std::int64_t u = 0;
    for (; u + lanes * in_flight <= count; u += lanes * in_flight)
        for (std::int64_t part = 0; part < in_flight; ++part) {
            wide next;
            std::memcpy(&next, values + u + lanes * part, sizeof next);
            partial[part] += next;
        }
    double sum = 0.0;
    for (; u < count; ++u)
        sum += values[u];
    for (const wide& part : partial)
        for (std::int64_t lane = 0; lane < lanes; ++lane)
            sum += part[lane];
    return sum;
}
