#include "cups/requests.h"

#include <cups/sidechannel.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <system_error>

#include "cups/supervision.h"

namespace farlink_cups {

namespace {

int RequireDescriptor(int opened)
{
    if (opened == -1)
        throw std::system_error(errno, std::generic_category(), "signals can't be received");
    return opened;
}

}  // namespace

Requests::Requests(const Scheduler& cupsd, bool readsBack) : scheduler(cupsd), bidirectional(readsBack)
{
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t ends;
    sigemptyset(&ends);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, kAbandoned})
        sigaddset(&ends, number);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    signals = RequireDescriptor(signalfd(-1, &ends, SFD_CLOEXEC));
    ending = RequireDescriptor(eventfd(0, EFD_CLOEXEC));
    server = std::thread([this] { Serve(); });
}

Requests::~Requests()
{
    const std::uint64_t one = 1;
    (void)!write(ending, &one, sizeof one);
    server.join();
    close(signals);
    close(ending);
}

void Requests::Serve()
{
    pollfd sources[] = {{ending, POLLIN, 0}, {signals, POLLIN, 0}, {CUPS_SC_FD, POLLIN, 0}};
    while (sources[0].revents == 0) {
        if (poll(sources, std::size(sources), -1) < 0)
            continue;
        if (sources[1].revents != 0)
            TakeSignal();
        if (sources[2].revents != 0 && !AnswerSideChannel())
            sources[2].fd = -1;
    }
}

// cupsd knows nothing of us once the process above is gone, and counts the job as printed: so it is printed.
// When cupsd itself is gone, its next life runs the job again.
void Requests::TakeSignal()
{
    signalfd_siginfo signal{};
    (void)!read(signals, &signal, sizeof signal);
    if (static_cast<int>(signal.ssi_signo) != kAbandoned || !scheduler.IsAlive())
        stop.request_stop();
}

// A driver that resets the printer before its document must not lose it.
void Requests::DropOutput()
{
    if (!connected)
        return;
    driverCancelled = true;
    stop.request_stop();
}

// False when the side channel is at its end. What the printer itself would have to be asked is not known
// here.
bool Requests::AnswerSideChannel()
{
    cups_sc_command_t command;
    cups_sc_status_t status;
    char data[1024];
    int size = sizeof data;
    if (cupsSideChannelRead(&command, &status, data, &size, 0) != 0)
        return false;
    status = CUPS_SC_STATUS_OK;
    size = 1;
    switch (command) {
        case CUPS_SC_CMD_GET_STATE:
            data[0] = connected ? CUPS_SC_STATE_ONLINE | CUPS_SC_STATE_BUSY : CUPS_SC_STATE_OFFLINE;
            break;
        case CUPS_SC_CMD_GET_CONNECTED:
            data[0] = connected ? CUPS_SC_CONNECTED : CUPS_SC_NOT_CONNECTED;
            break;
        case CUPS_SC_CMD_GET_BIDI:
            data[0] = bidirectional ? CUPS_SC_BIDI_SUPPORTED : CUPS_SC_BIDI_NOT_SUPPORTED;
            break;
        case CUPS_SC_CMD_SOFT_RESET:
            size = 0;
            DropOutput();
            break;
        default:
            size = 0;
            status = CUPS_SC_STATUS_NOT_IMPLEMENTED;
    }
    return cupsSideChannelWrite(command, status, data, size, 1) == 0;
}

}  // namespace farlink_cups
