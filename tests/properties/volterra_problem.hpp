// Second-kind equations with a known solution.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <functional>
#include <ostream>
#include <vector>

namespace quenta_tests {

// y(t) = g(t) + integral from 0 to t of K(t - s) y(s) ds.
struct volterra_problem {
    const char* name;
    std::function<double(double)> y, K, convolution; // the last one is that of K and y

    double g(double t) const { return y(t) - convolution(t); }
};

inline void PrintTo(const volterra_problem& problem, std::ostream* stream) {
    *stream << problem.name;
}

// y = Re exp(lambda t) and K = Re exp(mu t). The convolution follows from Re(v) Re(w) = Re(v w + v conj(w)) / 2.
inline volterra_problem exponential_problem(const char* name, std::complex<double> lambda, std::complex<double> mu) {
    const auto wave = [](std::complex<double> rate) {
        return [rate](double t) {
            return std::exp(rate * t).real();
        };
    };
    const auto convolution = [=](double t) {
        const auto integral = [&](std::complex<double> rate) {
            return (std::exp(lambda * t) - std::exp(rate * t)) / (lambda - rate);
        };
        return (integral(mu) + integral(std::conj(mu))).real() / 2.0;
    };
    return {name, wave(lambda), wave(mu), convolution};
}

// Coefficients in ascending powers.
using polynomial = std::vector<double>;

inline double value(const polynomial& coefficients, double t) {
    double sum = 0.0;
    for (std::size_t p = coefficients.size(); p > 0; --p)
        sum = sum * t + coefficients[p - 1];
    return sum;
}

// The convolution of t^v and t^w is t^(v+w+1) * v! w! / (v+w+1)!.
inline polynomial convolution(const polynomial& K, const polynomial& y) {
    polynomial result(K.size() + y.size(), 0.0);
    for (std::size_t of_K = 0; of_K < K.size(); ++of_K)
        for (std::size_t of_y = 0; of_y < y.size(); ++of_y)
            result[of_K + of_y + 1] += K[of_K] * y[of_y] * std::beta(double(of_K + 1), double(of_y + 1));
    return result;
}

inline volterra_problem polynomial_problem(const char* name, const polynomial& y, const polynomial& K) {
    const auto function = [](const polynomial& p) {
        return [p](double t) {
            return value(p, t);
        };
    };
    return {name, function(y), function(K), function(convolution(K, y))};
}

} // namespace quenta_tests
