// The process-wide state of the library. What quenta_rt_init creates is never destroyed.
//
// A fork may copy this state at any moment. Only the thread that called fork exists in the child, so a lock that
// another thread held would never be released there. The child therefore starts with new locks. The list is always
// consistent, because each change of it is a single store.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace quenta {

// The entry of a calling thread in the list of attached threads. It lives from the first attachment of the thread until
// the thread ends. On a platform with fibers, each fiber counts as a thread.
struct thread_record {
    std::atomic<thread_record*> next{nullptr};
};

// The attached threads, with their own lock, which is held only briefly.
class attached_thread_list {
public:
    thread_record* enter(std::unique_ptr<thread_record> record);
    // Returns whether the record was in the list. A record that is not in the list is not accessed.
    bool take_out(const thread_record* record);
    int size(); // for tests
    // For a forked child. The records of threads that do not exist in it stay in the list: they are a few bytes each,
    // and the heap, which may have fork handlers of its own, must not be called while the handlers of a fork run.
    void renew_lock();

private:
    std::mutex lock;
    std::atomic<thread_record*> first{nullptr};
};

// Serializes the attachment of threads and the reclamation of memory. Null until quenta_rt_init.
extern std::mutex* library_lock;

// The slot in which an attached thread keeps its record. Solvers read it while another quenta_rt_init may set it.
extern std::atomic<std::uint32_t> thread_exit_slot;

extern attached_thread_list attached_threads;

// The destructor of `thread_exit_slot`: removes the record of a thread that has ended.
void detach_thread_record(void* slot_value);

// Called first in a forked child: makes the state that of a process with only this thread. It waits for nothing, so the
// fork may even happen in a signal handler, or in another fork's handler, that interrupted this thread inside the
// library.
void forget_other_threads();

} // namespace quenta
