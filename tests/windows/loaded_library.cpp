// The DLL as hosts in any language use it: loaded at run time, with functions found by name. Each test loads its own
// copy, which has not been started, and observes its calls of the system.
#include "loaded_dll.hpp"

#include "support/bits.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <windows.h>

namespace quenta_tests {

namespace {

// ---- Calls of the system by the library, recorded ----

std::atomic<int> disabled_notifications, allocated_slots;
std::atomic<bool> no_slot_is_left, no_memory_for_the_slot;
HMODULE disabled_for;
DWORD slot;
PFLS_CALLBACK_FUNCTION destructor;

// How often each record was stored in a slot, and how often it was passed to the destructor. They are never deleted,
// since the record of the main thread is destroyed at the end of the process, after static objects.
std::mutex& records_lock = *new std::mutex;
std::map<void*, int>& stored = *new std::map<void*, int>;
std::map<void*, int>& destroyed = *new std::map<void*, int>;

template <class function>
function* system_function(const char* name) {
    return reinterpret_cast<function*>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), name)));
}

BOOL WINAPI record_disabling(HMODULE module) {
    ++disabled_notifications;
    disabled_for = module;
    return system_function<BOOL WINAPI(HMODULE)>("DisableThreadLibraryCalls")(module);
}

void WINAPI record_destruction(void* record) {
    if (record != nullptr) {
        const std::lock_guard guard{records_lock};
        ++destroyed[record];
    }
    destructor(record);
}

DWORD WINAPI record_allocation(PFLS_CALLBACK_FUNCTION given) {
    if (no_slot_is_left)
        return FLS_OUT_OF_INDEXES;
    ++allocated_slots;
    destructor = given;
    return slot = system_function<DWORD WINAPI(PFLS_CALLBACK_FUNCTION)>("FlsAlloc")(record_destruction);
}

BOOL WINAPI record_storing(DWORD index, void* record) {
    if (no_memory_for_the_slot)
        return FALSE;
    if (record != nullptr) {
        const std::lock_guard guard{records_lock};
        ++stored[record];
    }
    // Found at the first call. A later call may come from a destructor, while locks of the system are held.
    static const auto store = system_function<BOOL WINAPI(DWORD, void*)>("FlsSetValue");
    return store(index, record);
}

int total(const std::map<void*, int>& counts) {
    const std::lock_guard guard{records_lock};
    int sum = 0;
    for (const auto& [record, count] : counts)
        sum += count;
    return sum;
}

class loaded_library : public ::testing::Test {
protected:
    loaded_library() {
        disabled_notifications = allocated_slots = 0;
        no_slot_is_left = no_memory_for_the_slot = false;
        stored.clear();
        destroyed.clear();
        dll.redirect("DisableThreadLibraryCalls", reinterpret_cast<void*>(record_disabling));
        dll.redirect("FlsAlloc", reinterpret_cast<void*>(record_allocation));
        dll.redirect("FlsSetValue", reinterpret_cast<void*>(record_storing));
    }

    // Solves for y = exp(t) on the calling thread.
    int solve(int m = 2) const {
        const std::vector<double> ones(65, 1.0);
        std::vector<double> out(65);
        const int simpson[] = {0, 1, 2};
        int n_steps = 0;
        const int status = QUENTA_FUNCTION(dll, quenta_solve_vie2)(ones.data(), ones.data(), 65, 1.0 / 64, m, simpson,
                                                                   3, 0, out.data(), nullptr, &n_steps);
        if (status == QUENTA_SOLVED) {
            EXPECT_NEAR(out[64], std::exp(1.0), 1e-5);
        }
        return status;
    }
    void start() const { ASSERT_EQ(QUENTA_FUNCTION(dll, quenta_rt_init)(), 1); }

    loaded_dll dll;
};

// ---- Loading and starting ----

