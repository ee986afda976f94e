#include "tests/spooler_fixture.h"

#include <dlfcn.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "platform/platform.h"
#include "platform/test_switches.h"

namespace {

constexpr const char* kCompanionMark = "--companion";

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

}  // namespace

std::string ErrorText()
{
    std::string text(GetSpoolerErrorText(nullptr, 0), ' ');
    GetSpoolerErrorText(text.data(), static_cast<DWORD>(text.size()));
    text.pop_back();
    return text;
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

Companion::Companion()
{
    std::string mark = kCompanionMark;
    char* arguments[] = {mark.data(), mark.data(), nullptr};
    EXPECT_EQ(0, posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, arguments, environ));
}

bool Companion::Succeeds()
{
    int status = 0;
    waitpid(process, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

SpoolerTest::SpoolerTest() : folder(MakeFolder()), monitor(LoadTestMonitor())
{
    monitor.Locked([](TestMonitorScript& script) { script = {}; });
    WideString product = TEXT("Remote TCP/IP Card Printer Port");
    EXPECT_TRUE(DeleteMonitorW(nullptr, nullptr, product.data())) << ErrorText();
    WideString name = TEXT("TEST");
    WideString library = ToUtf16(TEST_MONITOR_LIBRARY);
    MONITOR_INFO_2W info = {.pName = name.data(), .pEnvironment = nullptr, .pDLLName = library.data()};
    EXPECT_TRUE(AddMonitorW(nullptr, 2, reinterpret_cast<LPBYTE>(&info))) << ErrorText();
}

SpoolerTest::~SpoolerTest()
{
    EXPECT_TRUE(ShutdownSpooler()) << ErrorText();
    EXPECT_EQ(0, monitor.Locked([](TestMonitorScript& script) { return script.running; }));
    test_switches::Reset();
    std::filesystem::remove_all(folder);
}

void SpoolerTest::Restart()
{
    ASSERT_TRUE(ShutdownSpooler()) << ErrorText();
}

int main(int argc, char** argv)
{
    if (argc == 2 && std::string(argv[1]) == kCompanionMark) {
        DWORD needed = 0;
        DWORD returned = 0;
        return EnumMonitorsW(nullptr, 2, nullptr, 0, &needed, &returned) == FALSE && needed != 0 ? 0 : 1;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
