// How a process ends that nobody saves, as death tests see it.
#pragma once

#include <gtest/gtest.h>

#include <csignal>

namespace quenta_tests {

#if defined(_WIN32)

// By an exception that nothing catches: what abort() leaves. The message stays in the library, whose run time is not
// the program's.
inline constexpr const char* message_of_the_uncaught(const char*) {
    return "terminate called";
}
inline ::testing::ExitedWithCode ends_uncaught() {
    return ::testing::ExitedWithCode(3);
}
// By the platform's arithmetic fault: EXCEPTION_INT_DIVIDE_BY_ZERO.
inline ::testing::ExitedWithCode ends_by_arithmetic_fault() {
    return ::testing::ExitedWithCode(int(0xC0000094));
}

#else

inline constexpr const char* message_of_the_uncaught(const char* message) {
    return message;
}
inline ::testing::KilledBySignal ends_uncaught() {
    return ::testing::KilledBySignal(SIGABRT);
}
inline ::testing::KilledBySignal ends_by_arithmetic_fault() {
    return ::testing::KilledBySignal(SIGFPE);
}

#endif

} // namespace quenta_tests
