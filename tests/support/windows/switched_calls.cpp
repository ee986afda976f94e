#include "tests/support/windows/switched_calls.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/call_orders.h"
#include "tests/support/failing_new.h"
#include "tests/support/windows/ordered_system.h"

using call_orders::CallFails;

// --- time ---

DWORD switched_GetTickCount()
{
    (void)CallFails("GetTickCount");
    return ordered_system::TickCount();
}

void switched_Sleep(DWORD milliseconds)
{
    (void)CallFails("Sleep");
    Sleep(ordered_system::RealWait(milliseconds));
}

DWORD switched_WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    if (CallFails("WaitForSingleObject"))
        return WAIT_FAILED;
    return WaitForSingleObject(handle, ordered_system::RealWait(milliseconds));
}

// --- version ---

BOOL switched_GetVersionExW(OSVERSIONINFOW* version)
{
    if (CallFails("GetVersionExW") || GetVersionExW(version) == FALSE)
        return FALSE;
    if (const auto ordered = ordered_system::ReportedVersion()) {
        version->dwMajorVersion = ordered->major;
        version->dwMinorVersion = ordered->minor;
    }
    return TRUE;
}

BOOL switched_VerifyVersionInfoW(OSVERSIONINFOEXW* version, DWORD typeMask, DWORDLONG conditionMask)
{
    if (CallFails("VerifyVersionInfoW"))
        return FALSE;
    const auto ordered = ordered_system::ReportedVersion();
    if (!ordered)
        return VerifyVersionInfoW(version, typeMask, conditionMask);
    if (version->dwMajorVersion == ordered->major && version->dwMinorVersion == ordered->minor)
        return TRUE;
    SetLastError(ERROR_OLD_WIN_VERSION);
    return FALSE;
}

// --- modules, threads, files and their access ---

DWORD switched_GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size)
{
    return CallFails("GetModuleFileNameW") ? 0 : GetModuleFileNameW(module, buffer, size);
}

DWORD switched_TlsAlloc()
{
    return CallFails("TlsAlloc") ? TLS_OUT_OF_INDEXES : TlsAlloc();
}

HANDLE switched_CreateThread(SECURITY_ATTRIBUTES* attributes, SIZE_T stackSize, LPTHREAD_START_ROUTINE start,
                             LPVOID argument, DWORD flags, DWORD* threadId)
{
    return CallFails("CreateThread") ? nullptr
                                     : CreateThread(attributes, stackSize, start, argument, flags, threadId);
}

HANDLE switched_CreateEventW(SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL initialState,
                             LPCWSTR name)
{
    return CallFails("CreateEventW") ? nullptr : CreateEventW(attributes, manualReset, initialState, name);
}

HANDLE switched_CreateFileW(LPCWSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
                            DWORD disposition, DWORD flags, HANDLE templateFile)
{
    return CallFails("CreateFileW")
               ? INVALID_HANDLE_VALUE
               : CreateFileW(name, access, share, attributes, disposition, flags, templateFile);
}

DWORD switched_GetTempPathW(DWORD size, LPWSTR buffer)
{
    if (CallFails("GetTempPathW"))
        return 0;
    if (ordered_system::TempFolder().empty())
        return GetTempPathW(size, buffer);
    const UntouchedNew untouched;
    const WideString path = ordered_system::TempFolder() + TEXT("\\");
    const auto length = static_cast<DWORD>(path.size());
    if (length >= size)
        return length + 1;
    path.copy(buffer, length);
    buffer[length] = 0;
    return length;
}

BOOL switched_AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD sub0,
                                       DWORD sub1, DWORD sub2, DWORD sub3, DWORD sub4, DWORD sub5, DWORD sub6,
                                       DWORD sub7, PSID* sid)
{
    return CallFails("AllocateAndInitializeSid")
               ? FALSE
               : AllocateAndInitializeSid(authority, count, sub0, sub1, sub2, sub3, sub4, sub5, sub6, sub7,
                                          sid);
}

DWORD switched_SetEntriesInAclW(ULONG count, EXPLICIT_ACCESSW* entries, PACL oldAcl, PACL* newAcl)
{
    return CallFails("SetEntriesInAclW") ? GetLastError() : SetEntriesInAclW(count, entries, oldAcl, newAcl);
}

BOOL switched_InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision)
{
    return CallFails("InitializeSecurityDescriptor") ? FALSE
                                                     : InitializeSecurityDescriptor(descriptor, revision);
}

BOOL switched_SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL dacl,
                                        BOOL defaulted)
{
    return CallFails("SetSecurityDescriptorDacl")
               ? FALSE
               : SetSecurityDescriptorDacl(descriptor, present, dacl, defaulted);
}

HLOCAL switched_LocalAlloc(UINT flags, SIZE_T size)
{
    return CallFails("LocalAlloc") ? nullptr : LocalAlloc(flags, size);
}
