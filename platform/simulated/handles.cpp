// Events, threads, waits.

#include "platform/simulated/handles.h"

#include <map>
#include <memory>

#include "platform/simulated/files.h"
#include "platform/simulated/scheduler.h"

using simulated::kForever;
using simulated::kMillisecond;
using simulated::Scheduler;
using simulated::Thread;

namespace {

struct Waitable {
    bool isEvent;
    bool staysSignalled;
    bool isSignalled;
};

std::map<HANDLE, std::shared_ptr<Waitable>> table;
std::uintptr_t handlesMade = 0;

HANDLE Add(std::shared_ptr<Waitable> made)
{
    const HANDLE handle = reinterpret_cast<HANDLE>(++handlesMade * 4);
    table[handle] = std::move(made);
    return handle;
}

std::shared_ptr<Waitable> Find(HANDLE handle)
{
    const auto found = table.find(handle);
    if (found != table.end())
        return found->second;
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

void Signal(Waitable& signalled)
{
    signalled.isSignalled = true;
    Scheduler::Current().Wake(&signalled);
}

BOOL Change(HANDLE event, bool isSignalled)
{
    const auto found = Find(event);
    if (!found || !found->isEvent)
        return FALSE;
    if (isSignalled)
        Signal(*found);
    else
        found->isSignalled = false;
    return TRUE;
}

}  // namespace

namespace simulated {

std::size_t OpenHandles()
{
    return table.size();
}

void ForgetHandles()
{
    table.clear();
    handlesMade = 0;
}

}  // namespace simulated

HANDLE CreateThread(SECURITY_ATTRIBUTES*, std::size_t, LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD,
                    DWORD* threadId)
{
    Scheduler& scheduler = Scheduler::Current();
    scheduler.Point("CreateThread");
    const auto ended = std::make_shared<Waitable>(Waitable{false, true, false});
    const Thread& thread = scheduler.Start("worker", Thread::Kind::Inside, [=] {
        start(argument);
        Signal(*ended);
    });
    if (threadId != nullptr)
        *threadId = thread.Id();
    const HANDLE handle = Add(ended);
    scheduler.Point("CreateThread");
    return handle;
}

HANDLE CreateEventW(SECURITY_ATTRIBUTES*, BOOL manualReset, BOOL initialState, LPCWSTR)
{
    Scheduler::Current().Point("CreateEventW");
    return Add(std::make_shared<Waitable>(Waitable{true, manualReset != FALSE, initialState != FALSE}));
}

BOOL SetEvent(HANDLE event)
{
    Scheduler::Current().Point("SetEvent");
    return Change(event, true);
}

BOOL ResetEvent(HANDLE event)
{
    Scheduler::Current().Point("ResetEvent");
    return Change(event, false);
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    Scheduler& scheduler = Scheduler::Current();
    scheduler.Point("WaitForSingleObject");
    const auto waited = Find(handle);
    if (!waited)
        return WAIT_FAILED;
    const simulated::Micros until =
        milliseconds == INFINITE ? kForever : scheduler.Now() + milliseconds * kMillisecond;
    while (!waited->isSignalled) {
        if (!scheduler.Wait(waited.get(), until) && !waited->isSignalled)
            return WAIT_TIMEOUT;
    }
    if (!waited->staysSignalled)
        waited->isSignalled = false;
    return WAIT_OBJECT_0;
}

BOOL CloseHandle(HANDLE handle)
{
    if (table.erase(handle) > 0 || simulated::CloseFile(handle))
        return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}
