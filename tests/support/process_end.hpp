// How a process ends after a failure that it does not handle, for death tests.
#pragma once

#include <gtest/gtest.h>

#include <csignal>

namespace quenta_tests {

#if defined(_WIN32)

// After an uncaught exception: the exit code of abort(). The message of the exception is not printed, because the
// library has a C++ run time of its own.
inline constexpr const char* message_of_the_uncaught(const char*) {
    return "terminate called";
}
inline ::testing::ExitedWithCode ends_uncaught() {
    return ::testing::ExitedWithCode(3);
}
// After an integer division by zero: EXCEPTION_INT_DIVIDE_BY_ZERO.
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
