// Floating-point modes that a host may have set.
#pragma once

#include <gtest/gtest.h>

#include <cfenv>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace quenta_tests {

struct host_mode {
    std::string name;
    std::function<void()> set;
    std::function<bool()> holds;
};

inline void PrintTo(const host_mode& mode, std::ostream* stream) {
    *stream << mode.name;
}

inline std::vector<host_mode> host_modes() {
    std::vector<host_mode> modes;
    const auto add_rounding = [&](const char* name, int mode) {
        modes.push_back({name, [mode] { std::fesetround(mode); },
                         [mode] {
                             return std::fegetround() == mode;
                         }});
    };
    add_rounding("to nearest", FE_TONEAREST);
    add_rounding("upward", FE_UPWARD);
    add_rounding("downward", FE_DOWNWARD);
    add_rounding("to zero", FE_TOWARDZERO);
#if defined(__x86_64__)
    static constexpr unsigned flush_to_zero = 0x8000, subnormals_are_zero = 0x0040, traps = 0x1F80;
    const auto control = [] {
        return _mm_getcsr() & 0xFFC0;
    };
    modes.push_back({"subnormals flushed", [] { _mm_setcsr(traps | flush_to_zero | subnormals_are_zero); },
                     [=] {
                         return control() == (traps | flush_to_zero | subnormals_are_zero);
                     }});
    modes.push_back({"overflow traps", [] { _mm_setcsr(traps & ~0x0400u); },
                     [=] {
                         return control() == (traps & ~0x0400u);
                     }});
#endif
#if defined(__aarch64__)
    static constexpr std::uint64_t subnormals_flushed = std::uint64_t{1} << 24;
    const auto flush_subnormals = [] {
        __asm__ volatile("msr fpcr, %0" : : "r"(subnormals_flushed));
    };
    modes.push_back({"subnormals flushed", flush_subnormals, [] {
                         std::uint64_t word;
                         __asm__ volatile("mrs %0, fpcr" : "=r"(word));
                         return word == subnormals_flushed;
                     }});
#endif
#if defined(_WIN32)
    static constexpr unsigned short double_precision = 0x027F; // the mode that the system gives to a new thread
    const auto set_double_precision = [] {
        __asm__ volatile("fldcw %0" : : "m"(double_precision));
    };
    modes.push_back({"x87 in double precision", set_double_precision, [] {
                         unsigned short word;
                         __asm__ volatile("fnstcw %0" : "=m"(word));
                         return word == double_precision;
                     }});
#endif
    return modes;
}

// What solve() returns on a thread that has set the mode.
template <class solver>
auto in_mode(const host_mode& mode, const solver& solve) {
    std::optional<decltype(solve())> answer;
    std::thread{[&] {
        mode.set();
        std::feraiseexcept(FE_DIVBYZERO);
        answer.emplace(solve());
        EXPECT_TRUE(mode.holds()) << "expected the mode of the host to be restored";
        EXPECT_NE(std::fetestexcept(FE_DIVBYZERO), 0) << "expected the exception flags of the host to be kept";
    }}.join();
    return *answer;
}

} // namespace quenta_tests
