// What the embedded spooler makes of a disk that is full, a state that is damaged and a clock that jumps.

#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>

#include "tests/spooler_fixture.h"

namespace {

// No file of this process takes a byte while it stands.
class FullDisk {
public:
    FullDisk()
    {
        (void)signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
        const rlimit none = {0, before.rlim_max};
        EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &none));
    }
    ~FullDisk() { EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &before)); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit before = {};
};

class Robustness : public SpoolerTest {
protected:
    void Sql(const char* sql) const
    {
        sqlite3* raw = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_open((folder + "/spooler.db").c_str(), &raw));
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(raw, sql, nullptr, nullptr, nullptr)) << sqlite3_errmsg(raw);
        sqlite3_close(raw);
    }
    static void ExpectFull()
    {
        EXPECT_EQ(ERROR_DISK_FULL, GetLastError()) << ErrorText();
        EXPECT_NE(std::string::npos, ErrorText().find("state")) << ErrorText();
    }
    static DWORD Setting(const WideString& name)
    {
        DWORD value = 0;
        return GetMonitorSetting(TEXT("TEST"), TEXT("Ports"), name.c_str(), &value) ? value : 0;
    }
    // What a tool's command that stores two settings comes to: its result, or the last error without one.
    DWORD Store(DWORD value, DWORD result, bool diskIsFull = false)
    {
        std::optional<FullDisk> full;
        monitor.Locked([&](TestMonitorScript& script) {
            script.command = [&, value, result, diskIsFull] {
                EXPECT_TRUE(SetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("One"), value));
                EXPECT_TRUE(SetMonitorSetting(TEXT("TEST"), TEXT("Ports"), TEXT("Two"), value));
                std::thread([&] { EXPECT_NE(value, Setting(TEXT("One"))) << "half stored"; }).join();
                if (diskIsFull)
                    full.emplace();
                return result;
            };
        });
        DWORD needed = 0;
        DWORD status = 0;
        const Handle tool(TEXT(",XcvMonitor TEST"), SERVER_ACCESS_ADMINISTER);
        const bool done = XcvDataW(tool, TEXT("Any"), nullptr, 0, nullptr, 0, &needed, &status) != FALSE;
        return done ? status : GetLastError();
    }
};

}  // namespace

TEST_F(Robustness, ADocumentThatDoesNotFitIsRefusedAndLeavesItsRoom)
{
    const Handle printer(TEXT("First"));
    DOC_INFO_1W info = {};
    std::string bytes(100000, 'x');
    DWORD written = 0;
    const DWORD job = StartDocPrinterW(printer, 1, reinterpret_cast<LPBYTE>(&info));
    ASSERT_NE(0u, job);
    {
        const FullDisk full;
        EXPECT_FALSE(WritePrinter(printer, bytes.data(), 100000, &written));
        ExpectFull();
        EXPECT_EQ(0u, DocumentFiles());
        EXPECT_EQ(0u, StartDocPrinterW(printer, 1, reinterpret_cast<LPBYTE>(&info)));
        ExpectFull();
    }
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(Print(TEXT("First"), "a card")));
    EXPECT_EQ(1u, Documents().size());
}

TEST_F(Robustness, AFullDiskPutsOffWhatBecameOfAJob)
{
    const std::pair<std::vector<DWORD>, JOB_OUTCOME> ends[] = {
        {{JOB_CONTROL_SENT_TO_PRINTER}, JOB_OUTCOME_SENT},
        {{JOB_CONTROL_DELETE, JOB_CONTROL_SENT_TO_PRINTER}, JOB_OUTCOME_DELETED}};
    const Handle printer(TEXT("First"));
    for (const auto& [commands, outcome] : ends) {
        monitor.Locked([&asked = commands](TestMonitorScript& script) {
            script.heldPort = TEXT("ONE");
            script.writes = 0;
            script.onEnd = asked;
        });
        const DWORD job = Print(TEXT("First"), "a card");
        monitor.Await([](const TestMonitorScript& script) { return script.writes == 1; });
        {
            const FullDisk full;
            monitor.Locked([](TestMonitorScript& script) { script.heldPort.clear(); });
            AwaitPhase(job, JOB_PHASE_KEEPING);
            // The attempt is over: a command would be the next job's.
            EXPECT_FALSE(SetJobW(printer, job, 0, nullptr, JOB_CONTROL_DELETE));
            ExpectFull();
            Sleep(15000);  // longer than any other failure is put up with
        }
        EXPECT_EQ(outcome, AwaitOutcome(job));
        EXPECT_EQ(1u, ProgressOf(job).attempt) << "printed again";
    }
}

