#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "diagnostics/diagnostic_log.h"
#include "monitor/library_entry.h"
#include "platform/test_switches.h"
#include "tests/support/failing_new.h"
#include "tests/support/gate.h"
#include "tests/support/log_lines.h"
#include "tests/support/real_calls.h"

namespace {

namespace fs = std::filesystem;

const std::string kMarker = "===wrap===\r\n";

// Where the writer of the log file stops, if anywhere.
std::atomic<const Gate*> gWriteGate{nullptr};

// Each test has a temporary folder of its own, and the library newly attached in it. Lines also go to the
// debugger output, from where the test knows their bytes.
class LogFile : public testing::Test {
protected:
    void SetUp() override
    {
        folder = fs::temp_directory_path() / ("farlink_log_" + std::to_string(GetCurrentProcessId()));
        fs::remove_all(folder);
        ASSERT_TRUE(fs::create_directory(folder));
        SetTempFolder(folder);
        Reattach();
    }
    void TearDown() override
    {
        test_switches::Reset();
        SetTempFolder({});
        Reattach();
        fs::current_path(startFolder);
        fs::remove_all(folder);
    }

    void Reattach()
    {
        DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_DETACH, nullptr);
        DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_ATTACH, nullptr);
    }
    void Watch(DWORD maxSizeInKiB) { ApplyLogSettings({0, 1, 1, maxSizeInKiB}); }

    // Writes lines of 100 bytes, numbered on, and gives them as they went out.
    std::vector<std::string> Write(int count)
    {
        std::vector<std::string> lines;
        for (int i = 0; i < count; i++) {
            std::string message = "line " + std::to_string(++written) + " ";
            message.resize(70, '.');
            log.Clear();
            vexkitTypeDiagnosticPuts(message.c_str());
            const LogLine line = log.All().at(0);
            char id[16];
            std::snprintf(id, sizeof(id), "0x%08X", static_cast<unsigned>(line.threadId));
            lines.push_back(line.time + " " + line.tag + " " + id + "\t" + line.message + "\r\n");
            EXPECT_EQ(100u, lines.back().size());
        }
        return lines;
    }
    static std::string Joined(const std::vector<std::string>& lines)
    {
        std::string text;
        for (const std::string& line : lines)
            text += line;
        return text;
    }

    fs::path File() const
    {
        WCHAR program[1024];
        GetModuleFileNameW(GetModuleHandleW(nullptr), program, 1024);
        return folder / fs::path(program).filename().replace_extension(".log");
    }
    std::string Content() const
    {
        std::ifstream file(File(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void Put(const std::string& content) { std::ofstream(File(), std::ios::binary) << content; }

    LogLines& log = LogLines::Captured();
    const fs::path startFolder = fs::current_path();
    fs::path folder;
    int written = 0;
};

TEST_F(LogFile, WithoutLimitGrowsWithoutMarker)
{
    Watch(0);
    EXPECT_FALSE(fs::exists(File()));  // opened by the first line, not before
    const std::string lines = Joined(Write(30));
    EXPECT_EQ(lines, Content());
    EXPECT_TRUE(IsOpenToEveryone(File()));
}

TEST_F(LogFile, WrapsBehindTheLineThatCrossesTheLimit)
{
    Watch(1);
    const std::string first = Joined(Write(11));
    EXPECT_EQ(first + kMarker, Content());
    const std::string second = Joined(Write(1));
    EXPECT_EQ(second + kMarker + first.substr(112), Content());
    const std::string third = Joined(Write(1));
    EXPECT_EQ(second + third + kMarker + first.substr(212), Content());

    const std::string pass = second + third + Joined(Write(9));
    EXPECT_EQ(pass + kMarker, Content());
    const std::string next = Joined(Write(1));
    EXPECT_EQ(next + kMarker + pass.substr(112), Content());
}

TEST_F(LogFile, AWrapDropsTheTailOfALongerPassBefore)
{
    const std::string old(3000, 'o');
    Put(old);
    Watch(1);
    const std::string pass = Joined(Write(11));
    EXPECT_EQ(pass + kMarker + old.substr(1112), Content());
    const std::string next = Joined(Write(1));
    EXPECT_EQ(next + kMarker + pass.substr(112), Content());
}

TEST_F(LogFile, ACountEqualToTheLimitDoesNotWrap)
{
    const std::string old(924, 'o');
    Put(old);
    Watch(1);
    const std::string two = Joined(Write(2));
    EXPECT_EQ(old + two + kMarker, Content());
    const std::string third = Joined(Write(1));
    EXPECT_EQ(third + kMarker + (old + two).substr(112), Content());
}

TEST_F(LogFile, ARestartGoesOnBehindTheOldMarker)
{
    Watch(1);
    const std::string before = Joined(Write(3));
    Reattach();
    Watch(1);
    const std::string after = Joined(Write(2));
    EXPECT_EQ(before + kMarker + after + kMarker, Content());
}

TEST_F(LogFile, AnOldFileOfManyGiBIsContinuedOrWrapped)
{
    constexpr std::uintmax_t kLargestLimit = 0xFFFFFFFF;
    const struct {
        std::uintmax_t size;
        DWORD maxSizeInKiB;
        bool wraps;
    } rows[] = {{kLargestLimit + 9999, 0, false},    {kLargestLimit, 0x400000, false},
                {kLargestLimit, 0x400001, false},    {kLargestLimit, 0xFFFFFFFF, false},
                {kLargestLimit + 1, 0x400000, true}, {kLargestLimit + 9999, 1, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.size) + " " + std::to_string(row.maxSizeInKiB));
        Reattach();
        Put("");
        fs::resize_file(File(), row.size);  // a hole
        Watch(row.maxSizeInKiB);
        const std::string expected = Joined(Write(1)) + (row.maxSizeInKiB != 0 ? kMarker : "");
        std::ifstream file(File(), std::ios::binary);
        file.seekg(static_cast<std::streamoff>(row.wraps ? 0 : row.size));
        std::string found(expected.size(), '\0');
        file.read(found.data(), static_cast<std::streamsize>(found.size()));
        EXPECT_EQ(expected, found);
        EXPECT_EQ(row.size + (row.wraps ? 0 : expected.size()), fs::file_size(File()));
    }
}

// While the disk is full, lines are lost; those before stay.
TEST_F(LogFile, AFullDiskCostsNoLineThatWasWritten)
{
    const struct {
        int skip;
        int times;
        std::vector<int> kept;  // of five lines
    } rows[] = {{0, 4, {4}}, {1, 1, {2, 3, 4}}, {1, 3, {2, 4}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.skip) + " " + std::to_string(row.times));
        Reattach();
        fs::remove(File());
        Watch(1);
        std::string expected = Joined(Write(2));
        test_switches::FailCall("WriteFile", ERROR_DISK_FULL, row.skip, row.times);
        const std::vector<std::string> later = Write(3);
        for (const int kept : row.kept)
            expected += later[static_cast<std::size_t>(kept - 2)];
        EXPECT_EQ(expected + kMarker, Content());
    }
}

