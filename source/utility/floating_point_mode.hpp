// The processor's mode of floating-point arithmetic for as long as a call lasts.
//
// Every result is defined by IEEE 754 with rounding to nearest, subnormal numbers kept, and no traps. A host may have
// set something else for its own ends; it finds its mode again when the call is over, by whichever way.
#pragma once

#if defined(__x86_64__)
#include <xmmintrin.h>
#else
#include <cfenv>
#endif

namespace quenta {

#if defined(__x86_64__)

#if defined(_WIN32)
// `cos` and `sin` of the run time are instructions of the older unit there, which has a mode of its own. Its threads
// start with another one than that of the run time.
class standard_x87_mode {
public:
    standard_x87_mode() {
        __asm__ volatile("fnstcw %0" : "=m"(host));
        if (host != standard)
            set(standard);
    }
    ~standard_x87_mode() {
        if (host != standard)
            set(host);
    }
    standard_x87_mode(const standard_x87_mode&) = delete;
    standard_x87_mode& operator=(const standard_x87_mode&) = delete;

private:
    static constexpr unsigned short standard = 0x037F; // all 64 digits, to nearest, no traps

    static void set(unsigned short word) { __asm__ volatile("fldcw %0" : : "m"(word)); }

    unsigned short host;
};
#else
struct standard_x87_mode {}; // nothing calculates there
#endif

// Setting the control word costs more than asking for it, so it is set only where it differs.
class standard_floating_point_mode : standard_x87_mode {
public:
    standard_floating_point_mode() {
        if (differs())
            _mm_setcsr((host & ~control) | standard);
    }
    ~standard_floating_point_mode() {
        if (differs())
            _mm_setcsr((host & control) | (_mm_getcsr() & ~control));
    }
    standard_floating_point_mode(const standard_floating_point_mode&) = delete;
    standard_floating_point_mode& operator=(const standard_floating_point_mode&) = delete;

private:
    static constexpr unsigned control = 0xFFC0; // the other bits record what happened
    static constexpr unsigned standard = 0x1F80;

    bool differs() const { return (host & control) != standard; }

    const unsigned host = _mm_getcsr();
};

#else

class standard_floating_point_mode {
public:
    standard_floating_point_mode() {
        std::fegetenv(&host);
        std::fesetenv(FE_DFL_ENV);
    }
    ~standard_floating_point_mode() { std::fesetenv(&host); }
    standard_floating_point_mode(const standard_floating_point_mode&) = delete;
    standard_floating_point_mode& operator=(const standard_floating_point_mode&) = delete;

private:
    std::fenv_t host;
};

#endif

} // namespace quenta
