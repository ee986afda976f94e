// Many ports of one monitor at work at once. While 32 print, other threads change, delete and add them, and
// the spooler comes back into the monitor from its calls or is slow in them: all at moments drawn from a
// seed, which is printed and may be given in FARLINK_SEED. And one port under six threads, for
// FARLINK_STORM_SECONDS.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <random>
#include <set>

#include "tests/support/printing_fixture.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary
using namespace std::chrono_literals;

namespace {

constexpr std::size_t kPorts = 32;
constexpr std::size_t kStalledPorts = 50;
constexpr int kDocuments = 4;  // of each port
constexpr int kMeddlers = 4;
constexpr double kScale = 0.2;
constexpr WORD kPatient = 20000;  // seconds: the silence test ends no call by mistake

// 0 where the system doesn't tell.
std::size_t ThreadsOfThisProcess()
{
    std::error_code unknown;
    const std::filesystem::directory_iterator tasks("/proc/self/task", unknown);
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

struct Station {
    WideString name;
    std::mutex changing;  // held by who deletes it or changes its settings
    std::atomic<HANDLE> port{nullptr};
    std::atomic<int> life{1};  // moves on with each deletion and addition; odd while there is no port
};

class ManyPorts : public RunningMonitor {
protected:
    using Works = std::vector<std::function<void()>>;

    void SetUp() override
    {
        MonitorFixture::SetUp();
        std::thread([] {}).join();  // with its first thread, a sanitizer starts one of its own
        threads = ThreadsOfThisProcess();
        registry.SetDword("Ports", "LogToDebugOutput", 0);
        Start();
        test_switches::SetTimeScale(kScale);
    }
    void TearDown() override
    {
        Shutdown();
        for (auto& server : servers)
            server.reset();
        for (int look = 0; look < 1000 && ThreadsOfThisProcess() > threads; ++look)
            std::this_thread::sleep_for(10ms);
        EXPECT_LE(ThreadsOfThisProcess(), threads);
        MonitorFixture::TearDown();
    }

    // Runs each on a thread of its own. One that doesn't end for minutes is in a deadlock, and can neither be
    // waited for nor outlived.
    static void RunAll(const Works& works, std::chrono::seconds expected = 0s)
    {
        std::vector<std::future<void>> running;
        for (const auto& work : works)
            running.push_back(std::async(std::launch::async, work));
        const auto limit = std::chrono::steady_clock::now() + expected + 4min;
        for (const auto& one : running)
            if (one.wait_until(limit) != std::future_status::ready)
                std::abort();
    }

    HANDLE Open(WideString name) const
    {
        HANDLE port = nullptr;
        return table->pfnOpenPort(monitor, name.data(), &port) ? port : nullptr;
    }
    std::set<WideString> Names(DWORD level) const
    {
        std::vector<LPWSTR> words(4000);  // enough for all records, of which each begins with the name
        DWORD needed = 0;
        DWORD returned = 0;
        EXPECT_TRUE(table->pfnEnumPorts(monitor, nullptr, level, reinterpret_cast<LPBYTE>(words.data()),
                                        static_cast<DWORD>(words.size() * sizeof words[0]), &needed,
                                        &returned));
        const std::size_t recordSize = level == 1 ? sizeof(PORT_INFO_1W) : sizeof(PORT_INFO_2W);
        std::set<WideString> names;
        for (DWORD i = 0; i < returned; ++i)
            names.insert(words[i * recordSize / sizeof words[0]]);
        EXPECT_EQ(returned, names.size()) << "a port is listed twice";
        return names;
    }
    template <class Record>
    Record Ask(const WideString& name, LPCWSTR command)
    {
        return OpenXcv(name).Call(command, BytesOf(DWORD{1}), sizeof(Record)).template As<Record>();
    }

    void Add(Station& station, WORD number)
    {
        EXPECT_EQ(0u, AddPort(station.name, TEXT("127.0.0.1"), number));
        EXPECT_TRUE(Names(1).contains(station.name) && Names(2).contains(station.name));
        EXPECT_EQ(0u, SetKeepAlive(station.name, 5, kPatient));
        const HANDLE opened = Open(station.name);
        EXPECT_TRUE(opened != nullptr && station.port.exchange(opened) != opened);
        ++station.life;
    }
    bool StartDocument(HANDLE port, DWORD job, DWORD level = 1) const
    {
        WideString name = TEXT("Card");
        DOC_INFO_2W info{name.data(), nullptr, name.data(), DI_CHANNEL, job};  // level 1 is its beginning
        return table->pfnStartDocPort(port, name.data(), job, level, reinterpret_cast<LPBYTE>(&info));
    }
    bool Write(HANDLE port, Bytes bytes) const
    {
        DWORD written = 0;
        return table->pfnWritePort(port, bytes.data(), static_cast<DWORD>(bytes.size()), &written);
    }
    // A write of more than a connection takes when nobody reads, or a read of what never comes.
    bool Stall(HANDLE port, bool writes) const
    {
        BYTE byte = 0;
        DWORD read = 0;
        return writes ? Write(port, Bytes(std::size_t{16} << 20)) : table->pfnReadPort(port, &byte, 1, &read);
    }

    std::size_t threads = 0;
    std::array<std::optional<PrintServer>, 4> servers;
};

class RandomOverlap : public ManyPorts {
protected:
    void SetUp() override
    {
        ManyPorts::SetUp();
        if (const char* const given = std::getenv("FARLINK_SEED"))
            seed = static_cast<unsigned>(std::strtoul(given, nullptr, 10));
        std::printf("seed %u\n", seed);
        PrintServerOptions options;
        options.keepHistory = false;
        options.keepAliveEvery = Milliseconds(100);
        options.observer = [this](const Event& event) {
            blocked += event.kind == EventKind::FaultPlayed || event.kind == EventKind::DocumentComplete;
        };
        for (auto& server : servers) {
            server.emplace(options);
            options.course.cancelAfterBytes = 5000;  // of the others: the worker calls the spooler, too
        }
        for (std::size_t i = 0; i < kPorts; ++i) {
            stations[i].name = TEXT("Card ") + WideString(1, static_cast<WCHAR>('A' + i));
            Add(stations[i], servers[i % 4]->Port());
        }
        for (const Spooler call :
             {Spooler::SetJob, Spooler::GetJob, Spooler::OpenPrinter, Spooler::EnumPorts})
            spooler.Before(call, [this] { ComeBack(); });
        for (const Registry call : {Registry::CreateKey, Registry::SetValue, Registry::DeleteKey})
            registry.Before(call, [this] { ComeBack(); });
    }

    // From inside a call of the monitor's.
    void ComeBack()
    {
        thread_local std::mt19937 random(seed + ++randoms);
        if (random() % 4 == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 4));
        if (!ending)
            LookAround(random);
    }
    void LookAround(std::mt19937& random)
    {
        const WideString& name = stations[random() % kPorts].name;
        if (random() % 3 == 0)
            (void)Open(name);
        else if (random() % 2 == 0)
            (void)Ask<krelXcvPortData>(name, TEXT("GetPortProperties"));
        else
            EXPECT_LE(Names(1 + random() % 2).size(), kPorts);
    }
    void Meddle(std::mt19937& random)
    {
        Station& station = stations[random() % kPorts];
        const WORD number = servers[random() % 4]->Port();
        LookAround(random);
        const std::lock_guard held(station.changing);
        if (random() % 16 != 0)
            return ChangeSettings(station, number, static_cast<WORD>(kPatient + random() % 1000));
        ++station.life;
        ++deletions;
        EXPECT_EQ(0u, DeletePort(station.name));
        EXPECT_FALSE(Names(1).contains(station.name) || Names(2).contains(station.name));
        EXPECT_EQ(nullptr, Open(station.name));
        Add(station, number);
    }
    // Refused while the port prints.
    void ChangeSettings(const Station& station, WORD number, WORD timeout)
    {
        const auto record = PortRecord(station.name, TEXT("127.0.0.1"), number);
        const DWORD moved = OpenXcv(station.name).Send(TEXT("SetPortProperties"), record).result;
        const auto after = Ask<krelXcvPortData>(station.name, TEXT("GetPortProperties"));
        EXPECT_TRUE(moved == ERROR_BUSY || (moved == ERROR_SUCCESS && after.portNumber == number)) << moved;
        const DWORD kept = SetKeepAlive(station.name, 7, timeout);
        const auto values = Ask<krelXcvKeepAliveValues>(station.name, TEXT("GetKeepAliveValues"));
        EXPECT_TRUE(kept == ERROR_BUSY || (kept == ERROR_SUCCESS && values.keepAliveTimeout == timeout));
    }

    // A document whose port is left alone is sent, whatever goes on around it.
    void PrintOn(Station& station)
    {
        const int life = station.life;
        const HANDLE port = station.port;
        const DWORD job = ++jobs;
        const bool taken = StartDocument(port, job) && Write(port, SampleDocument(20000));
        EXPECT_TRUE(table->pfnEndDocPort(port));
        const auto commands = spooler.TakeJobCommands(job);
        if (life % 2 != 0 || life != station.life)
            return;
        EXPECT_TRUE(taken && !commands.empty() && commands.back() == JOB_CONTROL_SENT_TO_PRINTER) << job;
        ++sent;
    }
    Works OnEachPort(const std::function<void(std::size_t)>& work)
    {
        Works works;
        for (std::size_t i = 0; i < kPorts; ++i)
            works.emplace_back([i, work] { work(i); });
        return works;
    }

    unsigned seed = std::random_device()();
    std::atomic<unsigned> randoms{0};
    std::atomic<bool> ending{false};
    std::atomic<DWORD> jobs{0};
    std::atomic<std::size_t> sent{0};
    std::atomic<int> deletions{0};
    std::atomic<std::size_t> blocked{0};  // of the last phase's calls, as the print servers see it
    std::array<Station, kPorts> stations;
};

}  // namespace

