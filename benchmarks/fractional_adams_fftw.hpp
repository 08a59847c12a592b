// The sums of the fractional Adams method on the dyadic block schedule with FFTW's real transforms. Plans and arrays
// are made by the constructor, before the clock starts; `start` fills in the weights, whose spectra belong to the
// solve.
#pragma once

#include "fftw_schedule.hpp"

#include "equations/fractional_adams.hpp"

#include <algorithm>
#include <cstdint>

class fftw_adams_sums {
public:
    explicit fftw_adams_sums(int steps) : history(steps + 1) {}

    void start(const fractional_adams::weights& of) {
        std::copy(of.predictor.begin(), of.predictor.end(), history.kernel(0, 0));
        std::copy(of.corrector.begin(), of.corrector.end(), history.kernel(1, 0));
        history.start();
        pushed = 0;
    }

    void push(double f) {
        history.push(&f);
        ++pushed;
    }

    struct pair {
        double predictor, corrector;
    };
    pair sums() const { return {history.sums(0)[pushed], history.sums(1)[pushed]}; }

private:
    fftw_history<2, 1> history;
    std::int64_t pushed = 0;
};
