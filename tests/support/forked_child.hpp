// Runs a part of a test in a forked child.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/wait.h>
#include <unistd.h>

namespace quenta_tests {

inline constexpr unsigned seconds_of_a_child = 30;

// Forks. An alarm ends a child that hangs.
inline pid_t fork_child() {
    const pid_t child = fork();
    if (child == 0)
        alarm(seconds_of_a_child);
    return child;
}

// Waits for a child and expects that it exits with 0.
inline ::testing::AssertionResult child_works(pid_t child) {
    if (child < 0)
        return ::testing::AssertionFailure() << "fork failed: " << std::strerror(errno);
    int ending = 0;
    while (waitpid(child, &ending, 0) < 0)
        if (errno != EINTR)
            return ::testing::AssertionFailure() << "waitpid failed: " << std::strerror(errno);
    if (WIFSIGNALED(ending) && WTERMSIG(ending) == SIGALRM)
        return ::testing::AssertionFailure() << "expected the forked child to end, but it hangs";
    if (WIFSIGNALED(ending))
        return ::testing::AssertionFailure()
               << "expected the forked child to exit with 0, got signal " << WTERMSIG(ending);
    if (WEXITSTATUS(ending) != 0)
        return ::testing::AssertionFailure()
               << "expected the forked child to exit with 0, got exit status " << WEXITSTATUS(ending);
    return ::testing::AssertionSuccess();
}

// Forks and expects that works() returns true in the child.
template <class action>
::testing::AssertionResult works_in_forked_child(const action& works) {
    const pid_t child = fork_child();
    if (child == 0)
        _exit(works() ? 0 : 1);
    return child_works(child);
}

} // namespace quenta_tests
