#pragma once

#include <atomic>

#include "platform/platform.h"

// Holds the calling thread's id while it stands.
class CThreadMark {
public:
    explicit CThreadMark(std::atomic<DWORD>& place) : mark(place) { mark = GetCurrentThreadId(); }
    ~CThreadMark() { mark = 0; }
    CThreadMark(const CThreadMark&) = delete;
    CThreadMark& operator=(const CThreadMark&) = delete;

private:
    std::atomic<DWORD>& mark;
};
