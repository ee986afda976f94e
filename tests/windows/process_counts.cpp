#include "tests/windows/process_counts.h"

#include <tlhelp32.h>

DWORD ThreadCount()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    DWORD count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    CloseHandle(snapshot);
    return count;
}

ULONG_PTR NextHandle()
{
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    CloseHandle(event);
    return reinterpret_cast<ULONG_PTR>(event);
}