TEST_F(loaded_library, returns_its_limits_and_settings_before_it_is_started) {
    EXPECT_EQ(QUENTA_FUNCTION(dll, quenta_have_lapack)(), 0);
    EXPECT_EQ(QUENTA_FUNCTION(dll, quenta_max_coll_params)(), 5);
    EXPECT_EQ(QUENTA_FUNCTION(dll, function_solve_max_p)(), 5);
    EXPECT_EQ(QUENTA_FUNCTION(dll, function_solve_max_d)(), 8);
    EXPECT_EQ(QUENTA_FUNCTION(dll, quenta_num_supported_settings)(), 56);
    int settings[336];
    QUENTA_FUNCTION(dll, quenta_get_supported_settings)(settings);
    EXPECT_EQ(settings[330], 4);
    EXPECT_EQ(allocated_slots, 0);
    EXPECT_EQ(total(stored), 0);
}

TEST_F(loaded_library, solves_blocks_without_start_and_attachment) {
    const double A[] = {2.0, 99.0, 1.0, 4.0}, b[] = {2.0, 5.0};
    double x[2] = {};
    EXPECT_EQ(QUENTA_FUNCTION(dll, function_solve_vie1)(A, b, 2, 1, x), QUENTA_SOLVED);
    EXPECT_EQ(x[0], 1.0);
    EXPECT_EQ(x[1], 1.0);
    EXPECT_EQ(allocated_slots, 0);
    EXPECT_EQ(total(stored), 0);
}

TEST_F(loaded_library, only_turns_thread_notifications_off_when_it_is_loaded) {
    EXPECT_TRUE(dll.notify(DLL_PROCESS_ATTACH));
    EXPECT_EQ(disabled_notifications, 1);
    EXPECT_EQ(disabled_for, dll.module());
    EXPECT_TRUE(dll.notify(DLL_THREAD_ATTACH));
    EXPECT_TRUE(dll.notify(DLL_THREAD_DETACH));
    EXPECT_EQ(disabled_notifications, 1);
    EXPECT_EQ(allocated_slots, 0);
    EXPECT_EQ(total(stored), 0);
}

TEST_F(loaded_library, allocates_one_slot_even_if_started_repeatedly) {
    start();
    start();
    EXPECT_EQ(allocated_slots, 1);
}

TEST_F(loaded_library, works_without_a_slot_and_requests_one_again_at_the_next_start) {
    no_slot_is_left = true;
    start();
    EXPECT_EQ(solve(), QUENTA_SOLVED);
    std::thread{[&] {
        EXPECT_EQ(solve(), QUENTA_SOLVED);
    }}.join();
    EXPECT_EQ(total(stored), 0);
    no_slot_is_left = false;
    start();
    EXPECT_EQ(allocated_slots, 1);
    std::thread{[&] {
        EXPECT_EQ(solve(), QUENTA_SOLVED);
    }}.join();
    EXPECT_EQ(total(stored), 1);
    EXPECT_EQ(total(destroyed), 1);
}

// ---- Threads and fibers ----

TEST_F(loaded_library, attaches_a_thread_once_and_destroys_its_record_at_its_end) {
    start();
    constexpr int threads = 200;
    DWORD handles_before = 0, handles_after = 0;
    for (int number = 0; number < threads; ++number) {
        std::thread{[&, number] {
            EXPECT_EQ(solve(), QUENTA_SOLVED);
            EXPECT_EQ(total(stored), number + 1);
            EXPECT_EQ(solve(number % 2 == 0 ? 5 : 2), number % 2 == 0 ? QUENTA_UNSUPPORTED_SETTING : QUENTA_SOLVED);
            QUENTA_FUNCTION(dll, quenta_gc_collect)();
            EXPECT_EQ(total(stored), number + 1) << "expected the thread to be attached once";
            EXPECT_EQ(total(destroyed), number) << "expected the thread to stay attached until its end";
        }}.join();
        EXPECT_EQ(total(destroyed), number + 1) << "expected the thread to be detached at its end";
        GetProcessHandleCount(GetCurrentProcess(), number == threads / 2 ? &handles_before : &handles_after);
    }
    EXPECT_EQ(stored, destroyed);
    EXPECT_LE(handles_after, handles_before + 5) << "expected threads not to leak handles";
}

