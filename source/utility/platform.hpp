// What the platform gives: a value per thread with a destructor, the heap's free memory back to the system, a call in
// every child of a fork, and the arithmetic fault. One source file a platform: platform_posix.cpp,
// platform_windows.cpp.
#pragma once

#include <cstdint>

namespace quenta::platform {

// All bits set: no slot.
inline constexpr std::uint32_t no_slot = 0xFFFFFFFF;

// A new slot for the library's value per thread, or `no_slot` if the platform has none left. When a thread ends with a
// value other than null, `destructor` is called with that value, on that thread. On a platform with fibers, each fiber
// has a value of its own, wherever it runs.
std::uint32_t allocate_thread_slot(void (*destructor)(void*));

// The value of the calling thread, at first null. With a slot this neither allocates nor takes a lock.
void* thread_value(std::uint32_t slot);

// Sets the value of the calling thread. False if the platform has no memory for it: the value is then null. Without a
// slot the thread has its value all the same, but no destructor is called.
bool set_thread_value(std::uint32_t slot, void* value);

// Gives the heap's free pages back to the system, where that is offered. Memory in use stays where it is.
void release_free_memory();

// Has `handler` called in every later child of a fork, on the child's only thread, before fork returns there. False if
// the platform has no memory for it. A platform without fork never calls it.
bool call_in_forked_child(void (*handler)());

// Ends the process as an integer division by zero does.
[[noreturn]] void raise_arithmetic_fault();

} // namespace quenta::platform
