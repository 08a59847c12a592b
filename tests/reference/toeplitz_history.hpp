// The online block convolution in plain loops, with a record of the work.
//
// sums[t] = sum over k < t of kernel[t - k] pushed[k], with blocks of p rows and q columns. Push number i, from 1, adds
// the contributions of the last s values to the next s sums, where s is the largest power of two that divides i.
#pragma once

#include "reference/fft.hpp"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <vector>

namespace reference {

class toeplitz_history {
public:
    using provider_function = std::function<void(int lag, toeplitz_history& history)>;

    toeplitz_history(int steps, int rows, int columns)
        : n{steps}, p{rows}, q{columns}, kernel(size(n) * size(p) * size(q)), sums(size(n) * size(p)),
          pushed(size(n) * size(q)), cache_budget{2 * kernel.size()}, next_block{n} {}

    void set_kernel_provider(provider_function function) {
        provider = function;
        next_block = 1;
    }

    double& kernel_at(int d, int R, int C) { return kernel[(size(d) * size(p) + size(R)) * size(q) + size(C)]; }
    double& sum_at(int t, int R) { return sums[size(t) * size(p) + size(R)]; }
    double& pushed_at(int k, int C) { return pushed[size(k) * size(q) + size(C)]; }

    void push(const std::vector<double>& values) {
        for (int C = 0; C < q; ++C)
            pushed_at(count, C) = values[size(C)];
        count = count + 1;
        const int i = count;
        if (i >= n)
            return;
        const int s = i & ~(i - 1);
        const int end = std::min(i + s, n);
        const int targets = end - i;
        const bool transform = s >= 32 && targets >= 32;
        const int last_lag = transform ? std::min(2 * s - 1, n - 1) : std::min(targets + s - 1, n - 1);
        if (provider)
            while (next_block <= last_lag) {
                provider(next_block, *this);
                next_block = next_block + 1;
            }
        if (transform)
            convolve_fft(i, s, end);
        else
            convolve_direct(i, s, end);
    }

    int n, p, q;
    std::vector<double> kernel, sums, pushed;
    int count = 0;
    std::size_t cache_budget;
    std::map<int, bool> cached_level; // the levels that were tried, and whether each fitted
    int next_block;

    // The record of the work.
    std::size_t direct_pairs = 0;     // pairs of a source and a target that were summed directly
    std::size_t transformed_rows = 0; // transforms of one row
    std::size_t spectrum_points = 0;  // products of spectra at one frequency

private:
    static std::size_t size(int number) { return static_cast<std::size_t>(number); }

    void convolve_direct(int i, int s, int end) {
        for (int t = i; t < end; ++t)
            for (int k = i - s; k < i; ++k) {
                direct_pairs = direct_pairs + 1;
                for (int R = 0; R < p; ++R) {
                    double dot = 0.0;
                    for (int C = 0; C < q; ++C)
                        dot = dot + kernel_at(t - k, R, C) * pushed_at(k, C);
                    sum_at(t, R) = sum_at(t, R) + dot;
                }
            }
    }

    struct spectrum {
        explicit spectrum(int points) : re(size(points)), im(size(points)) {}
        std::vector<double> re, im;
    };

    void transform(spectrum& values, bool inverse) {
        transformed_rows = transformed_rows + 1;
        fft(values.re.data(), values.im.data(), values.re.size(), inverse);
    }

    spectrum kernel_entry(int R, int C, int points) {
        spectrum entry(points);
        for (int d = 1; d <= std::min(points, n) - 1; ++d)
            entry.re[size(d)] = kernel_at(d, R, C);
        transform(entry, false);
        return entry;
    }

    void convolve_fft(int i, int s, int end) {
        const int points = 2 * s;
        int level = 0;
        for (int block = 32; block < s; block = 2 * block)
            level = level + 1;
        const bool cached = ensure_kernel_transform(level, points);

        std::vector<spectrum> x;
        for (int C = 0; C < q; ++C) {
            spectrum source(points);
            for (int u = 0; u < s; ++u)
                source.re[size(u)] = pushed_at(i - s + u, C);
            transform(source, false);
            x.push_back(source);
        }
        const double scale = 1.0 / double(points);
        for (int R = 0; R < p; ++R) {
            spectrum acc(points);
            for (int C = 0; C < q; ++C) {
                const spectrum uncached = cached ? spectrum{0} : kernel_entry(R, C, points);
                const spectrum& K = cached ? cache[level][size(q * R + C)] : uncached;
                const spectrum& X = x[size(C)];
                for (std::size_t f = 0; f < size(points); ++f) {
                    acc.re[f] = acc.re[f] + (K.re[f] * X.re[f] - K.im[f] * X.im[f]);
                    acc.im[f] = acc.im[f] + (K.im[f] * X.re[f] + K.re[f] * X.im[f]);
                    spectrum_points = spectrum_points + 1;
                }
            }
            transform(acc, true);
            for (int t = i; t < end; ++t)
                sum_at(t, R) = sum_at(t, R) + acc.re[size(s + (t - i))] * scale;
        }
    }

    bool ensure_kernel_transform(int level, int points) {
        if (cached_level.contains(level))
            return cached_level[level];
        const std::size_t cost = 2 * size(p) * size(q) * size(points);
        cached_level[level] = cache_budget >= cost;
        if (!cached_level[level])
            return false;
        cache_budget = cache_budget - cost;
        for (int R = 0; R < p; ++R)
            for (int C = 0; C < q; ++C)
                cache[level].push_back(kernel_entry(R, C, points));
        return true;
    }

    provider_function provider;
    std::map<int, std::vector<spectrum>> cache;
};

} // namespace reference