TEST_F(LogFile, ALineWithoutMemoryIsLostAndTheNextOneIsNot)
{
    fs::current_path(folder);  // a log without the name of its folder goes here
    int recovered = 0;
    bool hasFailed = true;
    for (int which = 1; hasFailed; which++) {
        Reattach();
        fs::remove(File());
        Watch(0);
        {
            const FailingNew failing(which);
            vexkitTypeDiagnosticPuts("lost");
            hasFailed = failing.HasFailed();
        }
        const std::string next = Joined(Write(1));
        recovered += hasFailed && Content() == next ? 1 : 0;
    }
    EXPECT_GE(recovered, 2) << "its path and the file's entry are made anew";
}

TEST_F(LogFile, AFileThatCannotBeOpenedIsTriedOnce)
{
    fs::create_directory(File());
    test_switches::CountCalls("CreateFileW");
    Watch(1);
    Write(5);  // the debugger output goes on
    EXPECT_EQ(1, test_switches::CallsCounted("CreateFileW"));
    fs::remove(File());
    Write(1);
    EXPECT_FALSE(fs::exists(File()));
}

TEST_F(LogFile, WithoutItsSecurityThereIsNoFile)
{
    for (const char* call : {"AllocateAndInitializeSid", "SetEntriesInAclW", "LocalAlloc",
                             "InitializeSecurityDescriptor", "SetSecurityDescriptorDacl", "CreateFileW"}) {
        SCOPED_TRACE(call);
        Reattach();
        Watch(0);
        test_switches::FailCall(call, ERROR_ACCESS_DENIED);
        Write(2);
        EXPECT_FALSE(fs::exists(File()));
    }
}

TEST_F(LogFile, NoFileWithoutTheSetting)
{
    ApplyLogSettings({0x3F, 0, 1, 1});
    Write(3);
    EXPECT_TRUE(fs::is_empty(folder));
}

