// The table of ports: what one port costs among many, against what it costs among fewer.

#include <malloc.h>

#include "admin/xcv_records.h"
#include "bench/pairs.h"
#include "bench/running_monitor.h"
#include "tests/support/text.h"

namespace {

// Seconds of something done once, of a monitor with so many ports.
using Cost = double (*)(RunningMonitor&, int);

double Start(RunningMonitor& running, int ports)
{
    double seconds = 0;
    const int times = 10000 / ports;
    for (int i = 0; i < times; ++i) {
        running.Stop();
        seconds += Timed(1, [&] { running.Start(); });
    }
    return seconds / times;
}

template <DWORD level>
double Enumeration(RunningMonitor& running, int ports)
{
    DWORD size = 0;
    DWORD returned = 0;
    std::vector<BYTE> buffer;
    const auto enumerate = [&] {
        return running.table->pfnEnumPorts(running.monitor, nullptr, level, buffer.data(), size, &size,
                                           &returned);
    };
    (void)enumerate();
    buffer.resize(size);
    const int times = 100000 / ports;
    return Timed(times, [&] { Require(enumerate() != FALSE, "the ports can't be listed"); }) / times;
}

// Of ports all over the list.
double Opening(RunningMonitor& running, int ports)
{
    constexpr int kOpened = 10;
    const int times = 10000 / ports * kOpened;
    int next = 0;
    const auto open = [&] {
        Require(running.Open(next++ % kOpened * (ports / kOpened)) != nullptr, "no such port");
    };
    return Timed(times, open) / times;
}

void Command(const RunningMonitor& running, LPCWSTR command, std::vector<BYTE> input)
{
    HANDLE session = nullptr;
    DWORD needed = 0;
    (void)running.table->pfnXcvOpenPort(running.monitor, TEXT(""), SERVER_ACCESS_ADMINISTER, &session);
    Require(running.table->pfnXcvDataPort(session, command, input.data(), static_cast<DWORD>(input.size()),
                                          nullptr, 0, &needed) == ERROR_SUCCESS,
            "a command fails");
    (void)running.table->pfnXcvClosePort(session);
}

// The command asks the spooler for the ports of all its monitors: it has this one alone meanwhile.
double Adding(RunningMonitor& running, int)
{
    SpoolerDouble::Instance().AttachMonitor(running.table, running.monitor);
    krelXcvPortData record{};
    WideString(TEXT("Another")).copy(record.portName, 65);
    record.version = kXcvRecordVersion;
    const BYTE* bytes = reinterpret_cast<const BYTE*>(&record);
    constexpr int kTimes = 5;
    double seconds = 0;
    for (int i = 0; i < kTimes; ++i) {
        seconds += Timed(1, [&] { Command(running, TEXT("AddPort"), {bytes, bytes + sizeof record}); });
        Command(running, TEXT("DeletePort"), {bytes, bytes + sizeof record.portName});
    }
    SpoolerDouble::Instance().DetachMonitor(running.monitor);
    return seconds / kTimes;
}

// What one port keeps of the heap while nothing is printed.
double IdleBytes(RunningMonitor& running, int ports)
{
    running.Stop();
    const auto before = mallinfo2().uordblks;
    running.Start();
    running.registry.ForgetCalls();
    return static_cast<double>(mallinfo2().uordblks - before) / ports;
}

bool AddSize(const std::string& what, Cost cost, int ports, int fewer)
{
    const bool walks = cost == Opening || cost == Adding;
    const Row row = {what + " per port, " + std::to_string(ports) + " ports",
                     "the same, " + std::to_string(fewer) + " ports" + (walks ? "; the list is walked" : ""),
                     Row::CostAtMost, 1.3, 11};
    return AddRow(row, [=](Pairs& pairs) {
        RunningMonitor many(ports);
        RunningMonitor few(fewer);
        for (const RunningMonitor* running : {&many, &few})
            SpoolerDouble::Instance().DetachMonitor(running->monitor);
        double last = 0;
        pairs.Run([&] { return last = cost(many, ports) / ports; }, [&] { return cost(few, fewer) / fewer; });
        pairs.Note("ns per port", last * 1e9);
        if (cost == Start)
            pairs.Note("bytes per idle port", IdleBytes(many, ports));
    });
}

bool AddSizes(const std::string& what, Cost cost)
{
    return AddSize(what, cost, 1000, 10) && AddSize(what, cost, 10000, 1000);
}

[[maybe_unused]] const bool added = AddSizes("start-up", Start) &&
                                    AddSizes("enumeration, level 1,", Enumeration<1>) &&
                                    AddSizes("enumeration, level 2,", Enumeration<2>) &&
                                    AddSizes("open by name,", Opening) && AddSizes("AddPort,", Adding);

}  // namespace
