#include "temporary_files.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

#if defined(__unix__) || defined(__APPLE__)
#include <csignal>
#include <unistd.h>
#define QUENTA_HAS_POSIX_SIGNALS
#endif

namespace quenta_program {

namespace {

// One entry for each output. The signal handler reads an entry only if `used` is set, so the path is written first.
struct entry {
    std::atomic<bool> used;
    std::array<char, 4096> path;
};
std::array<entry, 2> entries;

#ifdef QUENTA_HAS_POSIX_SIGNALS
constexpr std::array ending_signals{SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXCPU};

// Calls async-signal-safe functions only. SA_RESETHAND has restored the default action, which ends the program when the
// handler returns.
extern "C" void remove_all_and_end(int signal) {
    for (const entry& one : entries)
        if (one.used)
            unlink(one.path.data());
    raise(signal);
}

// Blocks the signals from the creation of a file until it has an entry.
class signal_block {
public:
    signal_block() {
        sigset_t blocked;
        sigemptyset(&blocked);
        for (const int signal : ending_signals)
            sigaddset(&blocked, signal);
        pthread_sigmask(SIG_BLOCK, &blocked, &before);
    }
    ~signal_block() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    signal_block(const signal_block&) = delete;
    signal_block& operator=(const signal_block&) = delete;

private:
    sigset_t before;
};
#else
struct signal_block {
    ~signal_block() {} // not trivial, so that the compiler does not warn of an unused object
};
#endif

} // namespace

void remove_temporary_files_on_signals() {
#ifdef QUENTA_HAS_POSIX_SIGNALS
    for (const int signal : ending_signals) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action.sa_handler = remove_all_and_end;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        sigemptyset(&action.sa_mask);
        sigaction(signal, &action, nullptr);
    }
#endif
}

std::FILE* create_temporary_file(const std::string& path) {
    const auto free_entry =
        std::find_if(entries.begin(), entries.end(), [](const entry& one) { return !one.used.load(); });
    if (free_entry == entries.end() || path.size() >= free_entry->path.size()) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    const signal_block until_entered;
    std::FILE* const stream = std::fopen(path.c_str(), "wbx");
    if (stream != nullptr) {
        std::memcpy(free_entry->path.data(), path.c_str(), path.size() + 1);
        free_entry->used = true;
    }
    return stream;
}

void forget_temporary_file(const std::string& path) {
    for (entry& one : entries)
        if (one.used && path == one.path.data())
            one.used = false;
}

void remove_temporary_file(const std::string& path) {
    std::remove(path.c_str());
    forget_temporary_file(path);
}

} // namespace quenta_program
