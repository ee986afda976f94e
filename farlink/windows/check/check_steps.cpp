#include "farlink/windows/check/check_steps.h"

#include <algorithm>

#include "farlink/failure.h"
#include "farlink/windows/check/spooler_service.h"
#include "farlink/windows/system_library.h"
#include "version/build.h"

namespace farlink {

namespace {

using printserver::Course;
using printserver::EventKind;
using printserver::Fault;
using printserver::Milliseconds;
using printserver::Server;
using printserver::Step;

constexpr const char* kWineReason = "Wine's spooler can't";

void Require(bool holds, const std::string& what)
{
    if (!holds)
        throw Failure(what);
}

int WholeDocuments(const Server& server)
{
    return server.Count(EventKind::DocumentComplete);
}

// The newest document at the server is the one that was printed.
void AwaitDocument(const Server& server, int before, const printserver::Bytes& printed)
{
    Await("the document didn't arrive", [&] { return WholeDocuments(server) > before; });
    const auto documents = server.Documents();
    const auto newest = std::find_if(documents.rbegin(), documents.rend(),
                                     [](const printserver::Document& each) { return each.whole; });
    Require(newest != documents.rend() && newest->bytes == printed, "other bytes arrived than were printed");
}

void PrintWhole(CheckBench& bench, Server& server)
{
    const int before = WholeDocuments(server);
    bench.printer.Spool(bench.document);
    AwaitDocument(server, before, bench.document);
    bench.printer.AwaitEmptyQueue();
}

void PrintWhole(CheckBench& bench)
{
    PrintWhole(bench, bench.server);
}

void WaitInQueue(CheckBench& bench)
{
    bench.server.SetCourse({.queue = 2, .perPosition = Milliseconds(1500)});
    PrintWhole(bench);
    bench.server.SetCourse({});
}

// Where a message may come in pieces.
void HearSingleBytes(CheckBench& bench)
{
    for (const Step step : {Step::VersionReply, Step::BindReply, Step::Notification})
        bench.server.FaultAt(step, Fault::SingleBytes());
    PrintWhole(bench);
    bench.server.ClearFaults();
}

// The monitor asks the spooler to restart the job; Wine's doesn't, so there it is printed once more.
void BreakLink(CheckBench& bench)
{
    const int before = WholeDocuments(bench.server);
    bench.server.FaultAt(Step::DataMiddle, Fault::Reset().AfterBytes(bench.document.size() / 2), 1);
    bench.printer.Spool(bench.document);
    if (IsWine())
        bench.printer.Spool(bench.document);
    AwaitDocument(bench.server, before, bench.document);
    bench.printer.AwaitEmptyQueue();
    Require(bench.server.Count(EventKind::DocumentBroken) > 0, "the link didn't break");
}

void BeCancelledByServer(CheckBench& bench)
{
    bench.server.SetCourse({.printing = Milliseconds(1000), .end = printserver::kCancelled});
    bench.printer.Spool(bench.document);
    bench.printer.AwaitEmptyQueue();
    bench.server.SetCourse({});
}

void CancelWaiting(CheckBench& bench)
{
    const int before = bench.server.Count(EventKind::QueuePosition);
    bench.server.SetCourse({.queue = 100, .perPosition = Milliseconds(60000)});
    const DWORD job = bench.printer.Spool(bench.document);
    Await("the job didn't reach the print server's queue",
          [&] { return bench.server.Count(EventKind::QueuePosition) > before; });
    bench.printer.Cancel(job);
    bench.printer.AwaitEmptyQueue();
    bench.server.SetCourse({});
}

void ChangePort(CheckBench& bench)
{
    Server other;
    bench.printer.PointTo(other.Port());
    SetKeepAlive(bench.printer.Port().name, {3, 60});
    PrintWhole(bench, other);
    bench.printer.PointTo(bench.server.Port());
    PrintWhole(bench);
}

void RequireSettings(const CheckPrinter& printer)
{
    const PortSettings port = GetPort(printer.Port().name);
    const KeepAlive times = GetKeepAlive(printer.Port().name);
    Require(port.server == printer.Port().server && port.number == printer.Port().number &&
                times.period == 3 && times.timeout == 60,
            "the port came back with other settings");
}

bool IsListed(const WideString& port)
{
    return std::ranges::any_of(ListPorts(), [&](const WideString& listed) { return SameName(listed, port); });
}

}  // namespace

void RunCheckSteps(CheckBench& bench, CheckReport& report, bool restartsSpooler)
{
    report.Step("the library is of this package's build", [] {
        const std::string build = BuildOfSystemLibrary().value_or("unknown");
        Require(build == FarlinkBuild(), "it is of build " + build + ", this is " + FarlinkBuild());
    });
    const bool ready = report.Step("a port is added, and listed", [&] {
        bench.printer.MakePort();
        Require(IsListed(bench.printer.Port().name), "it isn't listed");
    }) && report.Step("a printer is added on it", [&] { bench.printer.MakePrinter(); });
    struct Case {
        const char* name;
        void (*run)(CheckBench&);
        bool underWine;
    };
    constexpr Case kCases[] = {
        {"a document arrives, byte for byte", [](CheckBench& on) { PrintWhole(on); }, true},
        {"a document waits in the print server's queue", WaitInQueue, false},
        {"replies and notifications that come in single bytes are understood", HearSingleBytes, true},
        {"a document whose link breaks is printed again", BreakLink, true},
        {"a document that the print server cancels leaves the queue", BeCancelledByServer, true},
        {"a document that waits is cancelled", CancelWaiting, false},
        {"a port that is changed leads elsewhere", ChangePort, true},
    };
    for (const Case& each : kCases) {
        if (!ready)
            report.Skip(each.name, "there is no printer");
        else if (IsWine() && !each.underWine)
            report.Skip(each.name, kWineReason);
        else
            report.Step(each.name, [&] { each.run(bench); });
    }
    if (!ready || !restartsSpooler)
        report.Skip("the port is there after a restart of the spooler",
                    ready ? "--restart-spooler wasn't given" : "there is no port");
    else
        report.Step("the port is there after a restart of the spooler", [&] {
            RestartSpooler();
            RequireSettings(bench.printer);
        });
    report.Step("printer and port are deleted", [&] {
        bench.printer.Remove();
        Require(!IsListed(bench.printer.Port().name), "the port is still listed");
    });
}

}  // namespace farlink