TEST_F(Robustness, AJobThatCanNotBeStartedIsReportedAndKept)
{
    RunAcceptedJobs(false);
    const DWORD job = Print(TEXT("First"), "a card");
    const Handle printer(TEXT("First"));
    JOB_PROGRESS progress = {};
    progress.cbSize = sizeof(progress);
    {
        const FullDisk full;
        EXPECT_TRUE(RunPendingJobs(nullptr));
        AwaitThat([] { return CountActivePorts() == 0; });
        EXPECT_FALSE(GetJobProgress(printer, job, &progress));
        ExpectFull();
    }
    EXPECT_TRUE(RunPendingJobs(nullptr));
    EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(job));
}

TEST_F(Robustness, ACommandStoresItsSettingsTogetherOrNotAtAll)
{
    EXPECT_EQ(0u, Store(1, ERROR_SUCCESS));
    EXPECT_EQ(ERROR_ACCESS_DENIED, Store(2, ERROR_ACCESS_DENIED));
    EXPECT_EQ(ERROR_DISK_FULL, Store(3, ERROR_SUCCESS, true));
    EXPECT_EQ(1u, Setting(TEXT("One")));
    EXPECT_EQ(1u, Setting(TEXT("Two")));
}

TEST_F(Robustness, ADamagedDatabaseIsLeftAsItIsWithTheDocuments)
{
    RunAcceptedJobs(false);
    ASSERT_NE(0u, Print(TEXT("First"), "a card"));
    Restart();
    const std::string database = folder + "/spooler.db";
    const std::string sound = database + ".sound";
    Sql("PRAGMA wal_checkpoint(TRUNCATE)");
    std::filesystem::copy_file(database, sound);
    for (std::uintmax_t page = 0; page < std::filesystem::file_size(sound) / 4096; ++page) {
        std::fstream file(database, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(page * 4096));
        file << std::string(4096, 'x');
        file.close();
        EXPECT_FALSE(RunPendingJobs(nullptr)) << page;
        EXPECT_EQ(ERROR_FILE_CORRUPT, GetLastError()) << page << ": " << ErrorText();
        std::filesystem::copy_file(sound, database, std::filesystem::copy_options::overwrite_existing);
    }
    for (const std::uintmax_t size : {std::filesystem::file_size(sound) / 2, std::uintmax_t{0}}) {
        std::filesystem::resize_file(database, size);
        EXPECT_FALSE(RunPendingJobs(nullptr));
        EXPECT_EQ(ERROR_FILE_CORRUPT, GetLastError()) << size << ": " << ErrorText();
        EXPECT_EQ(1u, DocumentFiles()) << size;
    }
    std::filesystem::copy_file(sound, database, std::filesystem::copy_options::overwrite_existing);
    EXPECT_TRUE(RunPendingJobs(nullptr)) << ErrorText();
    AwaitThat([&] { return Documents().size() == 1; });
}

// Between a job's acceptance and its run; and the history is looked through at each start.
TEST_F(Robustness, AClockThatJumpsLosesNoJob)
{
    for (const char* jump : {"UPDATE jobs SET submitted = submitted + 36000, finished = finished + 36000",
                             "UPDATE jobs SET submitted = submitted - 9000000, finished = 1"}) {
        RunAcceptedJobs(false);
        const DWORD job = Print(TEXT("First"), "a card");
        Restart();
        Sql(jump);
        EXPECT_TRUE(RunPendingJobs(nullptr));
        EXPECT_EQ(JOB_OUTCOME_SENT, AwaitOutcome(job));
    }
}
