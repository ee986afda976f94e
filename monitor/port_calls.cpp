// Who is inside a port, and how a port that is deleted under them ends.

#include "diagnostics/function_trace.h"
#include "link/command_channel.h"
#include "link/data_channel.h"
#include "monitor/ini_port.h"

namespace {

constexpr DWORD kLookPauseMs = 50;
constexpr int kLooksPerWake = 20;

}  // namespace

krelPortCall::krelPortCall(krelIniPort* entered)
    : port(entered), settings(entered ? entered->EnterCall() : krelPortSettings{})
{
}

krelPortCall::~krelPortCall()
{
    if (port)
        port->LeaveCall();
}

krelPortWorker::krelPortWorker(krelIniPort* watched) : port(watched)
{
    if (port)
        port->CountWorker(1);
}

krelPortWorker::~krelPortWorker()
{
    if (port)
        port->CountWorker(-1);
}

void krelIniPort::CountWorker(int change)
{
    CLockScope state(stateSection);
    workersInside += change;
}

// Gives the settings, which each call needs at once: one look for both.
krelPortSettings krelIniPort::EnterCall()
{
    CLockScope state(stateSection);
    ++callsInside;
    return settings;
}

void krelIniPort::LeaveCall()
{
    bool last;
    {
        CLockScope state(stateSection);
        last = deleted && !destroyed && callsInside == 1;
        if (last)
            destroyed = true;
        else
            --callsInside;
    }
    if (!last)
        return;
    Destroy();
    CLockScope state(stateSection);
    --callsInside;
}

void krelIniPort::WakeForDeletion()
{
    {
        CLockScope state(stateSection);
        deleted = true;
    }
    DisconnectChannels();
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

// Wakes whatever call is blocked on the port's connections. They can't be used or made anew afterwards.
void krelIniPort::DisconnectChannels()
{
    const std::shared_ptr<CCommandChannel> command = CommandChannel();
    const std::shared_ptr<CDataChannel> data = DataChannel();
    if (data)
        data->Abandon();
    if (command)
        command->Abandon();
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
            DisconnectChannels();
        Sleep(kLookPauseMs);
    }
    return true;
}

bool krelIniPort::IsDeleted() const
{
    CLockScope state(stateSection);
    return deleted;
}

bool krelIniPort::IsInUse()
{
    CLockScope state(stateSection);
    return callsInside != 0 || workersInside != 0;
}
