// A document's waits at the real time scale, against those that the protocol's rules ask for.

#include <ctime>

#include "bench/pairs.h"
#include "bench/running_monitor.h"
#include "platform/test_switches.h"

namespace {

constexpr double kTick = 1;  // the worker's

template <class AtLastByte>
void PrintOne(const RunningMonitor& monitor, HANDLE port, AtLastByte atLastByte)
{
    std::vector<BYTE> document(65536, 'x');
    monitor.StartDocument(port);
    monitor.Write(port, document);
    atLastByte();
    monitor.EndDocument(port);
}

// A part of a document, against the pauses made in it. They are the rules' own: each comes after a look that
// found nothing, and the peer answers at once.
template <class Part>
void MeasurePauses(Pairs& pairs, double pause, const RunningMonitor& monitor, Part part)
{
    int pauses = 0;
    const auto measured = [&] {
        test_switches::CountCalls("Sleep");
        const double seconds = part(monitor.Open(0));
        pauses = test_switches::CallsCounted("Sleep");
        return seconds;
    };
    pairs.Run(measured, [&] { return pauses * pause; });
    test_switches::Reset();
    pairs.Note("pauses", pauses);
}

void MeasureSetUp(Pairs& pairs)
{
    const RunningMonitor monitor(1);
    // What another document left is the start's own to clean up.
    MeasurePauses(pairs, 0.1, monitor,
                  [&](HANDLE port) { return Timed(1, [&] { monitor.StartDocument(port); }); });
    monitor.EndDocument(monitor.Open(0));
}

void MeasureEnd(Pairs& pairs)
{
    const RunningMonitor monitor(1);
    BenchClock::time_point lastByte;
    double seconds = 0;
    SpoolerDouble::Instance().Before(Spooler::SetJob, [&] { seconds = SecondsSince(lastByte); });
    MeasurePauses(pairs, 1, monitor, [&](HANDLE port) {
        PrintOne(monitor, port, [&] {
            test_switches::CountCalls("Sleep");
            lastByte = BenchClock::now();
        });
        return seconds;
    });
}

// A read is what the peer falls silent at; only the worker's silence test ends it.
void MeasureSilence(Pairs& pairs)
{
    constexpr DWORD kTimeout = 3;
    double earliest = 1e9;
    double latest = 0;
    const auto notice = [&] {
        const RunningMonitor monitor(1, kTimeout);
        const HANDLE port = monitor.Open(0);
        monitor.StartDocument(port);
        BYTE byte = 0;
        DWORD read = 0;
        const double seconds = Timed(1, [&] { (void)monitor.table->pfnReadPort(port, &byte, 1, &read); });
        earliest = std::min(earliest, seconds);
        latest = std::max(latest, seconds);
        return seconds;
    };
    pairs.Run(notice, [] { return kTimeout + 1.5 * kTick; });
    pairs.Note("earliest, s", earliest);
    pairs.Note("latest, s", latest);
}

// Small documents back to back on each of many ports.
void MeasureManyJobs(Pairs& pairs)
{
    constexpr int kPorts = 256;
    constexpr int kDocuments = 3;
    const RunningMonitor monitor(kPorts);
    const auto print = [&](int ports) {
        return AtOnce(ports, [&](int number) {
            const HANDLE port = monitor.Open(number);
            (void)Timed(kDocuments, [&] { PrintOne(monitor, port, [] {}); });
        });
    };
    const auto printOnAll = [&] {
        const std::clock_t before = std::clock();
        const double seconds = print(kPorts);
        const double processor = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
        pairs.Note("documents per hour", kPorts * kDocuments / seconds * 3600);
        pairs.Note("ms of processor time per document", processor * 1000 / kPorts / kDocuments);
        return seconds;
    };
    pairs.Run(printOnAll, [&] { return print(1); });
}

[[maybe_unused]] const bool added =
    AddRow({"set-up of a document", "the rules' pauses of 0.1 s", Row::CostAtMost, 1.05, 9}, MeasureSetUp) &&
    AddRow({"last byte to \"sent\"", "the rules' pauses of 1 s", Row::CostAtMost, 1.05, 9}, MeasureEnd) &&
    AddRow({"silent server noticed", "keepAliveTimeout of 3 s and 1.5 ticks", Row::CostAtMost, 1, 5},
           MeasureSilence) &&
    AddRow({"256 ports, small documents back to back", "one port alone", Row::RateAtLeast, 0, 3},
           MeasureManyJobs);

}  // namespace
