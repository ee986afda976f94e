#include "simulate/port.h"

#include <utility>

#include "simulate/world.h"

using simulated::kMillisecond;
using simulated::kSecond;
using simulated::Micros;
using simulated::Scheduler;

namespace {

constexpr Micros kFinalState = 30 * kSecond;
constexpr Micros kWorkerEnd = 10 * kSecond;
constexpr Micros kSlack = 2 * kSecond;
// A print server that lives and doesn't answer is waited for; ours close their connections after 300 s.
constexpr Micros kAsLongAsTheServerLives = 1500 * kSecond;
constexpr int kAttempts = 6;

void Pause(Micros length)
{
    Scheduler& scheduler = Scheduler::Current();
    scheduler.Self().call = "a pause of the spooler's";
    (void)scheduler.Wait(nullptr, scheduler.Now() + length);
}

}  // namespace

Call::Call(World& its, const char* function, Document* document, Micros bound)
    : world(its),
      underWay{function,
               document,
               Scheduler::Current().Now(),
               nullptr,
               Scheduler::Current().Self().held.size(),
               Scheduler::Current().Self().slots}
{
    Scheduler& scheduler = Scheduler::Current();
    simulated::Thread& self = scheduler.Self();
    underWay.outer = static_cast<CallUnderWay*>(std::exchange(self.work, &underWay));
    outerBound = std::exchange(self.bound, scheduler.Now() + bound + kSlack);
    self.bound -= std::min(self.bound, scheduler.Stalled());
    world.Tell(std::string(function) + (document ? ", job " + std::to_string(document->job) : ""));
}

Call::~Call()
{
    simulated::Thread& self = Scheduler::Current().Self();
    self.work = underWay.outer;
    self.bound = outerBound;
    world.Tell(std::string(underWay.function) + " is over: " + std::to_string(result));
    world.checks.CallEnded(underWay);
}

Port::Port(World& its, unsigned number, Plan& plan)
    : name(TEXT("Port ") + WideString(1, static_cast<WCHAR>(TEXT('A') + number))),
      server(its, 10 + number, 9100, Manners::Draw(plan)),
      world(its)
{
}

bool Port::MustSucceed(const Document& document) const
{
    return !world.plan.mayFail && !world.isDisturbed && document.isOpen;
}

bool Port::Start(Document& document)
{
    Scheduler& scheduler = Scheduler::Current();
    document.begun = scheduler.Now();
    document.isSecondRun = document.job == lastRestarted;
    if (Document* const before = std::exchange(latest, &document)) {
        before->isOpen = false;
        before->isOvertaken = !before->isEnded;
    }
    DOC_INFO_2W info{};
    info.dwMode = document.inChannelMode ? DI_CHANNEL : 0;
    WideString printer = TEXT("Card");
    Call call(world, "gStartDocPort", &document, kAsLongAsTheServerLives);
    const bool started = call.Gives(world.monitor.Table().pfnStartDocPort(
        handle, printer.data(), document.job, 2, reinterpret_cast<LPBYTE>(&info)));
    document.isOpen = !document.isOvertaken;
    if (!started && MustSucceed(document))
        scheduler.Fail("a good job is not started");
    document.isOpen &= started;
    return started;
}

std::optional<DWORD> Port::Write(Document& document, std::size_t from, std::size_t count)
{
    std::string bytes = Document::Bytes(document.job, from, count);
    DWORD taken = 0;
    Call call(world, "gWritePort", &document, kAsLongAsTheServerLives);
    if (call.Gives(world.monitor.Table().pfnWritePort(handle, reinterpret_cast<LPBYTE>(bytes.data()),
                                                      static_cast<DWORD>(count), &taken)))
        return taken;
    if (MustSucceed(document))
        Scheduler::Current().Fail("a good document's write fails");
    return std::nullopt;
}

bool Port::Read(Document& document)
{
    BYTE buffer[16];
    DWORD count = 0;
    Call call(world, "gReadPort", &document, kAsLongAsTheServerLives);
    const bool wasRead = call.Gives(world.monitor.Table().pfnReadPort(handle, buffer, sizeof buffer, &count));
    if (!wasRead && MustSucceed(document))
        Scheduler::Current().Fail("a good document's read fails");
    return wasRead;
}

bool Port::Query(Document& document)
{
    WCHAR input[] = TEXT("what");
    WCHAR output[16] = {};
    DWORD count = 0;
    Call call(world, "gGetPrinterDataFromPort", &document, kAsLongAsTheServerLives);
    const bool answered = call.Gives(world.monitor.Table().pfnGetPrinterDataFromPort(
        handle, 77, nullptr, input, sizeof input, output, sizeof output, &count));
    if (!answered && MustSucceed(document))
        Scheduler::Current().Fail("a query of a good document fails");
    if (answered && count != 0 && !world.plan.mayFail && WideStringView(output) != input)
        Scheduler::Current().Fail("a query has another's answer");
    return answered;
}

void Port::End(Document& document)
{
    {
        document.isOpen = false;
        Call call(world, "gEndDocPort", &document, kFinalState + kWorkerEnd);
        (void)call.Gives(world.monitor.Table().pfnEndDocPort(handle));
    }
    document.isEnded = true;
    world.checks.DocumentEnded(document);
}

bool Port::PrintOnce(Document& document)
{
    const bool started = Start(document) && !document.isOvertaken;
    if (started)
        WriteAndEnd(document);
    else
        document.isEnded = true;
    if (document.wasRestarted)  // also by a call that came late for the document before
        lastRestarted = document.job;
    return started;
}

void Port::WriteAndEnd(Document& document)
{
    std::size_t written = 0;
    for (int tries = 0; written < document.size && tries < 400 && !world.spooler.IsGoing(document.job);
         ++tries) {
        const auto taken = Write(document, written, std::min<std::size_t>(document.size - written, 700));
        if (!taken)
            break;
        written += *taken;
        if (*taken == 0)
            Pause(500 * kMillisecond);
    }
    End(document);
}

void Port::Print(DWORD job, std::size_t size)
{
    for (int attempt = 0; attempt < kAttempts && !world.spooler.IsGoing(job); ++attempt) {
        Document& document = world.NewDocument(job, size);
        if (PrintOnce(document) && (document.wasSent || document.wasDeleted))
            return;
        Pause(kSecond);
    }
}
