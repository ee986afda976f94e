#include "simulate/world.h"

#include <cstdio>

#include "monitor/library_entry.h"
#include "platform/simulated/clock.h"
#include "platform/simulated/files.h"
#include "platform/simulated/handles.h"

using simulated::kForever;
using simulated::kMillisecond;
using simulated::kSecond;
using simulated::Micros;
using simulated::Scheduler;

World* World::current = nullptr;

World::World(Plan& drawn, std::uint64_t itsSeed, std::string* itsStory)
    : plan(drawn), spooler(*this, drawn), seed(itsSeed), story(itsStory)
{
    current = this;
    documents.emplace_back();  // number 0: no document
    simulated::ForgetHandles();
    simulated::ForgetSockets();
    constexpr DWORD kTicks[] = {1'000'000, 0, 0xFFFFFFFF - 5000, 0x7FFFFFFF - 5000};
    simulated::SetFirstTick(plan.Among(kTicks));
    const bool everything = plan.Sometimes(16);
    registry.Set(TEXT("Ports"), TEXT("EventTypesToLog"), everything ? 0x3F : 0x1C);
    registry.Set(TEXT("Ports"), TEXT("LogToDebugOutput"), 1);
    registry.Set(TEXT("Ports"), TEXT("LogToFile"), plan.Sometimes(16) ? 1 : 0);
    network.onLateBytes = [this](simulated::Endpoint& connection) {
        if (connection.document != 0)
            Find(connection.document)->isTalkedOver = true;
    };
    network.onUse = [this](simulated::Endpoint& connection, simulated::Network::Use use) {
        checks.ConnectionUsed(connection, use);
    };
    simulated::SetDebugOutput([this](LPCSTR line) { TellLogLine(line); });
}

World::~World()
{
    simulated::SetDebugOutput([](LPCSTR) {});
    current = nullptr;
}

void World::Play(void (*scene)(World&))
{
    monitor.Begin();
    scene(*this);
    AwaitAll();
    Pause(20 * kSecond);  // for workers that were stuck in a call of the spooler's
    if (!leavesDocuments)
        checks.IsIdle();
    monitor.End();
    (void)DllEntryPoint(nullptr, DLL_PROCESS_DETACH, nullptr);
    checks.IsGone();
    for (Port& port : ports)
        port.server.Stop();
}

void World::DrawNetwork(simulated::Route& route)
{
    constexpr Micros kLatencies[] = {200, 10, 5 * kMillisecond, 150 * kMillisecond};
    constexpr std::size_t kBuffers[] = {256 * 1024, 512, 4096};
    route.latency = plan.Among(kLatencies);
    route.jitter = plan.Sometimes(4) ? 100 * kMillisecond : 0;
    route.sendBuffer = plan.Among(kBuffers);
    route.receiveBuffer = 256 * 1024;
    route.resetDropsUnread = plan.Sometimes(2);
}

// Once in a while the way to a print server breaks, for a time or for good, or its machine does.
void World::StartTrouble(Port& port)
{
    if (!plan.Sometimes(4))
        return;
    plan.mayFail = true;
    constexpr Micros kMoments[] = {0, 10 * kMillisecond, kSecond, 3 * kSecond, 12 * kSecond};
    constexpr Micros kLengths[] = {kSecond, 15 * kSecond, 60 * kSecond};
    const Micros moment = plan.Among(kMoments) + plan.Choose(1000) * kMillisecond;
    const Micros end = moment + plan.Among(kLengths);
    const unsigned kind = plan.Choose(7);
    Scheduler& scheduler = Scheduler::Current();
    simulated::Route& route = port.server.Machine().route;
    scheduler.At(moment, [&port, &route, kind, end] {
        if (kind == 0 || kind == 2)
            route.cutToServer = end;
        if (kind == 1 || kind == 2)
            route.cutToClient = end;
        route.refuses |= kind == 3;
        route.hangs |= kind == 4;
        if (kind == 5)
            port.server.Restart();
        if (kind == 6)
            route.cutToClient = kForever;
    });
    scheduler.At(end, [&route] { route.refuses = route.hangs = false; });
}

Port& World::AddPort()
{
    const auto number = static_cast<unsigned>(ports.size());
    Port& port = ports.emplace_back(*this, number, plan);
    DrawNetwork(port.server.Machine().route);
    const WideString server = TEXT("printer-") + WideString(1, static_cast<WCHAR>(TEXT('a') + number));
    simulated::Name& name = network.names[std::string(server.begin(), server.end())];
    name.address = 10 + number;
    name.delay = plan.Sometimes(6) ? kSecond : 0;
    if (plan.Sometimes(24)) {
        plan.mayFail = true;
        name.error = plan.Sometimes(2) ? WSATRY_AGAIN : 0;
        name.delay = 30 * kSecond;
    }
    StartTrouble(port);
    if (monitor.AddPort(port.name, server, 9100) != ERROR_SUCCESS)
        Scheduler::Current().Fail("a port is not added");
    constexpr WORD kPeriods[] = {5, 1, 10};
    constexpr WORD kTimeouts[] = {20, 60};
    const WORD period = plan.Among(kPeriods);
    if (monitor.SetKeepAlive(port.name, period, plan.Among(kTimeouts)) != ERROR_SUCCESS)
        Scheduler::Current().Fail("a port's settings are not taken");
    port.handle = monitor.OpenPort(port.name);
    return port;
}

void World::DeletePort(Port& port)
{
    if (monitor.DeletePort(port.name) != ERROR_SUCCESS || registry.HasPort(port.name))
        Scheduler::Current().Fail("a port is not deleted");
}

Document& World::NewDocument(DWORD job, std::size_t size, bool inChannelMode)
{
    Document& document = documents.emplace_back();
    document.number = documents.size() - 1;
    document.job = job;
    document.size = size;
    document.inChannelMode = inChannelMode;
    return document;
}

void World::Act(const std::string& name, std::function<void()> body)
{
    ++acting;
    Scheduler::Current().Start(name, simulated::Thread::Kind::Inside, [this, body = std::move(body)] {
        body();
        if (--acting == 0)
            Scheduler::Current().Wake(&acting);
    });
}

void World::Pause(Micros length)
{
    Scheduler& scheduler = Scheduler::Current();
    scheduler.Self().call = "a pause";
    (void)scheduler.Wait(nullptr, scheduler.Now() + length);
}

void World::AwaitAll()
{
    Scheduler::Current().Self().call = "the wait for all others";
    while (acting > 0)
        (void)Scheduler::Current().Wait(&acting, kForever);
}

void World::Tell(const std::string& text)
{
    if (story == nullptr)
        return;
    const Scheduler& scheduler = Scheduler::Current();
    const simulated::Thread& self = Scheduler::Current().Self();
    char front[80];
    (void)std::snprintf(front, sizeof front, "%10.6f  %2u %-12.12s ",
                        static_cast<double>(scheduler.Now()) / 1e6, self.number, self.name.c_str());
    *story += front + text + "\n";
}

void World::TellLogLine(const char* line)
{
    for (const char* at = line; *at != 0; ++at)
        digest = (digest ^ static_cast<unsigned char>(*at)) * 0x100000001B3;
    if (story != nullptr)
        Tell("| " + std::string(line).substr(0, std::string_view(line).find('\r')));
}
