#include <pthread.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>

#include "platform/posix/call_switch.h"
#include "platform/posix/handles.h"
#include "platform/posix/last_error.h"
#include "platform/posix/steady_time.h"

namespace {

// The system is asked once per thread; 0 before. The only thread of a forked process asks anew.
[[gnu::tls_model("initial-exec")]] constinit thread_local DWORD ownThreadId = 0;
[[maybe_unused]] const int forksAreWatched = pthread_atfork(nullptr, nullptr, [] { ownThreadId = 0; });

// Something that is signalled or not: an event, or a thread, which becomes signalled when it ends.
class Waitable : public posix_layer::KernelObject {
public:
    Waitable(bool staysSignalled, bool isSignalled) : manualReset(staysSignalled), signalled(isSignalled) {}

    void Signal()
    {
        const std::lock_guard lock(mutex);
        signalled = true;
        changed.notify_all();
    }

    void Unsignal()
    {
        const std::lock_guard lock(mutex);
        signalled = false;
    }

    DWORD Wait(DWORD milliseconds)
    {
        std::unique_lock lock(mutex);
        const auto isSignalled = [this] { return signalled; };
        if (milliseconds == INFINITE)
            changed.wait(lock, isSignalled);
        else if (!changed.wait_until(lock, posix_layer::DeadlineAfter(milliseconds), isSignalled))
            return WAIT_TIMEOUT;
        if (!manualReset)
            signalled = false;
        return WAIT_OBJECT_0;
    }

private:
    const bool manualReset;
    std::mutex mutex;
    std::condition_variable changed;
    bool signalled;
};

class Event : public Waitable {
public:
    using Waitable::Waitable;
};

class Thread : public Waitable {
public:
    Thread() : Waitable(true, false) {}
    Waitable started{true, false};
    DWORD id = 0;  // valid once `started` is signalled
};

struct ThreadStart {
    std::shared_ptr<Thread> thread;
    LPTHREAD_START_ROUTINE routine;
    LPVOID argument;
};

void* RunThread(void* argument)
{
    const std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(argument));
    start->thread->id = GetCurrentThreadId();
    start->thread->started.Signal();
    start->routine(start->argument);
    start->thread->Signal();
    return nullptr;
}

// Starts a thread that nobody joins: its end is told by the object.
int StartDetached(ThreadStart* start)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t unused;
    const int result = pthread_create(&unused, &attributes, &RunThread, start);
    pthread_attr_destroy(&attributes);
    return result;
}

}  // namespace

HANDLE CreateThread(SECURITY_ATTRIBUTES*, std::size_t stackSize, LPTHREAD_START_ROUTINE start,
                    LPVOID argument, DWORD flags, DWORD* threadId)
{
    return posix_layer::GuardedCall("CreateThread", HANDLE{nullptr}, [&]() -> HANDLE {
        if (stackSize != 0 || flags != 0 || start == nullptr) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return nullptr;
        }
        const auto thread = std::make_shared<Thread>();
        auto order = std::make_unique<ThreadStart>(ThreadStart{thread, start, argument});
        const HANDLE handle = posix_layer::AddHandle(thread);
        if (const int error = StartDetached(order.get()); error != 0) {
            CloseHandle(handle);
            SetLastError(posix_layer::ErrorFromErrno(error));
            return nullptr;
        }
        (void)order.release();  // the new thread's
        if (threadId != nullptr) {
            thread->started.Wait(INFINITE);
            *threadId = thread->id;
        }
        return handle;
    });
}

HANDLE CreateEventW(SECURITY_ATTRIBUTES*, BOOL manualReset, BOOL initialState, LPCWSTR name)
{
    return posix_layer::GuardedCall("CreateEventW", HANDLE{nullptr}, [&]() -> HANDLE {
        if (name != nullptr) {
            SetLastError(ERROR_NOT_SUPPORTED);
            return nullptr;
        }
        return posix_layer::AddHandle(std::make_shared<Event>(manualReset != FALSE, initialState != FALSE));
    });
}

BOOL SetEvent(HANDLE event)
{
    if (posix_layer::CallFails("SetEvent"))
        return FALSE;
    const auto object = posix_layer::Find<Event>(event);
    if (!object)
        return FALSE;
    object->Signal();
    return TRUE;
}

BOOL ResetEvent(HANDLE event)
{
    if (posix_layer::CallFails("ResetEvent"))
        return FALSE;
    const auto object = posix_layer::Find<Event>(event);
    if (!object)
        return FALSE;
    object->Unsignal();
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    if (posix_layer::CallFails("WaitForSingleObject"))
        return WAIT_FAILED;
    const auto object = posix_layer::Find<Waitable>(handle);
    return object ? object->Wait(milliseconds) : WAIT_FAILED;
}

DWORD GetCurrentThreadId()
{
    if (ownThreadId == 0)
        ownThreadId = static_cast<DWORD>(gettid());
    return ownThreadId;
}

DWORD GetCurrentProcessId()
{
    return static_cast<DWORD>(getpid());
}
