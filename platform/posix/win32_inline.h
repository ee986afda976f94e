#pragma once

// The calls that the monitor makes so often that reaching a library's function would be most of their
// cost: last error, thread-local slots, critical sections. Their promises stand in win32_kernel.h. The
// library exports them too, for who finds them by name.

#include "platform/call_watch.h"
#include "win32_kernel.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#define TELL_THREAD_SANITIZER(call) call
#else
#define TELL_THREAD_SANITIZER(call)
#endif

namespace posix_layer {

// A value counts while its slot has not been given back since it was stored.
struct SlotValue {
    LPVOID value;
    DWORD use;
};

constexpr DWORD kMaxSlots = 1088;  // of a process, as on the platform

// What a thread keeps at a fixed place, found without a call.
struct ThreadWords {
    DWORD lastError;
    DWORD slotCount;   // values in `slots`
    SlotValue* slots;  // null until the thread stores its first value
};
[[gnu::tls_model("initial-exec")]] extern constinit thread_local ThreadWords threadWords;

// The number of each slot's present use; odd while it is allocated.
extern std::atomic<DWORD> slotUses[kMaxSlots];

bool StoreFirstValue(DWORD slot, LPVOID value);

// Sleep until the section is free and take it; wake one that sleeps so.
void WaitForSection(CRITICAL_SECTION* section);
void WakeWaiter(CRITICAL_SECTION* section);

// Differs from that of every other living thread.
inline void* ThisThread()
{
    return __builtin_thread_pointer();
}

inline bool TakeIfFree(CRITICAL_SECTION* section)
{
    int expected = 0;
    if (!section->state.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                                std::memory_order_relaxed))
        return false;
    section->owner.store(ThisThread(), std::memory_order_relaxed);
    return true;
}

inline bool TakeAgain(CRITICAL_SECTION* section)
{
    if (section->owner.load(std::memory_order_relaxed) != ThisThread())
        return false;
    ++section->depth;
    return true;
}

}  // namespace posix_layer

extern "C" {

inline DWORD GetLastError()
{
    return posix_layer::threadWords.lastError;
}

inline void SetLastError(DWORD error)
{
    posix_layer::threadWords.lastError = error;
}

inline LPVOID TlsGetValue(DWORD slot)
{
    if (call_orders::CallFails("TlsGetValue"))
        return nullptr;
    const posix_layer::ThreadWords& words = posix_layer::threadWords;
    SetLastError(slot < posix_layer::kMaxSlots ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER);
    if (slot >= words.slotCount ||
        words.slots[slot].use != posix_layer::slotUses[slot].load(std::memory_order_relaxed))
        return nullptr;
    return words.slots[slot].value;
}

inline BOOL TlsSetValue(DWORD slot, LPVOID value)
{
    if (call_orders::CallFails("TlsSetValue"))
        return FALSE;
    const posix_layer::ThreadWords& words = posix_layer::threadWords;
    if (slot >= words.slotCount)
        return posix_layer::StoreFirstValue(slot, value);
    words.slots[slot] = {value, posix_layer::slotUses[slot].load(std::memory_order_relaxed)};
    return TRUE;
}

inline void EnterCriticalSection(CRITICAL_SECTION* section)
{
    (void)call_orders::CallFails("EnterCriticalSection");
    TELL_THREAD_SANITIZER(__tsan_mutex_pre_lock(section, __tsan_mutex_write_reentrant));
    if (!posix_layer::TakeAgain(section) && !posix_layer::TakeIfFree(section))
        posix_layer::WaitForSection(section);
    TELL_THREAD_SANITIZER(__tsan_mutex_post_lock(section, __tsan_mutex_write_reentrant, 0));
}

inline BOOL TryEnterCriticalSection(CRITICAL_SECTION* section)
{
    if (call_orders::CallFails("TryEnterCriticalSection"))
        return FALSE;
    TELL_THREAD_SANITIZER(
        __tsan_mutex_pre_lock(section, __tsan_mutex_write_reentrant | __tsan_mutex_try_lock));
    const bool taken = posix_layer::TakeAgain(section) || posix_layer::TakeIfFree(section);
    TELL_THREAD_SANITIZER(__tsan_mutex_post_lock(
        section,
        __tsan_mutex_write_reentrant | __tsan_mutex_try_lock | (taken ? 0 : __tsan_mutex_try_lock_failed),
        0));
    return taken ? TRUE : FALSE;
}

inline void LeaveCriticalSection(CRITICAL_SECTION* section)
{
    (void)call_orders::CallFails("LeaveCriticalSection");
    TELL_THREAD_SANITIZER((void)__tsan_mutex_pre_unlock(section, __tsan_mutex_write_reentrant));
    if (section->depth > 0) {
        --section->depth;
    } else {
        section->owner.store(nullptr, std::memory_order_relaxed);
        if (section->state.exchange(0, std::memory_order_release) == 2)
            posix_layer::WakeWaiter(section);
    }
    TELL_THREAD_SANITIZER(__tsan_mutex_post_unlock(section, __tsan_mutex_write_reentrant));
}

}  // extern "C"
