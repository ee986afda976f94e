// What is there only to be there: modules, the version, the configuration file, the log file's access. None
// of it is a point: the loader's calls run while a variable of a function is made, which no other thread may
// come upon half done.

#include <map>
#include <string_view>

#include "platform/platform.h"

namespace {

char aModule;

const std::map<std::string_view, FARPROC>& Exports()
{
    static const std::map<std::string_view, FARPROC> exports = {
        {"getaddrinfo", FunctionCast<FARPROC>(&getaddrinfo)},
        {"getnameinfo", FunctionCast<FARPROC>(&getnameinfo)},
        {"freeaddrinfo", FunctionCast<FARPROC>(&freeaddrinfo)},
        {"RevertToPrinterSelf", FunctionCast<FARPROC>(&RevertToPrinterSelf)},
        {"ImpersonatePrinterClient", FunctionCast<FARPROC>(&ImpersonatePrinterClient)},
    };
    return exports;
}

}  // namespace

HMODULE LoadLibraryW(LPCWSTR)
{
    return &aModule;
}

BOOL FreeLibrary(HMODULE)
{
    return TRUE;
}

FARPROC GetProcAddress(HMODULE, LPCSTR name)
{
    const auto found = Exports().find(name);
    return found == Exports().end() ? nullptr : found->second;
}

DWORD GetModuleFileNameW(HMODULE, LPWSTR buffer, DWORD)
{
    constexpr WideStringView kPath = TEXT("/simulated/Farlink.dll");
    kPath.copy(buffer, kPath.size());
    buffer[kPath.size()] = 0;
    return static_cast<DWORD>(kPath.size());
}

BOOL DisableThreadLibraryCalls(HMODULE)
{
    return TRUE;
}

void PinModule(const void*) {}

CProcessIdentity::CProcessIdentity() = default;
CProcessIdentity::~CProcessIdentity() = default;

BOOL GetVersionExW(OSVERSIONINFOW* version)
{
    version->dwMajorVersion = 10;
    version->dwMinorVersion = 0;
    return TRUE;
}

BOOL VerifyVersionInfoW(OSVERSIONINFOEXW*, DWORD, DWORDLONG)
{
    return FALSE;
}

ULONGLONG VerSetConditionMask(ULONGLONG conditionMask, DWORD, BYTE)
{
    return conditionMask;
}

DWORD GetPrivateProfileStringW(LPCWSTR, LPCWSTR, LPCWSTR defaultValue, LPWSTR buffer, DWORD size, LPCWSTR)
{
    const std::size_t length = WideStringView(defaultValue).copy(buffer, size - 1);
    buffer[length] = 0;
    return static_cast<DWORD>(length);
}

BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY*, BYTE, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD,
                              DWORD, DWORD, PSID* sid)
{
    *sid = &aModule;
    return TRUE;
}

PVOID FreeSid(PSID)
{
    return nullptr;
}

DWORD SetEntriesInAclW(ULONG, EXPLICIT_ACCESSW*, PACL, PACL* newAcl)
{
    *newAcl = reinterpret_cast<PACL>(&aModule);
    return ERROR_SUCCESS;
}

BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR, DWORD)
{
    return TRUE;
}

BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR, BOOL, PACL, BOOL)
{
    return TRUE;
}

HLOCAL LocalAlloc(UINT, std::size_t)
{
    return &aModule;
}

HLOCAL LocalFree(HLOCAL)
{
    return nullptr;
}
