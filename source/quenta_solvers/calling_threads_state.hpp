// The process-wide state of the library. What quenta_rt_init creates is never destroyed.
//
// A fork copies this state at any moment, and of all threads only the one that called fork goes on in the child: a lock
// that another thread held would never be released there. So the child starts with new locks. It finds the list whole,
// because each change of it is a single store.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace quenta {

// The entry of a calling thread in the list of attached threads. It lives from the thread's first attachment until
// the thread ends. On a platform with fibers, each fiber counts as a thread.
struct thread_record {
    std::atomic<thread_record*> next{nullptr};
};

// The attached threads, under a short lock of their own.
class attached_thread_list {
public:
    thread_record* enter(std::unique_ptr<thread_record> record);
    // Whether the record was in the list. A record that is not there is not looked at.
    bool take_out(const thread_record* record);
    int size();
    // For the child of a fork. The records of the threads that it does not have stay in the list: a few bytes each, and
    // the heap, which may have handlers of its own, is not called while the handlers of a fork run.
    void renew_lock();

private:
    std::mutex lock;
    std::atomic<thread_record*> first{nullptr};
};

// Serialises the attachment of a thread and the reclamation of memory. Absent until quenta_rt_init.
extern std::mutex* library_lock;

// The slot in which an attached thread keeps its record. Solvers read it while a further quenta_rt_init may set it.
extern std::atomic<std::uint32_t> thread_exit_slot;

extern attached_thread_list attached_threads;

// The destructor of `thread_exit_slot`: forgets the record of a thread that has ended.
void detach_thread_record(void* slot_value);

// What the child of a fork does first: makes the state that of a process with this thread alone. It waits for nothing
// in the parent, so that a fork may also come from a handler of a signal or of another fork that has interrupted this
// thread inside the library.
void forget_other_threads();

} // namespace quenta
