#pragma once

#include <cstddef>

#include "platform/platform.h"

// Tags the current thread with the print server for which it works; each of its log lines shows the
// tag. A thread has one tag: a second scope replaces the text, and the first to end erases it. A null
// server sets no tag. Without memory for the tag, the lines go untagged.
class CThreadPortTag {
public:
    // `server` has 48 characters at most; `portNumber` is that of the data channel.
    CThreadPortTag(LPCWSTR server, WORD portNumber);
    ~CThreadPortTag();
    CThreadPortTag(const CThreadPortTag&) = delete;
    CThreadPortTag& operator=(const CThreadPortTag&) = delete;
};

constexpr std::size_t kThreadPortTagSize = 160;  // 48 UTF-16 characters as UTF-8, ":65535", NUL

// Copies the current thread's tag, or "N/A". With `mayWait` false a table in use counts as no tag.
void GetThreadPortTag(char (&tag)[kThreadPortTagSize], bool mayWait = true);

// Called at attach and detach, with no other thread in the monitor.
void CreateThreadTags();
void DestroyThreadTags();
