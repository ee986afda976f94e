#include <iterator>
#include <string_view>

#include "platform/test_switches.h"
#include "tests/support/real_calls.h"
#include "tests/support/windows/call_orders.h"
#include "tests/support/windows/switched_calls.h"

namespace {

struct SwitchedCall {
    std::string_view name;
    const void* function;
};

#define SWITCHED_CALL(call) {#call, reinterpret_cast<const void*>(&switched_##call)},
const SwitchedCall kSwitchedCalls[] = {SWITCHED_CALLS(SWITCHED_CALL)};

// A place in a module's table of the functions that it imports.
void Replace(ULONG_PTR& entry, const void* function)
{
    DWORD protection = 0;
    if (VirtualProtect(&entry, sizeof entry, PAGE_READWRITE, &protection) == FALSE)
        return;
    entry = reinterpret_cast<ULONG_PTR>(function);
    (void)VirtualProtect(&entry, sizeof entry, protection, &protection);
}

template <class Type>
Type* At(HMODULE module, ULONG_PTR offset)
{
    return reinterpret_cast<Type*>(static_cast<BYTE*>(module) + offset);
}

}  // namespace

HMODULE RealLoadLibraryW(LPCWSTR name)
{
    return call_orders::CallFails("LoadLibraryW") ? nullptr : LoadLibraryW(name);
}

FARPROC RealGetProcAddress(HMODULE module, LPCSTR name)
{
    if (call_orders::CallFails("GetProcAddress"))
        return nullptr;
    const std::string_view asked = name;
    if (asked == "getaddrinfo")
        return FunctionCast<FARPROC>(&switched_getaddrinfo);
    if (asked == "getnameinfo")
        return FunctionCast<FARPROC>(&switched_getnameinfo);
    if (asked == "freeaddrinfo")
        return FunctionCast<FARPROC>(&switched_freeaddrinfo);
    return GetProcAddress(module, name);
}

BOOL RealFreeLibrary(HMODULE module)
{
    return FreeLibrary(module);
}

BOOL RealWriteFile(HANDLE file, LPCVOID data, DWORD size, DWORD* written, LPOVERLAPPED overlapped)
{
    *written = 0;  // as the system does, before anything else
    return call_orders::CallFails("WriteFile") ? FALSE : WriteFile(file, data, size, written, overlapped);
}

void PutDoublesBefore(HMODULE library)
{
    const auto* const header =
        At<IMAGE_NT_HEADERS>(library, static_cast<ULONG_PTR>(At<IMAGE_DOS_HEADER>(library, 0)->e_lfanew));
    const IMAGE_DATA_DIRECTORY& directory =
        header->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto* from = At<IMAGE_IMPORT_DESCRIPTOR>(library, directory.VirtualAddress); from->Name != 0;
         from++) {
        auto* name = At<const IMAGE_THUNK_DATA>(library, from->OriginalFirstThunk);
        auto* entry = At<IMAGE_THUNK_DATA>(library, from->FirstThunk);
        for (; name->u1.AddressOfData != 0; name++, entry++) {
            const char* text = At<IMAGE_IMPORT_BY_NAME>(library, name->u1.AddressOfData)->Name;
            for (const SwitchedCall& call : kSwitchedCalls) {
                if (call.name == text)
                    Replace(entry->u1.Function, call.function);
            }
        }
    }
}

bool IsLoaded(const std::filesystem::path& library)
{
    return GetModuleHandleW(library.c_str()) != nullptr;
}

bool IsOpenToEveryone(const std::filesystem::path& file)
{
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoW(const_cast<LPWSTR>(file.c_str()), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                              nullptr, nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    BYTE everyone[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof everyone;
    bool isOpen = CreateWellKnownSid(WinWorldSid, nullptr, everyone, &size) != FALSE && list != nullptr;
    ACCESS_ALLOWED_ACE* entry = nullptr;
    // How much of it the system grants is its own affair: emulators cut it to what the host's files know.
    isOpen = isOpen && GetAce(list, list->AceCount - 1u, reinterpret_cast<LPVOID*>(&entry)) != FALSE &&
             EqualSid(&entry->SidStart, everyone) != FALSE && (entry->Mask & FILE_READ_DATA) != 0;
    LocalFree(descriptor);
    return isOpen;
}

// The loader tells libraries of the end of the process behind the program's own handlers.
const char* const kLastLineAtExit = "";

void ResetPlatform()
{
    test_switches::Reset();
}
