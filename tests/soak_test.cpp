// Many documents on many ports at once, on print servers that break in every way, drawn from a seed that is
// printed. A spooler's own rules are played to the end: what is not called sent is printed again.
//
// FARLINK_SOAK names the number of documents, FARLINK_SEED the seed; without them it is a short run.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

#include "tests/support/printing_fixture.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

namespace {

// A sanitizer keeps what is freed for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kGrowthKiB = 1024 * 1024;
#else
constexpr std::size_t kGrowthKiB = 32 * 1024;
#endif

constexpr int kPorts = 32;
constexpr int kShortRun = 320;
constexpr int kAttempts = 40;
constexpr int kFaultsInTen = 3;
constexpr double kSoakScale = 0.1;
constexpr WORD kTimeout = 20;  // seconds: two at this scale

unsigned long FromEnvironment(const char* name, unsigned long otherwise)
{
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtoul(text, nullptr, 10) : otherwise;
}

std::size_t HashOf(const Bytes& bytes)
{
    return std::hash<std::string_view>()({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// What one port has printed, and what its print server has of it.
class Station {
public:
    Station() : server(Options()) {}

    void Took(const Bytes& document)
    {
        const std::lock_guard held(lock);
        ++taken[HashOf(document)];
    }
    int Copies(const Bytes& document)
    {
        const std::lock_guard held(lock);
        const auto found = taken.find(HashOf(document));
        return found == taken.end() ? 0 : found->second;
    }
    bool IsQuiet() const
    {
        return server.OpenConnections(Channel::Data) + server.OpenConnections(Channel::Command) == 0;
    }

    std::mutex lock;
    std::map<std::size_t, int> taken;  // whole documents by their hash
    PrintServer server;
    HANDLE port = nullptr;

    int attempts = 0;
    int duplicates = 0;
    std::string complaint;

private:
    PrintServerOptions Options()
    {
        PrintServerOptions options;
        options.keepHistory = false;
        options.keepAliveEvery = Milliseconds(100);
        options.observer = [this](const Event& event) {
            if (event.kind == EventKind::DocumentComplete)
                Took(event.bytes);
        };
        return options;
    }
};

struct Footprint {
    std::size_t threads = 0;
    std::size_t files = 0;
    std::size_t memoryKiB = 0;
};

std::size_t EntriesOf(const char* folder)
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder))
        ++count;
    return count;
}

// Of this process, where the system tells.
Footprint TakeFootprint()
{
    Footprint footprint;
    if (!std::filesystem::exists("/proc/self/task"))
        return footprint;
    footprint.threads = EntriesOf("/proc/self/task");
    footprint.files = EntriesOf("/proc/self/fd");
    std::ifstream memory("/proc/self/statm");
    std::size_t pages = 0;
    memory >> pages >> pages;
    footprint.memoryKiB = pages * 4;
    return footprint;
}

class Soak : public RunningMonitor {
protected:
    void SetUp() override
    {
        MonitorFixture::SetUp();
        registry.SetDword("Ports", "LogToDebugOutput", 0);  // the lines of so many documents are not kept
        Start();
        test_switches::SetTimeScale(kSoakScale);
        for (int i = 0; i < kPorts; ++i) {
            const WideString name = TEXT("Card ") + WideString(1, static_cast<WCHAR>('A' + i));
            stations[static_cast<std::size_t>(i)].port =
                AddAndOpenPort(name, TEXT("127.0.0.1"), stations[static_cast<std::size_t>(i)].server.Port());
            EXPECT_EQ(0u, SetKeepAlive(name, 5, kTimeout));
        }
    }

    static Fault DrawFault(std::mt19937& random, Step step)
    {
        const std::array always = {Fault::Close(), Fault::Reset(), Fault::Silence(),
                                   Fault::Delay(Milliseconds(30))};
        // Not a message left out: a server that is alive and never answers is waited for without a bound.
        const std::array ofMessages = {Fault::Garbage(), Fault::WrongType(9), Fault::HalfThenClose(2),
                                       Fault::HalfThenSilence(2), Fault::SingleBytes()};
        const std::size_t choice = random() % (always.size() + (IsMessage(step) ? ofMessages.size() : 0));
        return choice < always.size() ? always[choice] : ofMessages[choice - always.size()];
    }

