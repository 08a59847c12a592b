// Services of the platform: a value per thread with a destructor, releasing free memory of the heap, a call in every
// forked child, and the arithmetic fault. Each platform has its source file: platform_posix.cpp, platform_windows.cpp.
#pragma once

#include <cstdint>

namespace quenta::platform {

// All bits set: no slot.
inline constexpr std::uint32_t no_slot = 0xFFFFFFFF;

// A new slot for the library's value per thread, or `no_slot` if the platform has none left. When a thread ends and its
// value is not null, `destructor` is called with the value, on that thread. On a platform with fibers, each fiber has
// its own value, on whichever thread it runs.
std::uint32_t allocate_thread_slot(void (*destructor)(void*));

// The value of the calling thread, initially null. If there is a slot, this neither allocates nor takes a lock.
void* thread_value(std::uint32_t slot);

// Sets the value of the calling thread. False if the platform has no memory for it: the value is then null. With
// `no_slot` the thread has a value too, but no destructor is called.
bool set_thread_value(std::uint32_t slot, void* value);

// Returns free pages of the heap to the system, if the platform supports this. Memory in use does not move.
void release_free_memory();

// Registers `handler`, which is then called in every forked child, on its only thread, before fork returns. False if
// the platform has no memory for it. A platform without fork never calls it.
bool call_in_forked_child(void (*handler)());

// Ends the process as an integer division by zero does.
[[noreturn]] void raise_arithmetic_fault();

} // namespace quenta::platform
