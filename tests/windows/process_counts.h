#pragma once

#include <string>

#include "platform/platform.h"

// What this process holds, to be compared before and after something.
DWORD ThreadCount();

// Handles are numbered from the lowest that is free: what leaks, raises the next one.
ULONG_PTR NextHandle();

// Thread-local slots that are still to be had.
DWORD FreeSlots();

// Bytes in use in all heaps.
std::size_t HeapBytes();

// All of these at a moment, to be compared with a later one.
class ProcessCounts {
public:
    // A check for each of them: what grew since the construction. The heap may have grown by less than
    // `mostBytesPerTime` for each of `times`, which is what the system itself keeps of a load.
    void CheckSame(const std::string& since, DWORD times, std::size_t mostBytesPerTime) const;

private:
    const DWORD threads = ThreadCount();
    const ULONG_PTR handle = NextHandle();
    const DWORD freeSlots = FreeSlots();
    const std::size_t bytes = HeapBytes();
};