    static void PlaceFault(std::mt19937& random, PrintServer& server)
    {
        constexpr std::array steps = {Step::SessionId,
                                      Step::TransMode,
                                      Step::VersionReply,
                                      Step::BindReply,
                                      Step::StartKeepAlivesReply,
                                      Step::FirstLpqInfo,
                                      Step::KeepAlive,
                                      Step::Notification,
                                      Step::AcceptData,
                                      Step::AcceptCommand,
                                      Step::DataMiddle,
                                      Step::EndOfData};
        const Step step = steps[random() % steps.size()];
        server.FaultAt(step, DrawFault(random, step).AfterBytes(step == Step::DataMiddle ? 500 : 0), 1);
    }

    // True when the document was called sent.
    bool PrintOnce(Station& station, DWORD jobId, const Bytes& document)
    {
        DOC_INFO_1W info{Name(), nullptr, Name()};
        if (!table->pfnStartDocPort(station.port, Name(), jobId, 1, reinterpret_cast<LPBYTE>(&info)))
            return false;
        Bytes bytes = document;
        DWORD count = 0;
        (void)table->pfnWritePort(station.port, bytes.data(), static_cast<DWORD>(bytes.size()), &count);
        EXPECT_TRUE(table->pfnEndDocPort(station.port));
        return spooler.TakeJobCommands(jobId) == std::vector<DWORD>{JOB_CONTROL_SENT_TO_PRINTER};
    }
    static LPWSTR Name()
    {
        static WideString name = TEXT("Card");
        return name.data();
    }

    void PrintDocument(Station& station, DWORD jobId, std::mt19937& random)
    {
        Bytes document = SampleDocument(1000 + random() % 4000);
        std::copy_n(reinterpret_cast<const std::uint8_t*>(&jobId), sizeof jobId, document.begin());
        for (int attempt = 1; attempt <= kAttempts; ++attempt) {
            ++station.attempts;
            station.server.ClearFaults();
            if (random() % 10 < kFaultsInTen)
                PlaceFault(random, station.server);
            const int before = station.Copies(document);
            // Another number per attempt: a job that runs again under its own is deleted after it was sent.
            const bool sent = PrintOnce(station, jobId * kAttempts + static_cast<DWORD>(attempt), document);
            if (sent && station.Copies(document) != before + 1) {
                station.complaint = "document " + std::to_string(jobId) + " is called sent and isn't there";
                return;
            }
            if (sent) {
                station.duplicates += before > 0;
                return;
            }
            station.server.HangUp(Channel::Data);  // of a server that reads no more
        }
        station.complaint = "document " + std::to_string(jobId) + " was never sent";
    }

    void PrintOnAllPorts(DWORD firstJob, DWORD documents, unsigned long seed)
    {
        std::vector<std::thread> threads;
        threads.reserve(kPorts);
        for (DWORD i = 0; i < kPorts; ++i) {
            threads.emplace_back([this, i, firstJob, documents, seed] {
                std::mt19937 random(static_cast<std::uint32_t>(seed + firstJob + i));
                for (DWORD job = firstJob + i; job < firstJob + documents; job += kPorts)
                    PrintDocument(stations[i], job, random);
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        for (Station& station : stations)
            EXPECT_TRUE(station.server.WaitFor([&] { return station.IsQuiet(); }, Milliseconds(30000)));
    }

    std::array<Station, kPorts> stations;
};

TEST_F(Soak, LosesNoDocumentAndKeepsNothing)
{
    const auto documents = static_cast<DWORD>(FromEnvironment("FARLINK_SOAK", kShortRun));
    const unsigned long seed = FromEnvironment("FARLINK_SEED", std::random_device()());
    std::printf("seed %lu, %lu documents on %d ports\n", seed, static_cast<unsigned long>(documents), kPorts);

    PrintOnAllPorts(1, documents / 4, seed);
    const Footprint early = TakeFootprint();
    PrintOnAllPorts(1 + documents / 4, documents - documents / 4, seed);
    const Footprint late = TakeFootprint();

    int attempts = 0;
    int duplicates = 0;
    for (const Station& station : stations) {
        EXPECT_EQ("", station.complaint);
        attempts += station.attempts;
        duplicates += station.duplicates;
    }
    std::printf(
        "%d attempts, %d printed once more; threads %zu then %zu, files %zu then %zu, %zu then %zu KiB\n",
        attempts, duplicates, early.threads, late.threads, early.files, late.files, early.memoryKiB,
        late.memoryKiB);
    EXPECT_GT(attempts, static_cast<int>(documents)) << "no fault was ever met";
    EXPECT_EQ(0, spooler.OpenPrinters());
    // The simulator joins a connection's thread when the next one comes.
    EXPECT_LE(late.threads, early.threads + 2 * kPorts);
    EXPECT_LE(late.files, early.files + kPorts);
    EXPECT_LE(late.memoryKiB, early.memoryKiB + kGrowthKiB);
}

}  // namespace
