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

// Forks, and runs `works()` in the child. A child that hangs is ended by its alarm and counts as failed.
template <class action>
::testing::AssertionResult works_in_forked_child(const action& works) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(seconds_of_a_child);
        _exit(works() ? 0 : 1);
    }
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

} // namespace quenta_tests
