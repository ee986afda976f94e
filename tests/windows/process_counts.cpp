#include "tests/windows/process_counts.h"

#include <tlhelp32.h>

#include <vector>

#include "tests/windows/checks.h"

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

DWORD FreeSlots()
{
    std::vector<DWORD> slots;
    for (DWORD slot = TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = TlsAlloc())
        slots.push_back(slot);
    for (const DWORD slot : slots)
        TlsFree(slot);
    return static_cast<DWORD>(slots.size());
}

std::size_t HeapBytes()
{
    std::vector<HANDLE> heaps(GetProcessHeaps(0, nullptr));
    heaps.resize(GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data()));
    std::size_t bytes = 0;
    for (const HANDLE heap : heaps) {
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(heap, &entry))
            bytes += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? entry.cbData : 0;
    }
    return bytes;
}

void ProcessCounts::CheckSame(const std::string& since, DWORD times, std::size_t mostBytesPerTime) const
{
    checks::CheckEqual(ThreadCount(), threads, "threads after " + since);
    checks::CheckEqual(NextHandle(), handle, "handles after " + since);
    checks::CheckEqual(FreeSlots(), freeSlots, "free thread-local slots after " + since);
    const std::size_t now = HeapBytes();
    checks::Check(now < bytes + times * mostBytesPerTime, "memory after " + since,
                  std::to_string((now - bytes) / times) + " bytes more each time");
}
