// The fractional Adams method of K. Diethelm, N. J. Ford and A. D. Freed (A predictor-corrector approach for the
// numerical solution of fractional differential equations, Nonlinear Dynamics 29, 2002; Detailed error analysis for a
// fractional Adams method, Numerical Algorithms 36, 2004), for
//
//     D^a y = f(t, y),  y(0) = y0,  0 < a < 1
//
// on equal steps h, evaluated once more after the correction. With f_j = f(t_j, y_j) and p = a + 1,
//
//     predicted = y0 + h^a / Gamma(a + 1) sum over j < n of b(n - j) f_j
//     y_n       = y0 + h^a / Gamma(a + 2) (f(t_n, predicted) + first(n) f_0 + sum over 0 < j < n of w(n - j) f_j)
//
//     b(k) = k^a - (k - 1)^a,  w(k) = (k + 1)^p - 2 k^p + (k - 1)^p,  first(n) = (n - 1)^p - (n - 1 - a) n^a.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace fractional_adams {

// (1 + x)^p without the first `terms` terms of its series in x, which would cancel: for -1 <= x <= 1.
inline double remainder(double p, double x, int terms) {
    double term = 1.0, sum = 0.0;
    if (std::fabs(x) > 0.2) {
        for (int k = 0; k < terms; ++k) {
            sum += term;
            term *= (p - k) / (k + 1) * x;
        }
        return std::pow(1.0 + x, p) - sum;
    }
    for (int k = 0; k < terms || std::fabs(term) > 1e-18 * std::fabs(sum); ++k) {
        sum += k < terms ? 0.0 : term;
        term *= (p - k) / (k + 1) * x;
    }
    return sum;
}

struct weights {
    // At lag k = 1 .. steps. `change[k]` = first(k) - w(k) corrects the weight of f_0.
    std::vector<double> predictor, corrector, change;

    weights(double a, int steps)
        : predictor(std::size_t(steps) + 1), corrector(predictor.size()), change(predictor.size()) {
        const double p = a + 1.0;
        for (std::size_t k = 1; k < predictor.size(); ++k) {
            const double x = 1.0 / double(k), power = std::pow(double(k), a), above = remainder(p, x, 2);
            predictor[k] = -power * remainder(a, -x, 1);
            corrector[k] = power * double(k) * (above + remainder(p, -x, 2));
            change[k] = -power * double(k) * above;
        }
    }
};

// The sums over j < n of b(n - j) f_j and w(n - j) f_j, where n is the number of values f_0 .. f_{n-1} so far. All
// terms are added in every step, in partial sums that a compiler can keep in vector registers.
template <class value>
class direct_sums {
public:
    direct_sums(const weights& of, int steps) : predictor(std::size_t(steps) + 1), corrector(predictor.size()) {
        for (std::size_t k = 1; k < predictor.size(); ++k) {
            predictor[predictor.size() - k] = of.predictor[k];
            corrector[predictor.size() - k] = of.corrector[k];
        }
        f.reserve(predictor.size());
    }

    void push(value next) { f.push_back(next); }

    struct pair {
        value predictor, corrector;
    };
    pair sums() const {
        const std::size_t n = f.size(), first = predictor.size() - n;
        std::array<value, lanes> b_sum{}, w_sum{};
        std::size_t j = 0;
        for (; j + lanes <= n; j += lanes)
            for (std::size_t lane = 0; lane < lanes; ++lane) {
                b_sum[lane] += predictor[first + j + lane] * f[j + lane];
                w_sum[lane] += corrector[first + j + lane] * f[j + lane];
            }
        for (; j < n; ++j) {
            b_sum[0] += predictor[first + j] * f[j];
            w_sum[0] += corrector[first + j] * f[j];
        }
        pair total{};
        for (std::size_t lane = 0; lane < lanes; ++lane) {
            total.predictor += b_sum[lane];
            total.corrector += w_sum[lane];
        }
        return total;
    }

private:
    static constexpr std::size_t lanes = 32;
    std::vector<double> predictor, corrector; // backwards: lag k at steps + 1 - k
    std::vector<value> f;
};

// y at the points 0 .. run of a solve with `steps` steps of length h. `history` is made for them, and gives the sums.
template <class value, class function, class history>
std::vector<value> solve(double a, const function& f, value y0, double h, int run, const weights& of, history& past) {
    const double predictor_factor = std::pow(h, a) / std::tgamma(a + 1.0),
                 corrector_factor = std::pow(h, a) / std::tgamma(a + 2.0);
    const value first = f(0.0, y0);
    std::vector<value> y(std::size_t(run) + 1, y0);
    past.push(first);
    for (std::size_t n = 1; n < y.size(); ++n) {
        const auto sums = past.sums();
        const double t = double(n) * h;
        const value predicted = y0 + predictor_factor * sums.predictor;
        y[n] = y0 + corrector_factor * (f(t, predicted) + sums.corrector + of.change[n] * first);
        past.push(f(t, y[n]));
    }
    return y;
}

} // namespace fractional_adams