TEST_F(LogFile, APathThatDoesNotFitMeansNoFile)
{
    const std::size_t name = File().filename().string().size();
    for (const std::size_t length : {1023 - name, 1024 - name}) {  // with the closing slash
        SetTempFolder("/" + std::string(length - 2, 'f'));
        Reattach();
        test_switches::CountCalls("CreateFileW");
        Watch(0);
        Write(2);
        EXPECT_EQ(length + name == 1023 ? 1 : 0, test_switches::CallsCounted("CreateFileW"));
    }
}

TEST_F(LogFile, StandsInTheRootOnOldSystemsAndWithoutTempFolder)
{
    fs::current_path(folder);
    const fs::path inRoot = folder / ("c:\\" + File().filename().string());
    for (const bool isOldSystem : {true, false}) {
        SCOPED_TRACE(isOldSystem);
        if (isOldSystem)
            test_switches::SetReportedVersion(5, 2);
        else
            test_switches::FailCall("GetTempPathW", ERROR_ACCESS_DENIED);
        Reattach();
        Watch(0);
        Write(1);
        Reattach();  // no file can be removed everywhere while it is open
        EXPECT_TRUE(fs::remove(inRoot));
        test_switches::Reset();
    }
}

// With a limit, all but the one behind the marker, which the newest lines may have cut.
TEST_F(LogFile, LinesOfManyThreadsStayWhole)
{
    for (const DWORD limit : {0u, 4u}) {
        SCOPED_TRACE(limit);
        Reattach();
        fs::remove(File());
        Watch(limit);
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int number = 0; number < 4; number++) {
            threads.emplace_back([] {
                for (int i = 0; i < 100; i++)
                    vexkitTypeDiagnosticPuts("message");
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        const std::string content = Content();
        const std::size_t marker = std::min(content.find(kMarker), content.size());
        std::istringstream file(content.substr(0, marker));
        int lines = 0;
        for (std::string line; std::getline(file, line); lines++)
            EXPECT_TRUE(ParseLogLine(line + "\n").wellFormed) << line;
        file = std::istringstream(
            content.substr(std::min(content.find('\n', marker + kMarker.size()), content.size())));
        file.get();
        for (std::string line; std::getline(file, line);)
            EXPECT_TRUE(ParseLogLine(line + "\n").wellFormed) << line;
        if (limit == 0)
            EXPECT_EQ(400, lines);
        else
            EXPECT_LE(content.size(), limit * 1024 + 100 + kMarker.size());
    }
}

TEST_F(LogFile, TheLastLinesAreTheDetachAtUnloadAndAtProcessEnd)
{
    ApplyLogSettings({krelpmEventEntry, 1, 0, 0});
    DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_DETACH, GetModuleHandleW(nullptr));
    vexkitTypeDiagnosticPuts("too late");
    ApplyLogSettings({krelpmEventEntry, 1, 0, 0});
    DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_DETACH, nullptr);
    const std::string line = "DllEntryPoint in server port monitor DLL - DLL_PROCESS_DETACH\r\n";
    const std::string content = Content();
    EXPECT_EQ(content.size() - line.size(), content.rfind(line));
    EXPECT_NE(std::string::npos, content.find(line));
    EXPECT_LT(content.find(line), content.rfind(line));
    EXPECT_EQ(std::string::npos, content.find("too late"));
    DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_ATTACH, nullptr);
}

// A thread hangs in the file with the log's lock, as one may when the process ends around it.
TEST_F(LogFile, TheEndOfTheProcessWaitsForNoLock)
{
    ApplyLogSettings({krelpmEventEntry, 1, 0, 0});
    Gate gate;
    gWriteGate = &gate;
    std::thread stuck([] { vexkitTypeDiagnosticPuts("stuck"); });
    EXPECT_TRUE(gate.AwaitArrival());
    DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_DETACH, GetModuleHandleW(nullptr));
    gate.Open();
    stuck.join();
    gWriteGate = nullptr;
    EXPECT_TRUE(Content().ends_with("\tstuck\r\n"));
    EXPECT_EQ(std::string::npos, Content().find("DETACH"));
}

}  // namespace

extern "C" BOOL WriteFile(HANDLE file, LPCVOID data, DWORD size, DWORD* written, LPOVERLAPPED overlapped)
{
    if (const Gate* gate = gWriteGate)
        gate->Pass();
    return RealWriteFile(file, data, size, written, overlapped);
}
