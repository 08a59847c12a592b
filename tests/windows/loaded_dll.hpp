// A copy of the DLL, loaded for as long as one wants it, whose calls of the system can be redirected.
#pragma once

#include "quenta_native.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <windows.h>

// A function of the header, in a loaded library.
#define QUENTA_FUNCTION(dll, name) ((dll).function<decltype(name)>(#name))

namespace quenta_tests {

class loaded_dll {
public:
    // Under a name of its own, since the system loads no file twice.
    loaded_dll() {
        static int copies = 0;
        char program[MAX_PATH];
        GetModuleFileNameA(nullptr, program, MAX_PATH);
        const std::string directory = std::string{program}.substr(0, std::string{program}.rfind('\\') + 1);
        place = directory + "quenta_native_copy_" + std::to_string(++copies) + ".dll";
        EXPECT_TRUE(CopyFileA((directory + "quenta_native.dll").c_str(), place.c_str(), FALSE));
        handle = LoadLibraryA(place.c_str());
        EXPECT_NE(handle, nullptr) << place << ": error " << GetLastError();
    }
    loaded_dll(const loaded_dll&) = delete;
    loaded_dll& operator=(const loaded_dll&) = delete;
    ~loaded_dll() { unload(); }

    void unload() {
        if (handle != nullptr)
            FreeLibrary(handle);
        handle = nullptr;
        DeleteFileA(place.c_str());
    }

    HMODULE module() const { return handle; }
    const std::string& path() const { return place; }

    template <class signature>
    signature* function(const char* name) const {
        void* const found = reinterpret_cast<void*>(GetProcAddress(handle, name));
        if (found == nullptr)
            throw std::runtime_error{std::string{"there is no export "} + name};
        return reinterpret_cast<signature*>(found);
    }

    // Calls the entry routine as the system does.
    bool notify(DWORD reason) const {
        using entry_routine = BOOL WINAPI(HMODULE, DWORD, void*);
        return reinterpret_cast<entry_routine*>(base() + headers().OptionalHeader.AddressOfEntryPoint)(handle, reason,
                                                                                                       nullptr) != 0;
    }

    // Lets the library call `replacement` where it would call this function of kernel32.dll.
    void redirect(const char* name, void* replacement) const {
        const auto& imports = headers().OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        const auto* from = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base() + imports.VirtualAddress);
        for (; from->Name != 0; ++from) {
            const auto* asked = reinterpret_cast<const IMAGE_THUNK_DATA*>(base() + from->OriginalFirstThunk);
            auto* given = reinterpret_cast<IMAGE_THUNK_DATA*>(base() + from->FirstThunk);
            for (; asked->u1.AddressOfData != 0; ++asked, ++given) {
                if (IMAGE_SNAP_BY_ORDINAL(asked->u1.Ordinal))
                    continue;
                const auto* by_name = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base() + asked->u1.AddressOfData);
                if (std::strcmp(reinterpret_cast<const char*>(by_name->Name), name) != 0)
                    continue;
                DWORD protection;
                VirtualProtect(given, sizeof *given, PAGE_READWRITE, &protection);
                given->u1.Function = reinterpret_cast<ULONGLONG>(replacement);
                VirtualProtect(given, sizeof *given, protection, &protection);
                return;
            }
        }
        ADD_FAILURE() << "the library does not import " << name;
    }

private:
    unsigned char* base() const { return reinterpret_cast<unsigned char*>(handle); }
    const IMAGE_NT_HEADERS& headers() const {
        const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(base());
        return *reinterpret_cast<const IMAGE_NT_HEADERS*>(base() + dos.e_lfanew);
    }

    std::string place;
    HMODULE handle = nullptr;
};

} // namespace quenta_tests
