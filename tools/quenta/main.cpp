// quenta: solves Volterra equations from samples in CSV files. This file prepares the standard streams and turns
// exceptions into messages and exit codes.
#include "command_line.hpp"
#include "messages.hpp"
#include "temporary_files.hpp"

#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <new>

#if defined(__unix__) || defined(__APPLE__)
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

using namespace quenta_program;

// A closed pipe and a limit on the size of files then fail like other write errors. A standard stream that was closed
// before the start is opened, so that the first file opened here does not get its number.
void prepare_standard_streams() {
    std::ios::sync_with_stdio(false);
#if defined(__unix__) || defined(__APPLE__)
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF)
            // The access mode is reversed on purpose: reads and writes fail as they would on the closed stream.
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
#endif
}

} // namespace

int main(int argc, char** argv) {
    try {
        prepare_standard_streams();
        remove_temporary_files_on_signals();
        return run_command_line(argc, argv);
    } catch (const bad_input& error) {
        print_message(error.what());
        return exit_bad_input;
    } catch (const std::bad_alloc&) {
        print_message("out of memory: too many samples");
    } catch (const std::exception& error) {
        print_message(error.what());
    }
    return exit_unexpected;
}