TEST_F(RandomOverlap, LeavesEachPortAtWorkUntilTheShutdown)
{
    std::atomic<std::size_t> printing{kPorts};
    Works works = OnEachPort([&](std::size_t i) {
        for (int document = 0; document < kDocuments; ++document)
            PrintOn(stations[i]);
        --printing;
    });
    works.insert(works.end(), kMeddlers, [&] {
        std::mt19937 random(seed + ++randoms);
        while (printing > 0)
            Meddle(random);
    });
    RunAll(works);
    std::printf("%u documents, %zu of them undisturbed, %d ports deleted\n",
                static_cast<unsigned>(jobs.load()), sent.load(), deletions.load());
    EXPECT_EQ(kPorts, registry.Subkeys("Ports").size());
    sent = 0;
    RunAll(OnEachPort([&](std::size_t i) { PrintOn(stations[i]); }));
    EXPECT_EQ(kPorts, sent);

    // Each port is inside a call that nothing but the shutdown ends.
    for (auto& server : servers) {
        server->SetCourse({.end = std::nullopt});
        server->FaultAt(Step::ParallelReadReply, Fault::Drop());
        server->FaultAt(Step::DataMiddle, Fault::Silence().AfterBytes(1000));
    }
    blocked = 0;
    works = OnEachPort([&](std::size_t i) {
        const HANDLE port = stations[i].port;
        EXPECT_TRUE(StartDocument(port, ++jobs) && Write(port, SampleDocument(500)));
        if (i % 3 == 2)
            EXPECT_TRUE(table->pfnEndDocPort(port));
        else
            EXPECT_FALSE(Stall(port, i % 3 == 0));
    });
    works.emplace_back([&] {
        EXPECT_TRUE(servers[0]->WaitFor([&] { return blocked == kPorts; }, Milliseconds(60000)));
        ending = true;
        Shutdown();
    });
    RunAll(works);
}

