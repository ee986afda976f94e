#pragma once

#include "platform/platform.h"

// Locks of the platform with scopes. A lock may be taken again by its holder. The annotations are
// checked by clang (-Wthread-safety) and mean nothing to other compilers.

#if defined(__clang__)
#define THREAD_ANNOTATION(x) __attribute__((x))
#else
#define THREAD_ANNOTATION(x)
#endif

class THREAD_ANNOTATION(capability("mutex")) CLock {
public:
    CLock() { InitializeCriticalSection(&section); }
    ~CLock() { DeleteCriticalSection(&section); }
    CLock(const CLock&) = delete;
    CLock& operator=(const CLock&) = delete;

    void Enter() THREAD_ANNOTATION(acquire_capability()) { EnterCriticalSection(&section); }
    bool TryEnter() THREAD_ANNOTATION(try_acquire_capability(true))
    {
        return TryEnterCriticalSection(&section) != FALSE;
    }
    void Leave() THREAD_ANNOTATION(release_capability()) { LeaveCriticalSection(&section); }

private:
    CRITICAL_SECTION section;
};

class THREAD_ANNOTATION(scoped_lockable) CLockScope {
public:
    explicit CLockScope(CLock& held) THREAD_ANNOTATION(acquire_capability(held)) : lock(held)
    {
        lock.Enter();
    }
    ~CLockScope() THREAD_ANNOTATION(release_capability()) { lock.Leave(); }
    CLockScope(const CLockScope&) = delete;
    CLockScope& operator=(const CLockScope&) = delete;

private:
    CLock& lock;
};

// Leaves a lock that the caller holds, and takes it again at its end.
class THREAD_ANNOTATION(scoped_lockable) CUnlockScope {
public:
    explicit CUnlockScope(CLock& left) THREAD_ANNOTATION(release_capability(left)) : lock(left)
    {
        lock.Leave();
    }
    ~CUnlockScope() THREAD_ANNOTATION(release_capability()) { lock.Enter(); }
    CUnlockScope(const CUnlockScope&) = delete;
    CUnlockScope& operator=(const CUnlockScope&) = delete;

private:
    CLock& lock;
};

// Takes the lock only if that needs no waiting.
class CTryLockScope {
public:
    explicit CTryLockScope(CLock& wanted) THREAD_ANNOTATION(no_thread_safety_analysis)
        : lock(wanted), held(wanted.TryEnter())
    {
    }
    ~CTryLockScope() THREAD_ANNOTATION(no_thread_safety_analysis)
    {
        if (held)
            lock.Leave();
    }
    CTryLockScope(const CTryLockScope&) = delete;
    CTryLockScope& operator=(const CTryLockScope&) = delete;

    bool IsHeld() const { return held; }

private:
    CLock& lock;
    const bool held;
};
