// The process-wide state of the library. What quenta_rt_init creates is never destroyed.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

namespace quenta {

// The entry of a calling thread in the list of attached threads. It lives from the thread's first attachment until
// the thread ends.
struct thread_record {
    thread_record* next = nullptr;
};

// The attached threads, under a short lock of their own.
class attached_thread_list {
public:
    void enter(std::unique_ptr<thread_record> record);
    // Whether the record was in the list. A record that is not there is not looked at.
    bool take_out(const thread_record* record);
    int size();

private:
    std::mutex lock;
    thread_record* first = nullptr;
};

// Serialises the attachment of a thread and the reclamation of memory. Absent until quenta_rt_init.
extern std::mutex* library_lock;

// The slot in which an attached thread keeps its record.
extern std::uint32_t thread_exit_slot;

extern attached_thread_list attached_threads;

// The destructor of `thread_exit_slot`: forgets the record of a thread that has ended.
void detach_thread_record(void* slot_value);

} // namespace quenta