// Which call meets which is chance; that none hangs and nothing is left is not. TearDown looks for the rest.
TEST_F(ManyPorts, OneOfThemUnderSixThreadsLeavesNothingBehind)
{
    const char* const given = std::getenv("FARLINK_STORM_SECONDS");
    const std::chrono::seconds length(given ? std::strtol(given, nullptr, 10) : 3);
    servers[0].emplace(PrintServerOptions{.keepAliveEvery = Milliseconds(100), .keepHistory = false});
    Station station{.name = TEXT("Card"), .changing = {}};
    Add(station, servers[0]->Port());
    std::atomic<DWORD> jobs{0};
    std::atomic<int> calls{0};
    const auto end = std::chrono::steady_clock::now() + length;
    const auto call = [&](std::mt19937& random) {
        const HANDLE port = station.port;
        WCHAR text[] = TEXT("ab");
        DWORD returned = 0;
        BYTE bytes[10];
        const std::function<void()> kinds[] = {
            [&] { (void)StartDocument(port, ++jobs); },
            [&] { (void)StartDocument(port, ++jobs, 2); },
            [&] { (void)Write(port, SampleDocument(random() % 3000)); },
            [&] { (void)table->pfnReadPort(port, bytes, sizeof bytes, &returned); },
            [&] { (void)table->pfnGetPrinterDataFromPort(port, 5, nullptr, text, 4, text, 4, &returned); },
            [&] { EXPECT_TRUE(table->pfnEndDocPort(port)); },
            [&] { EXPECT_TRUE(table->pfnClosePort(port)); },
            [&] { (void)servers[0]->Notify(Lpq(0, random() % 4 == 0 ? kCancelled : kReceivingData)); },
            [&] {
                const std::lock_guard held(station.changing);
                EXPECT_EQ(0u, DeletePort(station.name));
                Add(station, servers[0]->Port());
            },
        };
        kinds[random() % 64 == 0 ? 8 : random() % 8]();
        ++calls;
    };
    RunAll(Works(6,
                 [&] {
                     std::mt19937 random(std::random_device{}());
                     while (std::chrono::steady_clock::now() < end)
                         call(random);
                 }),
           length);
    std::printf("%d calls, %u documents\n", calls.load(), static_cast<unsigned>(jobs.load()));
    Shutdown();
    EXPECT_EQ(0, spooler.OpenPrinters());
    EXPECT_TRUE(servers[0]->WaitFor([&] {
        return servers[0]->OpenConnections(Channel::Data) + servers[0]->OpenConnections(Channel::Command) ==
               0;
    }));
}

