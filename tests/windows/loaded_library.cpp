// The DLL as a host of any language has it: loaded while it runs, known by the names of its functions alone. Each test
// loads a copy of its own, which has not started, and watches what it asks of the system.
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

// ---- What the library asks of the system, noted on the way ----

std::atomic<int> disabled_notifications, allocated_slots;
std::atomic<bool> no_slot_is_left, slot_has_no_memory;
HMODULE disabled_for;
DWORD slot;
PFLS_CALLBACK_FUNCTION destructor;

// The records that are in slots, each with the number of times that the destructor has had it. That of the main thread
// comes when the process ends, after the destructors of what is static.
std::mutex& records_lock = *new std::mutex;
std::map<void*, int>& stored = *new std::map<void*, int>;
std::map<void*, int>& destroyed = *new std::map<void*, int>;

template <class function>
function* system_function(const char* name) {
    return reinterpret_cast<function*>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("kernel32.dll"), name)));
}

BOOL WINAPI note_disabling(HMODULE module) {
    ++disabled_notifications;
    disabled_for = module;
    return system_function<BOOL WINAPI(HMODULE)>("DisableThreadLibraryCalls")(module);
}

void WINAPI note_destruction(void* record) {
    if (record != nullptr) {
        const std::lock_guard guard{records_lock};
        ++destroyed[record];
    }
    destructor(record);
}

DWORD WINAPI note_allocation(PFLS_CALLBACK_FUNCTION given) {
    if (no_slot_is_left)
        return FLS_OUT_OF_INDEXES;
    ++allocated_slots;
    destructor = given;
    return slot = system_function<DWORD WINAPI(PFLS_CALLBACK_FUNCTION)>("FlsAlloc")(note_destruction);
}

BOOL WINAPI note_storing(DWORD index, void* record) {
    if (slot_has_no_memory)
        return FALSE;
    if (record != nullptr) {
        const std::lock_guard guard{records_lock};
        ++stored[record];
    }
    // Looked up at the first call, since a later one may come from a destructor, with locks of the system held.
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
        no_slot_is_left = slot_has_no_memory = false;
        stored.clear();
        destroyed.clear();
        dll.redirect("DisableThreadLibraryCalls", reinterpret_cast<void*>(note_disabling));
        dll.redirect("FlsAlloc", reinterpret_cast<void*>(note_allocation));
        dll.redirect("FlsSetValue", reinterpret_cast<void*>(note_storing));
    }

    // y = exp(t), on the calling thread.
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

