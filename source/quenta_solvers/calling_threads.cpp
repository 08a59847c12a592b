// The start of the library, the list of attached threads, reclamation, and the state after a fork.
#include "quenta_solvers/calling_threads.hpp"

#include "quenta_solvers/calling_threads_state.hpp"
#include "quenta_solvers/quenta_native.h"
#include "utility/platform.hpp"

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace quenta {

std::mutex* library_lock = nullptr;
std::uint32_t thread_exit_slot = platform::no_slot;
attached_thread_list attached_threads;

namespace {

constinit thread_local thread_record* record_of_this_thread = nullptr;

// Reclamation does not start while this is above 0. It is a count and not a lock: a collection holds library_lock,
// which the attachments it waits for still need.
std::atomic<int> reclamation_suspensions{0};

// The share of this thread, which is all that is left of the count in the child of a fork.
constinit thread_local int suspensions_of_this_thread = 0;

struct suspended_reclamation {
    suspended_reclamation() {
        ++suspensions_of_this_thread;
        ++reclamation_suspensions;
    }
    ~suspended_reclamation() {
        --reclamation_suspensions;
        --suspensions_of_this_thread;
    }
    suspended_reclamation(const suspended_reclamation&) = delete;
    suspended_reclamation& operator=(const suspended_reclamation&) = delete;
};

bool handles_forks = false;

// A new lock in the place of one that may be held by a thread that does not exist in this process.
void renew(std::mutex& lock) {
    new (&lock) std::mutex;
}

} // namespace

void attached_thread_list::enter(std::unique_ptr<thread_record> record) {
    const std::lock_guard guard{lock};
    record->next = first.load();
    first = record.release();
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
    if (record_of_this_thread != nullptr)
        return;
    const suspended_reclamation suspended;
    {
        const std::lock_guard guard{*library_lock};
        auto record = std::make_unique<thread_record>();
        thread_record* const entered = record.get();
        attached_threads.enter(std::move(record));
        record_of_this_thread = entered;
    }
    // Without a slot the record stays for the life of the process.
    if (thread_exit_slot != platform::no_slot)
        platform::set_thread_slot(thread_exit_slot, record_of_this_thread);
}

void detach_thread_record(void* slot_value) {
    auto* const record = static_cast<thread_record*>(slot_value);
    if (record == nullptr || !attached_threads.take_out(record))
        return;
    // Destructors of other slots may still call a solver on this thread, which then has to attach anew.
    if (record_of_this_thread == record)
        record_of_this_thread = nullptr;
    delete record;
}

void forget_other_threads() {
    if (library_lock != nullptr)
        renew(*library_lock);
    attached_threads.renew_lock();
    reclamation_suspensions = suspensions_of_this_thread;
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
            if (reclamation_suspensions == 0) {
                // A solve releases its memory on every way out, so what is left is what the heap holds back.
                platform::release_free_memory();
                return;
            }
        }
        std::this_thread::yield(); // a thread is being attached, and may need the lock for it
    }
}
