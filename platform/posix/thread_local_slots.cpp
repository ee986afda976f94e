#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>

#include "platform/posix/call_switch.h"
#include "platform/posix/last_error.h"
#include "platform/posix/win32_inline.h"

namespace posix_layer {

constinit thread_local ThreadWords threadWords{};
std::atomic<DWORD> slotUses[kMaxSlots];

namespace {

std::mutex allocation;

// A thread's values go with the thread.
void FreeSlots(void* slots)
{
    threadWords.slotCount = 0;
    threadWords.slots = nullptr;
    std::free(slots);
}

// Has the end of this thread free its values. False when the process has no key left for that.
bool FreeAtThreadEnd(SlotValue* slots)
{
    static pthread_key_t key;
    static const bool hasKey = pthread_key_create(&key, &FreeSlots) == 0;
    return hasKey && pthread_setspecific(key, slots) == 0;
}

bool MakeRoom(DWORD count)
{
    auto* const slots = static_cast<SlotValue*>(std::calloc(count, sizeof(SlotValue)));
    if (slots == nullptr || !FreeAtThreadEnd(slots)) {
        std::free(slots);
        return false;
    }
    std::copy_n(threadWords.slots, threadWords.slotCount, slots);
    std::free(threadWords.slots);
    threadWords.slots = slots;
    threadWords.slotCount = count;
    return true;
}

bool IsAllocated(DWORD slot)
{
    return slot < kMaxSlots && slotUses[slot].load(std::memory_order_relaxed) % 2 == 1;
}

}  // namespace

bool StoreFirstValue(DWORD slot, LPVOID value)
{
    if (slot >= kMaxSlots || !MakeRoom(slot + 1)) {
        SetLastError(slot >= kMaxSlots ? ERROR_INVALID_PARAMETER : ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    threadWords.slots[slot] = {value, slotUses[slot].load(std::memory_order_relaxed)};
    return true;
}

}  // namespace posix_layer

DWORD TlsAlloc()
{
    if (posix_layer::CallFails("TlsAlloc"))
        return TLS_OUT_OF_INDEXES;
    const std::lock_guard lock(posix_layer::allocation);
    for (DWORD slot = 0; slot < posix_layer::kMaxSlots; ++slot) {
        if (!posix_layer::IsAllocated(slot)) {
            ++posix_layer::slotUses[slot];
            return slot;
        }
    }
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD slot)
{
    if (posix_layer::CallFails("TlsFree"))
        return FALSE;
    const std::lock_guard lock(posix_layer::allocation);
    if (!posix_layer::IsAllocated(slot)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    ++posix_layer::slotUses[slot];  // what threads have stored counts no more
    return TRUE;
}

namespace {

// The library's own copies of the calls, for those who find them by name.
[[gnu::used]] constexpr LPVOID (*get)(DWORD) = &TlsGetValue;
[[gnu::used]] constexpr BOOL (*set)(DWORD, LPVOID) = &TlsSetValue;
[[gnu::used]] constexpr DWORD (*getError)() = &GetLastError;
[[gnu::used]] constexpr void (*setError)(DWORD) = &SetLastError;

}  // namespace
