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

// One for each output. A signal handler may only read what is in place before and after: an entry is filled before it
// is marked as used.
struct entry {
    std::atomic<bool> used;
    std::array<char, 4096> path;
};
std::array<entry, 2> entries;

#ifdef QUENTA_HAS_POSIX_SIGNALS
constexpr std::array ending_signals{SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGXCPU};

// Calls nothing but what a signal handler may call. The signal has its default action again, and arrives once more
// when the handler has returned.
extern "C" void remove_all_and_end(int signal) {
    for (const entry& one : entries)
        if (one.used)
            unlink(one.path.data());
    raise(signal);
}

// Holds the signals back while a file exists that no entry names.
class signals_held_back {
public:
    signals_held_back() {
        sigset_t held_back;
        sigemptyset(&held_back);
        for (const int signal : ending_signals)
            sigaddset(&held_back, signal);
        pthread_sigmask(SIG_BLOCK, &held_back, &before);
    }
    ~signals_held_back() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    signals_held_back(const signals_held_back&) = delete;
    signals_held_back& operator=(const signals_held_back&) = delete;

private:
    sigset_t before;
};
#else
struct signals_held_back {
    ~signals_held_back() {} // not trivial, so that an object of it counts as used
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
    const signals_held_back until_it_is_entered;
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