TEST_F(loaded_library, throws_bad_alloc_without_memory_for_the_slot_and_attaches_at_the_next_call) {
    start();
    std::thread{[&] {
        no_memory_for_the_slot = true;
        EXPECT_THROW(solve(), std::bad_alloc);
        no_memory_for_the_slot = false;
        EXPECT_EQ(solve(), QUENTA_SOLVED);
        EXPECT_EQ(total(stored), 1);
    }}.join();
    EXPECT_EQ(stored, destroyed);
}

TEST_F(loaded_library, solves_on_many_threads_at_once) {
    start();
    constexpr int thread_count = 32, solves = 50;
    std::atomic<int> solved = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < thread_count; ++number)
        threads.emplace_back([&] {
            for (int repetition = 0; repetition < solves; ++repetition)
                solved += solve() == QUENTA_SOLVED;
        });
    for (std::thread& each : threads)
        each.join();
    EXPECT_EQ(solved, thread_count * solves);
    EXPECT_EQ(total(stored), thread_count);
    EXPECT_EQ(stored, destroyed);
}

// A fiber that runs its task each time it is entered, and then returns to the fiber that entered it.
class fiber {
public:
    explicit fiber(std::function<void()> repeated_task)
        : task{std::move(repeated_task)}, address{CreateFiber(0, run, this)} {}
    fiber(const fiber&) = delete;
    fiber& operator=(const fiber&) = delete;
    ~fiber() { DeleteFiber(address); }

    void enter() {
        entered_from = GetCurrentFiber();
        SwitchToFiber(address);
    }

private:
    static void WINAPI run(void* self) {
        for (auto& current = *static_cast<fiber*>(self);;) {
            current.task();
            SwitchToFiber(current.entered_from);
        }
    }

    std::function<void()> task;
    void* address;
    void* entered_from = nullptr;
};

// Runs a task on a new thread, in the first fiber of that thread.
void on_thread_of_fibers(const std::function<void()>& task) {
    std::thread{[&] {
        ASSERT_NE(ConvertThreadToFiber(nullptr), nullptr);
        task();
        ConvertFiberToThread();
    }}.join();
}

TEST_F(loaded_library, detaches_at_the_end_of_an_attached_fiber_and_attaches_in_the_next_fiber) {
    start();
    constexpr int fibers = 100;
    on_thread_of_fibers([&] {
        for (int number = 0; number < fibers; ++number) {
            fiber solving{[&] {
                EXPECT_EQ(solve(), QUENTA_SOLVED);
            }};
            solving.enter();
            solving.enter();
            EXPECT_EQ(total(stored), number + 1);
            EXPECT_EQ(total(destroyed), number);
        }
        EXPECT_EQ(total(destroyed), fibers);
    });
    EXPECT_EQ(stored, destroyed);
}

TEST_F(loaded_library, attaches_each_fiber_of_a_thread_separately) {
    start();
    constexpr int fibers = 10;
    on_thread_of_fibers([&] {
        EXPECT_EQ(solve(), QUENTA_SOLVED);
        for (int number = 0; number < fibers; ++number) {
            fiber solving{[&] {
                EXPECT_EQ(solve(), QUENTA_SOLVED);
            }};
            solving.enter();
            EXPECT_EQ(total(stored), 1 + number + 1);
        }
        EXPECT_EQ(total(destroyed), fibers);
        EXPECT_EQ(solve(), QUENTA_SOLVED);
        EXPECT_EQ(total(stored), 1 + fibers);
    });
    EXPECT_EQ(stored, destroyed);
}

TEST_F(loaded_library, keeps_a_fiber_attached_on_every_thread_that_runs_it) {
    start();
    auto solving = std::make_unique<fiber>([&] { EXPECT_EQ(solve(), QUENTA_SOLVED); });
    for (int thread = 0; thread < 3; ++thread) {
        on_thread_of_fibers([&] { solving->enter(); });
        EXPECT_EQ(total(stored), 1);
        EXPECT_EQ(total(destroyed), 0);
    }
    solving.reset();
    EXPECT_EQ(stored, destroyed);
}

