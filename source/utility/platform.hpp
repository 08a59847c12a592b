// What the platform gives: a per-thread slot with a destructor, the heap's free memory back to the system, a call in
// every child of a fork, and the arithmetic fault. One source file a platform: platform_posix.cpp,
// platform_windows.cpp.
#pragma once

#include <cstdint>

namespace quenta::platform {

// All bits set: no slot.
inline constexpr std::uint32_t no_slot = 0xFFFFFFFF;

// A new per-thread slot, or `no_slot` if the platform has none left. When a thread ends with a value other than null
// in the slot, `destructor` is called with that value, on that thread.
std::uint32_t allocate_thread_slot(void (*destructor)(void*));

// Stores a value in the calling thread's slot.
void set_thread_slot(std::uint32_t slot, void* value);

// Gives the heap's free pages back to the system, where that is offered. Memory in use stays where it is.
void release_free_memory();

// Has `handler` called in every later child of a fork, on the child's only thread, before fork returns there. False if
// the platform has no memory for it. A platform without fork never calls it.
bool call_in_forked_child(void (*handler)());

// Ends the process as an integer division by zero does.
[[noreturn]] void raise_arithmetic_fault();

} // namespace quenta::platform
