// What diagnostics cost: scopes and tags against a lock, log lines against the system's calls.

#include <fcntl.h>
#include <unistd.h>

#include <mutex>

#include "bench/pairs.h"
#include "bench/running_monitor.h"
#include "diagnostics/diagnostic_log.h"
#include "diagnostics/function_trace.h"
#include "diagnostics/log_file_path.h"
#include "diagnostics/thread_port_tag.h"
#include "tests/support/text.h"

namespace {

constexpr int kScopes = 100000;
constexpr int kTags = 20000;  // of each thread: several time slices on a small machine
constexpr int kLines = 16000;
constexpr char kMessage[] = "    {CSyncSocket::CSyncSocket";
constexpr char kMarker[] = "===wrap===\r\n";

template <class Call>
double Repeated(int threads, int times, Call call)
{
    return AtOnce(threads, [&](int) { (void)Timed(times, call); });
}

std::mutex lock;

void TakeLock()
{
    const std::scoped_lock held(lock);
    benchmark::ClobberMemory();
}

void OpenScope()
{
    const CFunctionTrace trace("krelIniPort::startDocPort", "printer=%S, jobId=%i, level=%i",
                               TEXT("front-desk"), 7, 1);
}

void TakeTag()
{
    const CThreadPortTag tag(TEXT("127.0.0.1"), 9100);
}

bool AddTags(int threads)
{
    const Row row = {"thread tag, threads: " + std::to_string(threads), "lock and unlock, as many threads",
                     Row::CostAtMost, 0, 21};
    return AddRow(row, [threads](Pairs& pairs) {
        AttachLibrary();
        pairs.Run([&] { return Repeated(threads, kTags, TakeTag); },
                  [&] { return Repeated(threads, kTags, TakeLock); });
    });
}

double Growth(void (*call)())
{
    return Repeated(16, kTags, call) / Repeated(1, kTags, call);
}

// The bare writer's file, beside the log. It asks of the system what a log asks, with a limit and without.
class BareFile {
public:
    BareFile() : file(open((Narrow(GetLogFilePath()) + ".bare").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600)) {}
    ~BareFile() { close(file); }
    BareFile(const BareFile&) = delete;
    BareFile& operator=(const BareFile&) = delete;

    void Write() const { Require(write(file, line.data(), line.size()) > 0, "write fails"); }
    void WriteWrapping(std::size_t limit)
    {
        if (inPass > limit) {
            Require(ftruncate(file, lseek(file, 0, SEEK_CUR)) == 0 && lseek(file, 0, SEEK_SET) == 0,
                    "no new pass");
            inPass = 0;
        }
        Write();
        inPass += line.size();
        Require(write(file, kMarker, sizeof kMarker - 1) > 0 &&
                    lseek(file, 1 - static_cast<off_t>(sizeof kMarker), SEEK_CUR) >= 0,
                "no marker");
    }

private:
    const int file;
    std::size_t inPass = 0;
    const std::string line = "12:34:56.789 127.0.0.1:9100 0x00001234\t" + std::string(kMessage) + "\r\n";
};

bool AddLog(const char* what, const char* against, int threads, DWORD limitKiB, double wanted)
{
    return AddRow({what, against, Row::RateAtLeast, wanted, 21}, [threads, limitKiB](Pairs& pairs) {
        AttachLibrary();
        ApplyLogSettings(
            {.eventTypesToLog = 0x3F, .logToFile = 1, .logToDebugOutput = 0, .maxLogFileSize = limitKiB});
        BareFile bare;
        const int lines = kLines / threads;
        const auto log = [&](int) {
            const CThreadPortTag tag(TEXT("127.0.0.1"), 9100);
            (void)Timed(lines, [] { vexkitTypeDiagnosticPuts(kMessage); });
        };
        const auto write = [&] {
            limitKiB == 0 ? bare.Write() : bare.WriteWrapping(limitKiB * std::size_t{1024});
        };
        pairs.Run([&] { return AtOnce(threads, log); }, [&] { return Repeated(threads, lines, write); });
        ApplyLogSettings(kDefaultLogSettings);
    });
}

[[maybe_unused]] const bool added =
    AddRow({"scope with arguments, no sink on", "lock and unlock", Row::CostAtMost, 1, 101},
           [](Pairs& pairs) {
               AttachLibrary();
               pairs.Run([] { return Repeated(1, kScopes, OpenScope); },
                         [] { return Repeated(1, kScopes, TakeLock); });
           }) &&
    AddTags(1) && AddTags(16) &&
    AddRow({"thread tag, growth from 1 to 16 threads", "growth of a lock", Row::CostAtMost, 1, 21},
           [](Pairs& pairs) {
               AttachLibrary();
               pairs.Run([] { return Growth(TakeTag); }, [] { return Growth(TakeLock); });
           }) &&
    AddLog("log lines, no limit, 1 thread", "bare `write` of the same bytes", 1, 0, 0.5) &&
    AddLog("log lines, no limit, 8 threads", "bare `write` of the same bytes", 8, 0, 0.5) &&
    AddLog("log lines, limit of 512 KiB", "the same system calls, bare", 1, 512, 0.7);

}  // namespace