TEST_F(ManyPorts, ListingAndOpeningDoNotWaitForFiftyStalledOnes)
{
    for (auto& server : servers)
        server.emplace();
    servers[0]->Hang(Channel::Data);
    servers[1]->FaultAt(Step::DataMiddle, Fault::Silence().AfterBytes(1000));
    servers[2]->FaultAt(Step::ParallelReadReply, Fault::Drop());
    servers[3]->SetCourse({.byHand = Lpq(0, kReceivingData)});
    const ::Gate workers = spooler.Block(Spooler::SetJob);
    std::array<Station, kStalledPorts> stations;
    Works works;
    for (std::size_t i = 0; i < kStalledPorts; ++i) {
        stations[i].name = WideString(i + 1, static_cast<WCHAR>('A'));
        Add(stations[i], servers[i % 4]->Port());
        const HANDLE port = stations[i].port;
        if (i % 4 == 3) {
            EXPECT_TRUE(StartDocument(port, 1) && servers[3]->Notify(Lpq(0, kCancelled)));
            continue;
        }
        works.emplace_back([this, i, port] {
            EXPECT_EQ(i % 4 != 0, StartDocument(port, 1));
            EXPECT_FALSE(Stall(port, i % 4 == 1));
        });
    }
    works.emplace_back([&] {
        EXPECT_TRUE(servers[1]->WaitFor(EventKind::FaultPlayed, 13));
        EXPECT_TRUE(servers[2]->WaitFor(EventKind::ParallelRead, 12));
        EXPECT_TRUE(workers.AwaitArrival(12));
        EXPECT_TRUE(
            servers[0]->WaitFor([&] { return spooler.Count(Spooler::OpenPrinter) == kStalledPorts; }));
        const auto begun = std::chrono::steady_clock::now();
        for (const Station& station : stations) {
            EXPECT_EQ(kStalledPorts, Names(1).size());
            EXPECT_EQ(kStalledPorts, Names(2).size());
            EXPECT_EQ(station.port, Open(station.name));
        }
        EXPECT_LT(std::chrono::steady_clock::now() - begun, 5s) << "of 100 lists and 50 openings";
        workers.Open();
        Shutdown();
    });
    RunAll(works);
}
