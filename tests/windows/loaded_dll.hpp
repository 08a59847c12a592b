// A loaded copy of the DLL. It can be unloaded at any time, and its calls of the system can be redirected.
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
    // Each copy has its own name, since the system does not load a file twice.
    loaded_dll() {
        static int copies = 0;
        char program[MAX_PATH];
        GetModuleFileNameA(nullptr, program, MAX_PATH);
        const std::string directory = std::string{program}.substr(0, std::string{program}.rfind('\\') + 1);
        copy_path = directory + "quenta_native_copy_" + std::to_string(++copies) + ".dll";
        EXPECT_TRUE(CopyFileA((directory + "quenta_native.dll").c_str(), copy_path.c_str(), FALSE));
        handle = LoadLibraryA(copy_path.c_str());
        EXPECT_NE(handle, nullptr) << copy_path << ": error " << GetLastError();
    }
    loaded_dll(const loaded_dll&) = delete;
    loaded_dll& operator=(const loaded_dll&) = delete;
    ~loaded_dll() { unload(); }

    void unload() {
        if (handle != nullptr)
            FreeLibrary(handle);
        handle = nullptr;
        DeleteFileA(copy_path.c_str());
    }

    HMODULE module() const { return handle; }
    const std::string& path() const { return copy_path; }

    template <class signature>
    signature* function(const char* name) const {
        void* const found = reinterpret_cast<void*>(GetProcAddress(handle, name));
        if (found == nullptr)
            throw std::runtime_error{std::string{"expected an export "} + name};
        return reinterpret_cast<signature*>(found);
    }

    // Calls the entry point of the DLL, as the system does.
    bool notify(DWORD reason) const {
        using entry_point = BOOL WINAPI(HMODULE, DWORD, void*);
        return reinterpret_cast<entry_point*>(base() + headers().OptionalHeader.AddressOfEntryPoint)(handle, reason,
                                                                                                     nullptr) != 0;
    }

    // Makes the library call `replacement` instead of this function of kernel32.dll.
    void redirect(const char* name, void* replacement) const {
        const auto& imports = headers().OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        const auto* from = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base() + imports.VirtualAddress);
        for (; from->Name != 0; ++from) {
            const auto* lookup = reinterpret_cast<const IMAGE_THUNK_DATA*>(base() + from->OriginalFirstThunk);
            auto* address = reinterpret_cast<IMAGE_THUNK_DATA*>(base() + from->FirstThunk);
            for (; lookup->u1.AddressOfData != 0; ++lookup, ++address) {
                if (IMAGE_SNAP_BY_ORDINAL(lookup->u1.Ordinal))
                    continue;
                const auto* by_name = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base() + lookup->u1.AddressOfData);
                if (std::strcmp(reinterpret_cast<const char*>(by_name->Name), name) != 0)
                    continue;
                DWORD protection;
                VirtualProtect(address, sizeof *address, PAGE_READWRITE, &protection);
                address->u1.Function = reinterpret_cast<ULONGLONG>(replacement);
                VirtualProtect(address, sizeof *address, protection, &protection);
                return;
            }
        }
        ADD_FAILURE() << "expected the library to import " << name;
    }

private:
    unsigned char* base() const { return reinterpret_cast<unsigned char*>(handle); }
    const IMAGE_NT_HEADERS& headers() const {
        const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(base());
        return *reinterpret_cast<const IMAGE_NT_HEADERS*>(base() + dos.e_lfanew);
    }

    std::string copy_path;
    HMODULE handle = nullptr;
};

} // namespace quenta_tests
