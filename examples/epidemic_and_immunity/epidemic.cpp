// An epidemic in a population with births, deaths and immunity, for two distributions of the infectious period.
// README.md describes the equations.
#include <quenta_equations.hpp>

#include <cmath>
#include <cstdio>
#include <exception>
#include <functional>
#include <span>

namespace {

constexpr double contacts = 3.0, deaths = 1.0 / 20, vaccinations = 1.0 / 1000;
constexpr double infected_at_0 = 0.01, immune_at_0 = 0.1, immune_at_birth = 0.01;

// y = (infected, immune); `infectious` is the probability that an infection has lasted longer than u.
quenta::equation epidemic(std::function<double(double)> infectious) {
    const auto forcing = [=](double t, std::span<double> g) {
        const double alive = std::exp(-deaths * t);
        g[0] = infected_at_0 * infectious(t) * alive;
        g[1] = infected_at_0 * (1 - infectious(t)) * alive + immune_at_0 * alive + immune_at_birth * (1 - alive);
    };
    const auto kernel = [=](double u, std::span<double> K) { // 2 rows; the columns are infections and vaccinations
        const double alive = std::exp(-deaths * u);
        K[0] = infectious(u) * alive, K[1] = 0;
        K[2] = (1 - infectious(u)) * alive, K[3] = alive;
    };
    const auto phi = [](double, std::span<const double> y, std::span<double> rates) {
        const double susceptible = 1 - y[0] - y[1];
        rates[0] = contacts * y[0] * susceptible;
        rates[1] = vaccinations * susceptible;
    };
    return quenta::second_kind(forcing, 2).lag_memory(kernel, phi);
}

void print(const char* name, const quenta::solution& y) {
    double highest = 0, time = 0;
    for (double t = 0; t <= 50; t += 0.01)
        if (y(t) > highest)
            highest = y(t), time = t;
    std::printf("%s infectious period: %.1f%% infected at t = %.2f\n", name, 100 * highest, time);
    for (const double t : {25.0, 50.0})
        std::printf("  t = %.0f: infected %.10f, immune %.10f\n", t, y.at(t)[0], y.at(t)[1]);
}

} // namespace

int main() {
    try {
        const auto tolerance = quenta::to_tolerance(1e-9);
        print("exponential", epidemic([](double u) { return std::exp(-u); }).solve(50, tolerance));
        print("gamma",
              epidemic([](double u) { return std::exp(-3 * u) * (1 + 3 * u + 4.5 * u * u); }).solve(50, tolerance));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
