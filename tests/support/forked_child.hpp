// The child of a fork, as a test sees it.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/wait.h>
#include <unistd.h>

namespace quenta_tests {

inline constexpr unsigned seconds_of_a_child = 30;

// Forks. A child that hangs is ended by its alarm.
inline pid_t fork_child() {
    const pid_t child = fork();
    if (child == 0)
        alarm(seconds_of_a_child);
    return child;
}

// Waits for the end of a child, which is to exit with 0.
inline ::testing::AssertionResult child_works(pid_t child) {
    if (child < 0)
        return ::testing::AssertionFailure() << "fork failed: " << std::strerror(errno);
    int ending = 0;
    while (waitpid(child, &ending, 0) < 0)
        if (errno != EINTR)
            return ::testing::AssertionFailure() << "waitpid failed: " << std::strerror(errno);
    if (WIFSIGNALED(ending) && WTERMSIG(ending) == SIGALRM)
        return ::testing::AssertionFailure() << "the child of a fork hangs";
    if (WIFSIGNALED(ending))
        return ::testing::AssertionFailure() << "the child of a fork was ended by signal " << WTERMSIG(ending);
    if (WEXITSTATUS(ending) != 0)
        return ::testing::AssertionFailure() << "the child of a fork gives another result";
    return ::testing::AssertionSuccess();
}

// Forks, and runs `works()` in the child.
template <class action>
::testing::AssertionResult works_in_forked_child(const action& works) {
    const pid_t child = fork_child();
    if (child == 0)
        _exit(works() ? 0 : 1);
    return child_works(child);
}

} // namespace quenta_tests
