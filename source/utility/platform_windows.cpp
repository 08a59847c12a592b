// Windows: a fiber-local slot with a destructor, and the exception of an integer division by zero.
#include "utility/platform.hpp"

#include <atomic>
#include <cstdlib>

#include <malloc.h>
#include <windows.h>

namespace {

void (*slot_destructor)(void*) = nullptr;

// For values that are set without a slot. It is read only once such a value exists: the compiler allocates the variable
// for each thread that reads it, and ends the process if it cannot.
constinit thread_local void* value_without_slot = nullptr;
std::atomic<bool> has_values_without_slot{false};

// The platform's calling convention differs from the library's own on 32-bit machines.
VOID WINAPI run_slot_destructor(PVOID value) {
    slot_destructor(value);
}

} // namespace

namespace quenta::platform {

static_assert(FLS_OUT_OF_INDEXES == no_slot, "a failed allocation returns no_slot");

std::uint32_t allocate_thread_slot(void (*destructor)(void*)) {
    // A thread with a value calls the library at its end, so the library must stay loaded.
    HMODULE pinned;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(run_slot_destructor), &pinned);
    slot_destructor = destructor;
    return FlsAlloc(run_slot_destructor);
}

void* thread_value(std::uint32_t slot) {
    void* const value = FlsGetValue(slot); // null without a slot
    return value == nullptr && has_values_without_slot ? value_without_slot : value;
}

bool set_thread_value(std::uint32_t slot, void* value) {
    if (slot != no_slot)
        return FlsSetValue(slot, value) != 0;
    has_values_without_slot = true;
    value_without_slot = value;
    return true;
}

void release_free_memory() {
    _heapmin(); // the heap of malloc, which is not necessarily that of the process
}

bool call_in_forked_child(void (*)()) {
    return true; // there is no fork
}

void raise_arithmetic_fault() {
    RaiseException(EXCEPTION_INT_DIVIDE_BY_ZERO, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    std::abort();
}

} // namespace quenta::platform

// The library does nothing when it is loaded. The end of a thread is noticed through its slot, so the notifications per
// thread are switched off. (The system refuses this if the run-time library has thread-local data.)
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(module);
    return TRUE;
}
