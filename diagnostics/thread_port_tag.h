#pragma once

#include <cstddef>

#include "platform/platform.h"

// Tags the current thread with the print server for which it works; each of its log lines shows the
// tag. Lives on the stack of its function and is the tag: the thread's slot points at it, so a tag takes
// no lock and no memory, whatever the number of threads. A thread has one tag: a second scope replaces
// the first, and the first to end erases it. A null server sets no tag.
class CThreadPortTag {
public:
    // Copies `server`, of which the first 48 characters count; `portNumber` is that of the data channel.
    CThreadPortTag(LPCWSTR server, WORD portNumber);
    ~CThreadPortTag();
    CThreadPortTag(const CThreadPortTag&) = delete;
    CThreadPortTag& operator=(const CThreadPortTag&) = delete;

    // Kept as they were given: most tags are never printed.
    LPCWSTR Server() const { return server; }
    WORD PortNumber() const { return portNumber; }

private:
    WCHAR server[49];
    const WORD portNumber;
};

constexpr std::size_t kThreadPortTagSize = 160;  // 48 UTF-16 characters as UTF-8, ":65535", NUL

// Copies the current thread's tag, or "N/A". Sets the last error.
void GetThreadPortTag(char (&tag)[kThreadPortTagSize]);

// Called at attach and detach, with no other thread in the monitor. Without a slot, threads go untagged.
void CreateThreadTagSlot();
void FreeThreadTagSlot();