TEST_F(loaded_library, tells_its_limits_before_it_has_started) {
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

TEST_F(loaded_library, solves_blocks_without_a_start_or_an_attachment) {
    const double A[] = {2.0, 99.0, 1.0, 4.0}, b[] = {2.0, 5.0};
    double x[2] = {};
    EXPECT_EQ(QUENTA_FUNCTION(dll, function_solve_vie1)(A, b, 2, 1, x), QUENTA_SOLVED);
    EXPECT_EQ(x[0], 1.0);
    EXPECT_EQ(x[1], 1.0);
    EXPECT_EQ(allocated_slots, 0);
    EXPECT_EQ(total(stored), 0);
}

TEST_F(loaded_library, turns_notifications_off_when_it_is_loaded_and_does_nothing_else) {
    EXPECT_TRUE(dll.notify(DLL_PROCESS_ATTACH));
    EXPECT_EQ(disabled_notifications, 1);
    EXPECT_EQ(disabled_for, dll.module());
    EXPECT_TRUE(dll.notify(DLL_THREAD_ATTACH));
    EXPECT_TRUE(dll.notify(DLL_THREAD_DETACH));
    EXPECT_EQ(disabled_notifications, 1);
    EXPECT_EQ(allocated_slots, 0);
    EXPECT_EQ(total(stored), 0);
}

TEST_F(loaded_library, allocates_one_slot_however_often_it_starts) {
    start();
    start();
    EXPECT_EQ(allocated_slots, 1);
}

TEST_F(loaded_library, runs_without_a_slot_and_tries_again_at_the_next_start) {
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

TEST_F(loaded_library, attaches_a_thread_once_and_its_end_runs_the_destructor) {
    start();
    constexpr int threads = 200;
    DWORD handles_before = 0, handles_after = 0;
    for (int number = 0; number < threads; ++number) {
        std::thread{[&, number] {
            EXPECT_EQ(solve(), QUENTA_SOLVED);
            EXPECT_EQ(total(stored), number + 1);
            EXPECT_EQ(solve(number % 2 == 0 ? 5 : 2), number % 2 == 0 ? QUENTA_UNSUPPORTED_SETTING : QUENTA_SOLVED);
            QUENTA_FUNCTION(dll, quenta_gc_collect)();
            EXPECT_EQ(total(stored), number + 1) << "attached twice";
            EXPECT_EQ(total(destroyed), number) << "detached too soon";
        }}.join();
        EXPECT_EQ(total(destroyed), number + 1) << "not detached at its end";
        GetProcessHandleCount(GetCurrentProcess(), number == threads / 2 ? &handles_before : &handles_after);
    }
    EXPECT_EQ(stored, destroyed);
    EXPECT_LE(handles_after, handles_before + 5) << "a thread leaves handles behind";
}

TEST_F(loaded_library, throws_where_there_is_no_memory_for_the_slot_and_attaches_at_the_next_call) {
    start();
    std::thread{[&] {
        slot_has_no_memory = true;
        EXPECT_THROW(solve(), std::bad_alloc);
        slot_has_no_memory = false;
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

// A fiber that does one thing each time it is entered, and goes back to the fiber that entered it.
class fiber {
public:
    explicit fiber(std::function<void()> given) : task{std::move(given)}, address{CreateFiber(0, run, this)} {}
    fiber(const fiber&) = delete;
    fiber& operator=(const fiber&) = delete;
    ~fiber() { DeleteFiber(address); }

    void enter() {
        entered_from = GetCurrentFiber();
        SwitchToFiber(address);
    }

private:
    static void WINAPI run(void* self) {
        for (auto& that = *static_cast<fiber*>(self);;) {
            that.task();
            SwitchToFiber(that.entered_from);
        }
    }

    std::function<void()> task;
    void* address;
    void* entered_from = nullptr;
};

// Runs a task on a thread of its own, as its first fiber.
void on_thread_of_fibers(const std::function<void()>& task) {
    std::thread{[&] {
        ASSERT_NE(ConvertThreadToFiber(nullptr), nullptr);
        task();
        ConvertFiberToThread();
    }}.join();
}

TEST_F(loaded_library, detaches_at_the_end_of_the_fiber_that_attached_and_attaches_in_the_next) {
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

TEST_F(loaded_library, attaches_each_fiber_of_a_thread_for_itself) {
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

TEST_F(loaded_library, knows_a_fiber_on_every_thread_that_runs_it) {
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

TEST_F(loaded_library, lets_a_fiber_end_on_another_thread) {
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
        EXPECT_EQ(total(stored), 3) << "it took the record of the fiber for its own";
    });
    EXPECT_EQ(stored, destroyed);
}

TEST_F(loaded_library, stays_where_threads_may_call_back_into_it) {
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

TEST_F(loaded_library, goes_if_it_has_not_started) {
    dll.unload();
    EXPECT_EQ(GetModuleHandleA(dll.path().c_str()), nullptr);
}

// ---- Failures ----

// The exception of the system that an action raises where no frame below handles one, or 0.
DWORD system_exception_of(const std::function<void()>& action) {
    static const std::function<void()>* acting;
    static EXCEPTION_RECORD seen;
    acting = &action;
    seen = {};
    const auto outermost = SetUnhandledExceptionFilter([](EXCEPTION_POINTERS* raised) -> LONG {
        seen = *raised->ExceptionRecord;
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
    SetUnhandledExceptionFilter(outermost);
    return seen.ExceptionCode;
}

constexpr DWORD thrown_by_the_compiler = 0x20474343; // "GCC", as its run time raises every C++ exception

TEST_F(loaded_library, fails_by_an_exception_of_the_system) {
    start();
    const auto solve_without_samples = [&] {
        const int list[] = {1};
        int n_steps = 0;
        QUENTA_FUNCTION(dll, quenta_solve_vie2)(nullptr, nullptr, 0, 0.01, 2, list, 1, 0, nullptr, nullptr, &n_steps);
        ADD_FAILURE() << "a status was returned";
    };
    EXPECT_EQ(system_exception_of(solve_without_samples), thrown_by_the_compiler);
    EXPECT_EQ(solve(), QUENTA_SOLVED);
}

TEST_F(loaded_library, divides_by_zero_as_the_processor_does) {
    start();
    const auto solve_with_m = [&](int m) {
        return [this, m] {
            const int status = solve(m);
            ADD_FAILURE() << "status " << status;
        };
    };
    for (const int m : {0, 65536, -65536})
        EXPECT_EQ(system_exception_of(solve_with_m(m)), DWORD(EXCEPTION_INT_DIVIDE_BY_ZERO));
    EXPECT_EQ(solve(), QUENTA_SOLVED);
}

TEST_F(loaded_library, throws_what_a_host_of_the_same_compiler_can_catch) {
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
