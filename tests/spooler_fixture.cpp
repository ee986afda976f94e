#include "tests/spooler_fixture.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "platform/posix/utf.h"
#include "platform/test_switches.h"

namespace {

constexpr double kTimeScale = 0.02;

// Kept loaded, so that its controls outlive the spooler's loading and unloading.
TestMonitorControls& LoadTestMonitor()
{
    void* library = dlopen(TEST_MONITOR_LIBRARY, RTLD_NOW);
    if (library == nullptr)
        std::abort();
    return *reinterpret_cast<TestMonitorControls* (*)()>(dlsym(library, "TestMonitor"))();
}

std::string MakeFolder()
{
    std::string name = testing::TempDir() + "spooler_XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        std::abort();
    setenv("FARLINK_STATE", name.c_str(), 1);
    return name;
}

void AddPrinter(WideString printer, WideString port)
{
    PRINTER_INFO_2W info = {};
    info.pPrinterName = printer.data();
    info.pPortName = port.data();
    const HANDLE added = AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(&info));
    ASSERT_NE(nullptr, added) << ErrorText();
    ClosePrinter(added);
}

bool BeginDocument(HANDLE printer, std::string bytes, DWORD* job)
{
    WideString name = TEXT("card");
    DOC_INFO_1W info = {.pDocName = name.data(), .pOutputFile = nullptr, .pDatatype = nullptr};
    *job = StartDocPrinterW(printer, 1, reinterpret_cast<LPBYTE>(&info));
    DWORD written = 0;
    return *job != 0 && WritePrinter(printer, bytes.data(), static_cast<DWORD>(bytes.size()), &written) &&
           written == bytes.size();
}

// Tells the parent, and stays as it is until it is killed.
int ReportAndWait(DWORD job)
{
    if (write(STDOUT_FILENO, &job, sizeof(job)) == sizeof(job))
        for (;;)
            pause();
    return 1;
}

}  // namespace

DWORD Print(const WideString& printer, const std::string& document)
{
    const Handle handle(printer);
    DWORD job = 0;
    return BeginDocument(handle, document, &job) && EndDocPrinter(handle) ? job : 0;
}

JOB_PROGRESS ProgressOf(DWORD job)
{
    HANDLE server = nullptr;
    EXPECT_TRUE(OpenPrinterW(nullptr, &server, nullptr)) << ErrorText();
    JOB_PROGRESS progress = {};
    progress.cbSize = sizeof(progress);
    EXPECT_TRUE(GetJobProgress(server, job, &progress)) << ErrorText();
    ClosePrinter(server);
    return progress;
}

std::string ErrorText()
{
    std::string text(GetSpoolerErrorText(nullptr, 0), ' ');
    GetSpoolerErrorText(text.data(), static_cast<DWORD>(text.size()));
    text.pop_back();
    return text;
}

void RunAcceptedJobs(bool here, DWORD attemptLimit)
{
    const SPOOLER_OPTIONS options = {sizeof(options), here, attemptLimit};
    EXPECT_TRUE(SetSpoolerOptions(&options));
}

Handle::Handle(const WideString& name, ACCESS_MASK access)
{
    PRINTER_DEFAULTSW defaults = {.pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = access};
    WideString copy = name;
    EXPECT_TRUE(OpenPrinterW(copy.data(), &raw, &defaults)) << ErrorText();
}

Handle::~Handle()
{
    ClosePrinter(raw);
}

int PlayPart(const std::string& part, DWORD argument)
{
    if (part == "open") {
        DWORD needed = 0;
        DWORD returned = 0;
        return EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 2, nullptr, 0, &needed, &returned) ? 0 : 1;
    }
    test_switches::SetTimeScale(kTimeScale);
    TestMonitorControls& monitor = LoadTestMonitor();
    RunAcceptedJobs(part == "print");
    const Handle printer(TEXT("First"));
    if (part == "delete")
        return SetJobW(printer, argument, 0, nullptr, JOB_CONTROL_DELETE) ? 0 : 1;
    if (part == "begin") {
        DWORD job = 0;
        return BeginDocument(printer, "half a document", &job) ? ReportAndWait(job) : 1;
    }
    // "accept": leaves the job to others. "print": its port takes a little and then holds.
    monitor.Locked([&](TestMonitorScript& script) {
        script.takeAtMost = 4;
        script.heldPort = TEXT("ONE");
        script.heldAfter = 2;
    });
    const DWORD job = Print(TEXT("First"), "printed by a companion");
    if (part == "print")
        monitor.Await([](const TestMonitorScript& script) { return script.writes == 3; });
    return ReportAndWait(job);
}

