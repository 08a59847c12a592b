// The floating-point mode of the processor during a call.
//
// Every result is defined by IEEE 754 with rounding to nearest, subnormal numbers kept, and no traps. A host may have
// set another mode. It is restored at the end of the call, even if the call throws.
#pragma once

#if defined(__x86_64__)
#include <xmmintrin.h>
#else
#include <cstdint>
#endif

namespace quenta {

#if defined(_WIN32)
// On this platform `cos` and `sin` of the C library are instructions of the x87 unit, which has its own mode. Not all
// threads start with the same one.
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
struct standard_x87_mode {}; // the x87 unit is not used
#endif

// The register that holds the mode. Its bits outside `control` are status flags.
#if defined(__x86_64__)
struct control_register {
    using word = unsigned;
    static constexpr word control = 0xFFC0, standard = 0x1F80;

    static word get() { return _mm_getcsr(); }
    static void set(word value) { _mm_setcsr(value); }
};
#elif defined(__aarch64__)
struct control_register {
    using word = std::uint64_t;
    static constexpr word control = ~word{0}, standard = 0;

    static word get() {
        word value;
        __asm__ volatile("mrs %0, fpcr" : "=r"(value));
        return value;
    }
    static void set(word value) { __asm__ volatile("msr fpcr, %0" : : "r"(value) : "memory"); }
};
#else
#error "unknown processor: add how its floating-point mode is read and set"
#endif

// Writing the mode is slower than reading it, so it is written only if it differs.
class standard_floating_point_mode : standard_x87_mode {
public:
    standard_floating_point_mode() {
        if (differs())
            mode::set((host & ~mode::control) | mode::standard);
    }
    ~standard_floating_point_mode() {
        if (differs())
            mode::set((host & mode::control) | (mode::get() & ~mode::control));
    }
    standard_floating_point_mode(const standard_floating_point_mode&) = delete;
    standard_floating_point_mode& operator=(const standard_floating_point_mode&) = delete;

private:
    using mode = control_register;

    bool differs() const { return (host & mode::control) != mode::standard; }

    const mode::word host = mode::get();
};

} // namespace quenta
