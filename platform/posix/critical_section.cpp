#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "platform/posix/call_switch.h"
#include "platform/posix/win32_inline.h"

void InitializeCriticalSection(CRITICAL_SECTION* section)
{
    posix_layer::CountCall("InitializeCriticalSection");
    ::new (section) CRITICAL_SECTION{};
    TELL_THREAD_SANITIZER(__tsan_mutex_create(section, __tsan_mutex_write_reentrant));
}

void DeleteCriticalSection([[maybe_unused]] CRITICAL_SECTION* section)
{
    posix_layer::CountCall("DeleteCriticalSection");
    TELL_THREAD_SANITIZER(__tsan_mutex_destroy(section, __tsan_mutex_write_reentrant));
}

namespace posix_layer {

// The system puts a thread to sleep only while the word still has the value that the thread saw (futex(2)),
// so a release in between is not missed. It keeps errno: a lock is taken between a call and its error.
void WaitForSection(CRITICAL_SECTION* section)
{
    const int error = errno;
    while (section->state.exchange(2, std::memory_order_acquire) != 0)
        syscall(SYS_futex, &section->state, FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr, 0);
    section->owner.store(ThisThread(), std::memory_order_relaxed);
    errno = error;
}

void WakeWaiter(CRITICAL_SECTION* section)
{
    const int error = errno;
    syscall(SYS_futex, &section->state, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    errno = error;
}

namespace {

// The library's own copies of the calls, for those who find them by name.
[[gnu::used]] constexpr void (*enter)(CRITICAL_SECTION*) = &EnterCriticalSection;
[[gnu::used]] constexpr BOOL (*tryEnter)(CRITICAL_SECTION*) = &TryEnterCriticalSection;
[[gnu::used]] constexpr void (*leave)(CRITICAL_SECTION*) = &LeaveCriticalSection;

}  // namespace

}  // namespace posix_layer