Companion::Companion(const std::string& part, DWORD argument)
{
    int ends[2] = {};
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    output = ends[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string number = std::to_string(argument);
    std::string option = "--part";
    std::string name = part;
    char* arguments[] = {option.data(), option.data(), name.data(), number.data(), nullptr};
    EXPECT_EQ(0, posix_spawn(&process, "/proc/self/exe", &actions, nullptr, arguments, environ));
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
}

Companion::~Companion()
{
    Kill();
    close(output);
}

DWORD Companion::Report()
{
    DWORD job = 0;
    EXPECT_EQ(static_cast<ssize_t>(sizeof(job)), read(output, &job, sizeof(job)));
    return job;
}

void Companion::Kill()
{
    if (process < 0)
        return;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    process = -1;
}

bool Companion::Succeeds()
{
    int status = 0;
    waitpid(process, &status, 0);
    process = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

SpoolerTest::SpoolerTest() : folder(MakeFolder()), monitor(LoadTestMonitor())
{
    test_switches::SetTimeScale(kTimeScale);
    RunAcceptedJobs(true);
    monitor.Locked([](TestMonitorScript& script) { script = {}; });
    WideString product = TEXT("Remote TCP/IP Card Printer Port");
    EXPECT_TRUE(DeleteMonitorW(nullptr, nullptr, product.data())) << ErrorText();
    WideString name = TEXT("TEST");
    WideString library = ToUtf16(TEST_MONITOR_LIBRARY);
    MONITOR_INFO_2W info = {.pName = name.data(), .pEnvironment = nullptr, .pDLLName = library.data()};
    EXPECT_TRUE(AddMonitorW(nullptr, 2, reinterpret_cast<LPBYTE>(&info))) << ErrorText();
    AddPrinter(TEXT("First"), TEXT("ONE"));
    AddPrinter(TEXT("Second"), TEXT("TWO"));
}

SpoolerTest::~SpoolerTest()
{
    monitor.Locked([](TestMonitorScript& script) { script.heldPort.clear(); });
    EXPECT_TRUE(ShutdownSpooler(INFINITE)) << ErrorText();
    EXPECT_EQ(0, monitor.Locked([](TestMonitorScript& script) { return script.running; }));
    test_switches::Reset();
    std::filesystem::remove_all(folder);
}

void SpoolerTest::AwaitThat(const std::function<bool()>& condition)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        ASSERT_LT(std::chrono::steady_clock::now(), limit);
        Sleep(50);
    }
}

JOB_OUTCOME SpoolerTest::AwaitOutcome(DWORD job)
{
    AwaitThat([&] { return ProgressOf(job).outcome != JOB_OUTCOME_NONE; });
    AwaitThat([] { return CountActivePorts() == 0; });
    return static_cast<JOB_OUTCOME>(ProgressOf(job).outcome);
}

void SpoolerTest::AwaitPhase(DWORD job, JOB_PHASE phase)
{
    AwaitThat([&] { return ProgressOf(job).phase == phase; });
}

std::vector<TestMonitorScript::Document> SpoolerTest::Documents()
{
    return monitor.Locked([](TestMonitorScript& script) { return script.documents; });
}

std::size_t SpoolerTest::DocumentFiles() const
{
    const std::filesystem::directory_iterator files(folder + "/documents");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

void SpoolerTest::Restart()
{
    ASSERT_TRUE(ShutdownSpooler(INFINITE)) << ErrorText();
}

int main(int argc, char** argv)
{
    if (argc == 4 && std::string(argv[1]) == "--part")
        return PlayPart(argv[2], static_cast<DWORD>(std::stoul(argv[3])));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
