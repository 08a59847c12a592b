// POSIX: a thread-local variable and a key with a destructor, pthread_atfork, and SIGFPE.
#include "utility/platform.hpp"

#include <csignal>
#include <cstdlib>

#include <pthread.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

// By default, glibc allocates the thread-local variables of a library that is opened at run time when a thread first
// uses them, and ends the process if it cannot. With this model, every thread has them from its start. Other C
// libraries may refuse to open a library with this model.
#if defined(__GLIBC__)
[[gnu::tls_model("initial-exec")]]
#endif
constinit thread_local void* value_of_this_thread = nullptr;

} // namespace

namespace quenta::platform {

static_assert(sizeof(pthread_key_t) <= sizeof(std::uint32_t), "a key is kept as an unsigned 32-bit slot");

std::uint32_t allocate_thread_slot(void (*destructor)(void*)) {
    pthread_key_t key;
    if (pthread_key_create(&key, destructor) != 0)
        return no_slot;
    return static_cast<std::uint32_t>(key);
}

void* thread_value(std::uint32_t) {
    return value_of_this_thread;
}

bool set_thread_value(std::uint32_t slot, void* value) {
    value_of_this_thread = value;
    if (slot == no_slot || pthread_setspecific(static_cast<pthread_key_t>(slot), value) == 0)
        return true;
    value_of_this_thread = nullptr;
    return false;
}

void release_free_memory() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}

bool call_in_forked_child(void (*handler)()) {
    return pthread_atfork(nullptr, nullptr, handler) == 0;
}

void raise_arithmetic_fault() {
    // The handler of the host is called first, as for a fault of the processor. Such a fault cannot be ignored or
    // blocked, so neither can this one.
    std::raise(SIGFPE);
    // GCOVR_EXCL_START: tests come here in child processes, which a signal ends before they write their counts
    std::signal(SIGFPE, SIG_DFL);
    sigset_t fault;
    sigemptyset(&fault);
    sigaddset(&fault, SIGFPE);
    pthread_sigmask(SIG_UNBLOCK, &fault, nullptr);
    std::raise(SIGFPE);
    std::abort();
    // GCOVR_EXCL_STOP
}

} // namespace quenta::platform
