// The CUPS backend "farlink": cupsd runs it once for each job on a queue of ours, and without arguments to
// ask what it prints to.

#include <cups/backend.h>
#include <cups/sidechannel.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <stdexcept>

#include "cups/device_uri.h"
#include "cups/job.h"
#include "cups/requests.h"
#include "cups/scheduler.h"
#include "cups/status_lines.h"
#include "cups/supervision.h"

namespace farlink_cups {

namespace {

constexpr int kLastDescriptorOfCups = CUPS_SC_FD;

// Our own files must not take the places of the back channel and the side channel where cupsd gave none.
void ReserveDescriptors()
{
    int opened = 0;
    while ((opened = open("/dev/null", O_RDWR)) != -1 && opened <= kLastDescriptorOfCups)
        continue;
    close(opened);
}

int Run(int argc, char** argv)
{
    const char* uriText = std::getenv("DEVICE_URI");
    if (uriText == nullptr)
        throw std::runtime_error("DEVICE_URI isn't set; let cupsd run this program");
    const DeviceUri uri = ParseDeviceUri(uriText);
    const Job job = ParseJob(std::span(argv, static_cast<std::size_t>(argc)));
    const Scheduler scheduler;
    return Supervise([&]() -> int {
        Requests requests(scheduler, uri.readBack);
        return RunJob(job, uri, scheduler.Life(), requests);
    });
}

// What is broken here breaks every job of the queue, so the queue is to stop.
int RunOrStop(int argc, char** argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        Error(error.what());
    }
    return CUPS_BACKEND_STOP;
}

}  // namespace

}  // namespace farlink_cups

int main(int argc, char** argv)
{
    if (argc == 1) {
        cupsBackendReport("network", "farlink", "Unknown", "Card print server", nullptr, nullptr);
        return CUPS_BACKEND_OK;
    }
    if (argc != 6 && argc != 7) {
        std::fprintf(stderr, "Usage: %s job-id user title copies options [file]\n", argv[0]);
        return CUPS_BACKEND_FAILED;
    }
    farlink_cups::ReserveDescriptors();
    return farlink_cups::RunOrStop(argc, argv);
}
