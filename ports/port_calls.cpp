// Who is inside a port, and how a port that is deleted under them ends.

#include "diagnostics/function_trace.h"
#include "ports/ini_port.h"

namespace {

constexpr DWORD kLookPauseMs = 50;
constexpr int kLooksPerWake = 20;

}  // namespace

krelPortCall::krelPortCall(krelIniPort* entered) : port(entered)
{
    if (port)
        port->EnterCall(*this);
}

krelPortCall::~krelPortCall()
{
    document.reset();  // it refers to the port
    if (port)
        port->CallEnds();
}

// One look for all that a call needs.
void krelIniPort::EnterCall(krelPortCall& call)
{
    CLockScope held(lock);
    ++callsInside;
    call.settings = settings;
    call.document = document;
}

void krelIniPort::CallBegins()
{
    CLockScope held(lock);
    ++callsInside;
}

void krelIniPort::CallEnds()
{
    bool last;
    {
        CLockScope held(lock);
        last = deleted && !destroyed && callsInside == 1;
        if (last)
            destroyed = true;
        else
            --callsInside;
    }
    if (!last)
        return;
    Destroy();
    CLockScope held(lock);
    --callsInside;
}

void krelIniPort::WorkerBegins()
{
    CLockScope held(lock);
    ++workersInside;
}

void krelIniPort::WorkerEnds()
{
    CLockScope held(lock);
    --workersInside;
}

// No other document follows: the one that is abandoned here is the last.
void krelIniPort::WakeForDeletion()
{
    {
        CLockScope held(lock);
        deleted = true;
    }
    Document()->Abandon();
}

// The deletion counts as a call itself, and may be the last one out.
void krelIniPort::Delete()
{
    const krelPortCall inside(this);
    WakeForDeletion();
}

void krelIniPort::Destroy()
{
    CFunctionTrace trace("krelIniPort::~krelIniPort");
    Cleanup();
}

bool krelIniPort::AwaitLastCall(DWORD deadline)
{
    for (int look = 0; IsInUse(); ++look) {
        if (static_cast<LONG>(deadline - GetTickCount()) <= 0) {
            // Whoever is inside will come back into this code, after the spooler has let go of it.
            static const char inThisLibrary = 0;
            PinModule(&inThisLibrary);
            return false;
        }
        if (look % kLooksPerWake == 0)
            Document()->Abandon();
        Sleep(kLookPauseMs);
    }
    return true;
}

bool krelIniPort::IsDeleted() const
{
    CLockScope held(lock);
    return deleted;
}

bool krelIniPort::IsInUse() const
{
    CLockScope held(lock);
    return callsInside != 0 || workersInside != 0;
}