TEST_F(loaded_library, detaches_a_fiber_that_ends_on_another_thread) {
    start();
    on_thread_of_fibers([&] {
        auto solving = std::make_unique<fiber>([&] { EXPECT_EQ(solve(), QUENTA_SOLVED); });
        solving->enter();
        std::thread{[&] {
            solving.reset();
            EXPECT_EQ(total(destroyed), 1);
            EXPECT_EQ(solve(), QUENTA_SOLVED);
        }}.join();
        EXPECT_EQ(total(destroyed), 2);
        EXPECT_EQ(solve(), QUENTA_SOLVED);
        EXPECT_EQ(total(stored), 3) << "expected the thread to have its own record";
    });
    EXPECT_EQ(stored, destroyed);
}

TEST_F(loaded_library, stays_loaded_while_a_thread_is_attached) {
    start();
    std::atomic<bool> unloaded = false;
    std::thread attached{[&] {
        EXPECT_EQ(solve(), QUENTA_SOLVED);
        while (!unloaded)
            Sleep(1);
    }};
    while (total(stored) == 0)
        Sleep(1);
    dll.unload();
    unloaded = true;
    attached.join();
    EXPECT_EQ(total(destroyed), 1);
    EXPECT_NE(GetModuleHandleA(dll.path().c_str()), nullptr);
}

TEST_F(loaded_library, is_unloaded_if_it_was_not_started) {
    dll.unload();
    EXPECT_EQ(GetModuleHandleA(dll.path().c_str()), nullptr);
}

// ---- Failures ----

// The system exception that an action raises and no caller handles, or 0.
DWORD system_exception_of(const std::function<void()>& action) {
    static const std::function<void()>* acting;
    static EXCEPTION_RECORD record;
    acting = &action;
    record = {};
    const auto previous_filter = SetUnhandledExceptionFilter([](EXCEPTION_POINTERS* raised) -> LONG {
        record = *raised->ExceptionRecord;
        ExitThread(1);
    });
    const HANDLE thread = CreateThread(
        nullptr, 0,
        [](void*) -> DWORD {
            (*acting)();
            return 0;
        },
        nullptr, 0, nullptr);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    SetUnhandledExceptionFilter(previous_filter);
    return record.ExceptionCode;
}

constexpr DWORD thrown_by_the_compiler = 0x20474343; // "GCC": the code of every C++ exception of this compiler

TEST_F(loaded_library, raises_a_system_exception_for_inconsistent_arguments) {
    start();
    const auto solve_without_samples = [&] {
        const int list[] = {1};
        int n_steps = 0;
        QUENTA_FUNCTION(dll, quenta_solve_vie2)(nullptr, nullptr, 0, 0.01, 2, list, 1, 0, nullptr, nullptr, &n_steps);
        ADD_FAILURE() << "expected an exception, got a status";
    };
    EXPECT_EQ(system_exception_of(solve_without_samples), thrown_by_the_compiler);
    EXPECT_EQ(solve(), QUENTA_SOLVED);
}

TEST_F(loaded_library, raises_the_arithmetic_fault_for_a_division_by_zero) {
    start();
    const auto solve_with_m = [&](int m) {
        return [this, m] {
            const int status = solve(m);
            ADD_FAILURE() << "expected an exception, got status " << status;
        };
    };
    for (const int m : {0, 65536, -65536})
        EXPECT_EQ(system_exception_of(solve_with_m(m)), DWORD(EXCEPTION_INT_DIVIDE_BY_ZERO));
    EXPECT_EQ(solve(), QUENTA_SOLVED);
}

TEST_F(loaded_library, throws_an_exception_that_a_host_of_the_same_compiler_can_catch) {
    start();
    std::string message;
    for (int repetition = 0; repetition < 100; ++repetition)
        try {
            const int list[] = {0};
            int n_steps = 0;
            QUENTA_FUNCTION(dll, quenta_solve_vie2)
            (nullptr, nullptr, -1, 0.01, 1, list, 1, 0, nullptr, nullptr, &n_steps);
        } catch (const std::exception& failure) {
            message = failure.what();
        }
    EXPECT_EQ(message, "Conversion positive overflow");
    EXPECT_EQ(solve(), QUENTA_SOLVED);
}

} // namespace

} // namespace quenta_tests
