#include <string_view>

#include "platform/call_orders.h"
#include "platform/test_switches.h"
#include "tests/support/real_calls.h"
#include "tests/support/windows/switched_calls.h"
#include "tests/windows/import_hooks.h"

namespace {

struct SwitchedCall {
    std::string_view name;
    const void* function;
};

#define SWITCHED_CALL(call) {#call, reinterpret_cast<const void*>(&switched_##call)},
const SwitchedCall kSwitchedCalls[] = {SWITCHED_CALLS(SWITCHED_CALL)};

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
    for (const SwitchedCall& call : kSwitchedCalls)
        (void)ReplaceImport(library, call.name, call.function);  // the library calls some of them
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
