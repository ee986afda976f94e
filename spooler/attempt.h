#pragma once

#include <functional>
#include <span>
#include <stop_token>
#include <vector>

#include "spooler/job.h"
#include "spooler/monitor_lines.h"
#include "spooler/printing.h"
#include "spooler/private_port.h"
#include "spooler/shared_listener.h"
#include "spooler/wake_event.h"

namespace spooler {

// Hears the monitors of this process for the length of the scope.
class Hearing {
public:
    explicit Hearing(std::function<void(LPCSTR)> listener);
    ~Hearing();
    Hearing(const Hearing&) = delete;
    Hearing& operator=(const Hearing&) = delete;
};

// Puts the document through the port once, as a print spooler does: OpenPort, StartDocPort, WritePort until
// all is taken, EndDocPort, ClosePort. For one Run, on one thread, which calls into the monitor; the stop may
// come on any.
class Attempt {
public:
    // Throws SpoolerError when the attempt can't even begin: no such port, no such monitor.
    Attempt(const Order& wanted, const Document& printed, Job& printedJob, SharedListener& told,
            std::stop_token token);

    struct Ending {
        Outcome outcome;
        Reason reason;
    };
    Ending Run();
    std::uint64_t Written() const { return written; }
    // How long there was a link, if there was one.
    DWORD LinkedMs() const { return linkedMs; }

private:
    // How the handing over went.
    enum class Step { Taken, Cancelled, Lost };

    void Hear(LPCSTR line);
    Step WriteAll();
    Step WriteUpTo(std::uint64_t end);
    Step Hand(std::span<BYTE> bytes);
    Step PauseInQueue();
    bool LinkIsDead();
    Step ReadBack();
    Ending Finish(Step step);
    Ending Failed(std::string why);
    bool IsCancelledAtServer() const { return job.IsDeleted() || lines.TellCancellation(); }
    bool IsAllOut() const { return written == document.Size(); }

    const Order& order;
    const Document& document;
    Job& job;
    SharedListener& listener;
    const std::stop_token stop;

    const PortSettings settings;
    std::vector<BYTE> buffer;
    std::uint64_t written = 0;
    DWORD linkedMs = 0;
    DWORD lastError = ERROR_SUCCESS;  // of the call of the port that failed
    DWORD lastLook = 0;               // tick of the last look at the link
    DWORD lastRead = 0;               // tick of the last reading back
    bool doubt = false;               // the last look found no link

    // In this order, so that the stop finds the port, and the port's end is heard.
    WakeEvent wake;
    MonitorLines lines;
    Hearing hearing;
    PrivatePort port;
    std::stop_callback<std::function<void()>> onStop;
};

}  // namespace spooler
