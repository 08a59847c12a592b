// The online block convolution, in plain loops, with a record of what it did.
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

    // Blocks of p rows and q columns.
    toeplitz_history(int steps, int rows, int columns)
        : n{steps}, p{rows}, q{columns}, kernel(size(n) * size(p) * size(q)), sums(size(n) * size(p)),
          pushed(size(n) * size(q)), cache_budget{2 * kernel.size()}, next_block{n} {}

    void set_kernel_provider(provider_function function) {
        provider = function;
        next_block = 1;
    }

    double& kernel_at(int d, int r, int c) { return kernel[(size(d) * size(p) + size(r)) * size(q) + size(c)]; }
    double& sum_at(int t, int r) { return sums[size(t) * size(p) + size(r)]; }
    double& pushed_at(int j, int c) { return pushed[size(j) * size(q) + size(c)]; }

    void push(const std::vector<double>& values) {
        for (int c = 0; c < q; ++c)
            pushed_at(count, c) = values[size(c)];
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
    std::map<int, bool> cached_level; // a level that was tried: whether it fitted
    int next_block;

    // What was done.
    std::size_t direct_pairs = 0;     // pairs of a source and a target summed directly
    std::size_t transformed_rows = 0; // transforms of one row
    std::size_t spectrum_points = 0;  // pointwise products

private:
    static std::size_t size(int number) { return static_cast<std::size_t>(number); }

    void convolve_direct(int i, int s, int end) {
        for (int t = i; t < end; ++t)
            for (int j = i - s; j < i; ++j) {
                direct_pairs = direct_pairs + 1;
                for (int r = 0; r < p; ++r) {
                    double dot = 0.0;
                    for (int c = 0; c < q; ++c)
                        dot = dot + kernel_at(t - j, r, c) * pushed_at(j, c);
                    sum_at(t, r) = sum_at(t, r) + dot;
                }
            }
    }

    struct row {
        explicit row(int m) : re(size(m)), im(size(m)) {}
        std::vector<double> re, im;
    };

    void transform(row& values, bool inverse) {
        transformed_rows = transformed_rows + 1;
        fft(values.re.data(), values.im.data(), values.re.size(), inverse);
    }

    row kernel_entry(int r, int c, int m) {
        row entry(m);
        for (int u = 1; u <= std::min(m, n) - 1; ++u)
            entry.re[size(u)] = kernel_at(u, r, c);
        transform(entry, false);
        return entry;
    }

    void convolve_fft(int i, int s, int end) {
        const int m = 2 * s;
        int level = 0;
        for (int block = 32; block < s; block = 2 * block)
            level = level + 1;
        const bool cached = ensure_kernel_transform(level, m);

        std::vector<row> x;
        for (int c = 0; c < q; ++c) {
            row source(m);
            for (int u = 0; u < s; ++u)
                source.re[size(u)] = pushed_at(i - s + u, c);
            transform(source, false);
            x.push_back(source);
        }
        const double scale = 1.0 / double(m);
        for (int r = 0; r < p; ++r) {
            row acc(m);
            for (int c = 0; c < q; ++c) {
                const row uncached = cached ? row{0} : kernel_entry(r, c, m);
                const row& k = cached ? cache[level][size(q * r + c)] : uncached;
                const row& X = x[size(c)];
                for (std::size_t u = 0; u < size(m); ++u) {
                    acc.re[u] = acc.re[u] + (k.re[u] * X.re[u] - k.im[u] * X.im[u]);
                    acc.im[u] = acc.im[u] + (k.im[u] * X.re[u] + k.re[u] * X.im[u]);
                    spectrum_points = spectrum_points + 1;
                }
            }
            transform(acc, true);
            for (int t = i; t < end; ++t)
                sum_at(t, r) = sum_at(t, r) + acc.re[size(s + (t - i))] * scale;
        }
    }

    bool ensure_kernel_transform(int level, int m) {
        if (cached_level.contains(level))
            return cached_level[level];
        const std::size_t cost = 2 * size(p) * size(q) * size(m);
        cached_level[level] = cache_budget >= cost;
        if (!cached_level[level])
            return false;
        cache_budget = cache_budget - cost;
        for (int r = 0; r < p; ++r)
            for (int c = 0; c < q; ++c)
                cache[level].push_back(kernel_entry(r, c, m));
        return true;
    }

    provider_function provider;
    std::map<int, std::vector<row>> cache;
};

} // namespace reference
