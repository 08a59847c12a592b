// The start of the library, the list of attached threads, reclamation, and the state after a fork.
#include "quenta_solvers/calling_threads.hpp"

#include "quenta_solvers/calling_threads_state.hpp"
#include "quenta_solvers/quenta_native.h"
#include "utility/platform.hpp"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

namespace quenta {

std::mutex* library_lock = nullptr;
std::atomic<std::uint32_t> thread_exit_slot{platform::no_slot};
attached_thread_list attached_threads;

namespace {

// Reclamation does not start while threads are being attached. The lower half counts these threads. It is a count and
// not a lock, because a collection holds library_lock, which the attachments that it waits for still need.
//
// The upper half counts the forks that led to this process. A forked child starts with no suspensions. An attachment
// that was interrupted by a signal handler that forks must therefore not subtract its own suspension in the child. One
// word holds both counts, because such a fork can happen between any two instructions.
std::atomic<std::uint64_t> reclamation_suspensions{0};
constexpr std::uint64_t one_fork = std::uint64_t{1} << 32;

struct suspended_reclamation {
    suspended_reclamation() = default;
    ~suspended_reclamation() {
        std::uint64_t now = reclamation_suspensions;
        // GCOVR_EXCL_BR_START: only an unlucky exchange fails, and no counts are kept of the child of a fork
        while (now / one_fork == forks && !reclamation_suspensions.compare_exchange_weak(now, now - 1)) {
        }
        // GCOVR_EXCL_BR_STOP
    }
    suspended_reclamation(const suspended_reclamation&) = delete;
    suspended_reclamation& operator=(const suspended_reclamation&) = delete;

private:
    const std::uint64_t forks = reclamation_suspensions++ / one_fork;
};

bool handles_forks = false;

// Replaces a lock that may be held by a thread that does not exist in this process.
void renew(std::mutex& lock) {
    new (&lock) std::mutex;
}

} // namespace

thread_record* attached_thread_list::enter(std::unique_ptr<thread_record> record) {
    const std::lock_guard guard{lock};
    record->next = first.load();
    return first = record.release();
}

bool attached_thread_list::take_out(const thread_record* record) {
    const std::lock_guard guard{lock};
    for (std::atomic<thread_record*>* link = &first; *link != nullptr; link = &link->load()->next)
        if (*link == record) {
            *link = record->next.load();
            return true;
        }
    return false;
}

int attached_thread_list::size() {
    const std::lock_guard guard{lock};
    int count = 0;
    for (const thread_record* record = first; record != nullptr; record = record->next)
        ++count;
    return count;
}

void attached_thread_list::renew_lock() {
    renew(lock);
}

void attach_calling_thread() {
    if (platform::thread_value(thread_exit_slot) != nullptr)
        return;
    const suspended_reclamation suspended;
    thread_record* record = nullptr;
    {
        const std::lock_guard guard{*library_lock};
        record = attached_threads.enter(std::make_unique<thread_record>());
    }
    // Without a slot the record lives as long as the process.
    if (!platform::set_thread_value(thread_exit_slot, record)) {
        detach_thread_record(record);
        throw std::bad_alloc{};
    }
}

void detach_thread_record(void* slot_value) {
    auto* const record = static_cast<thread_record*>(slot_value);
    if (record == nullptr || !attached_threads.take_out(record))
        return;
    // Destructors of other slots may still call a solver on this thread, which then attaches the thread again.
    if (platform::thread_value(thread_exit_slot) == record)
        platform::set_thread_value(thread_exit_slot, nullptr);
    delete record; // GCOVR_EXCL_BR_LINE: it is not null here
}

void forget_other_threads() {
    if (library_lock != nullptr)
        renew(*library_lock);
    attached_threads.renew_lock();
    reclamation_suspensions = (reclamation_suspensions / one_fork + 1) * one_fork;
}

} // namespace quenta

int quenta_rt_init() {
    using namespace quenta;
    if (!handles_forks)
        handles_forks = platform::call_in_forked_child(forget_other_threads);
    if (!handles_forks)
        return 0;
    if (library_lock == nullptr)
        library_lock = new std::mutex; // never destroyed: there is no shutdown
    if (thread_exit_slot == platform::no_slot)
        thread_exit_slot = platform::allocate_thread_slot(detach_thread_record);
    return 1;
}

void quenta_gc_collect() {
    using namespace quenta;
    attach_calling_thread();
    for (;;) {
        {
            const std::lock_guard guard{*library_lock};
            if (reclamation_suspensions % one_fork == 0) {
                // Every solve has released its memory, even if it threw. What remains are free pages of the heap.
                platform::release_free_memory();
                return;
            }
        }
        std::this_thread::yield(); // a thread is being attached and may need the lock
    }
}
