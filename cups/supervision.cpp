#include "cups/supervision.h"

#include <cups/backend.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>

#include "cups/status_lines.h"

namespace farlink_cups {

const int kAbandoned = SIGUSR1;

namespace {

constexpr timespec kPauseAfterKill{2, 0};

// The signal may have come too late for a parent that was gone already.
void HearOfEnd(pid_t parent, int signal)
{
    prctl(PR_SET_PDEATHSIG, signal);
    if (getppid() != parent)
        kill(getpid(), signal);  // to the process: whichever thread hears it
}

// A fault of our own may come again each time: what follows it is the queue's policy.
int StatusOf(int ending, const sigset_t& signals)
{
    if (WIFEXITED(ending))
        return WEXITSTATUS(ending);
    Info("the printing was cut off by signal " + std::to_string(WTERMSIG(ending)));
    if (WTERMSIG(ending) != SIGKILL)
        return CUPS_BACKEND_FAILED;
    (void)sigtimedwait(&signals, nullptr, &kPauseAfterKill);
    return CUPS_BACKEND_RETRY_CURRENT;
}

// Once cupsd itself has asked for the end it has settled what becomes of the job. Only of a job with several
// documents it would cancel all for a status but 0.
int Await(pid_t worker, pid_t scheduler, const sigset_t& signals)
{
    bool wasStopped = false;
    for (;;) {
        siginfo_t signal{};
        int ending = 0;
        const int number = sigwaitinfo(&signals, &signal);
        if (number == -1)
            continue;  // a stop and a continuation interrupt the wait
        if (number == SIGCHLD) {
            if (waitpid(worker, &ending, WNOHANG) == worker)
                return wasStopped ? CUPS_BACKEND_OK : StatusOf(ending, signals);
            continue;
        }
        wasStopped = wasStopped || (signal.si_code == SI_USER && signal.si_pid == scheduler);
        kill(worker, SIGTERM);
    }
}

}  // namespace

int Supervise(const std::function<int()>& work)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, kAbandoned})
        sigaddset(&signals, number);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    const pid_t scheduler = getppid();
    const pid_t supervisor = getpid();
    const pid_t worker = fork();
    if (worker == -1)
        throw std::system_error(errno, std::generic_category(), "a process can't be made");
    if (worker == 0) {
        HearOfEnd(supervisor, kAbandoned);
        return work();
    }
    HearOfEnd(scheduler, SIGTERM);
    return Await(worker, scheduler, signals);
}

}  // namespace farlink_cups
