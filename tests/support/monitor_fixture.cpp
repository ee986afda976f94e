#include "tests/support/monitor_fixture.h"

#include <cstdlib>

#include "diagnostics/diagnostic_log.h"
#include "monitor/library_entry.h"
#include "tests/support/real_calls.h"
#include "tests/support/text.h"

namespace {

constexpr BYTE kUnwritten = 0xCD;
constexpr DWORD kNotNeeded = 0xDEADBEEF;

// The test binary stands in for the library.
class AttachedLibrary : public testing::Environment {
    void SetUp() override { DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_ATTACH, nullptr); }
    void TearDown() override { DllEntryPoint(GetModuleHandleW(nullptr), DLL_PROCESS_DETACH, nullptr); }
};

[[maybe_unused]] const testing::Environment* const attached =
    testing::AddGlobalTestEnvironment(new AttachedLibrary);

template <std::size_t Size>
void FillField(WCHAR (&field)[Size], const WideString& text)
{
    text.copy(field, std::min(text.size(), Size));
}

}  // namespace

krelXcvPortData PortRecord(const WideString& name, const WideString& server, WORD number)
{
    krelXcvPortData record{};
    FillField(record.portName, name);
    record.version = kXcvRecordVersion;
    FillField(record.server, server);
    record.portNumber = number;
    return record;
}

XcvSession::XcvSession(const MONITOR2& functions, HANDLE monitor, const WideString& object,
                       ACCESS_MASK access)
    : table(functions)
{
    EXPECT_TRUE(table.pfnXcvOpenPort(monitor, object.c_str(), access, &handle));
}

XcvSession::~XcvSession()
{
    EXPECT_EQ(TRUE, table.pfnXcvClosePort(handle));
}

XcvAnswer XcvSession::Call(LPCWSTR command, const std::vector<BYTE>& input, DWORD outputSize) const
{
    std::vector<BYTE> given = input;
    XcvAnswer answer{0, std::vector<BYTE>(outputSize, kUnwritten), std::nullopt};
    DWORD needed = kNotNeeded;
    answer.result =
        table.pfnXcvDataPort(handle, command, given.data(), static_cast<DWORD>(given.size()),
                             outputSize > 0 ? answer.output.data() : nullptr, outputSize, &needed);
    EXPECT_EQ(input, given) << "a command changed its input";
    if (needed != kNotNeeded)
        answer.needed = needed;
    return answer;
}

MonitorFixture::MonitorFixture() = default;
MonitorFixture::~MonitorFixture() = default;

void MonitorFixture::SetUp()
{
    spooler.Reset();
    log.Clear();
    registry.SetDword("Ports", "LogToDebugOutput", 1);
}

void MonitorFixture::TearDown()
{
    Shutdown();
    EXPECT_EQ(0, registry.OpenKeys());
    EXPECT_EQ(0, spooler.OpenPrinters());
    EXPECT_EQ(0, spooler.IdentitiesOut());
    EXPECT_EQ(0, spooler.LibrariesLoaded());
    EXPECT_EQ(std::vector<std::string>{}, registry.Faults());
    EXPECT_EQ(std::vector<std::string>{}, spooler.Faults());
    ApplyLogSettings(kDefaultLogSettings);  // settings hold from one monitor of the process to the next
    ResetPlatform();
}

void MonitorFixture::Start()
{
    MONITORINIT init = registry.Init();
    table = InitializePrintMonitor2(&init, &monitor);
    ASSERT_NE(nullptr, table);
    spooler.AttachMonitor(table, monitor);
}

void MonitorFixture::Shutdown()
{
    if (monitor == nullptr)
        return;
    spooler.DetachMonitor(monitor);
    table->pfnShutdown(monitor);
    monitor = nullptr;
}

void MonitorFixture::Restart()
{
    Shutdown();
    Start();
}

XcvSession MonitorFixture::OpenXcv(const WideString& object, ACCESS_MASK access)
{
    return {*table, monitor, object, access};
}

DWORD MonitorFixture::AddPort(const WideString& name, const WideString& server, WORD number)
{
    return OpenXcv({}).Send(TEXT("AddPort"), PortRecord(name, server, number)).result;
}

DWORD MonitorFixture::DeletePort(const WideString& name)
{
    return OpenXcv({}).Call(TEXT("DeletePort"), WithNul(name)).result;
}

DWORD MonitorFixture::SetKeepAlive(const WideString& port, WORD periodSeconds, WORD timeoutSeconds)
{
    const krelXcvKeepAliveValues values = {kXcvRecordVersion, periodSeconds, timeoutSeconds};
    return OpenXcv(port).Send(TEXT("SetKeepAliveValues"), values).result;
}

HANDLE MonitorFixture::OpenPort(const WideString& name)
{
    HANDLE port = nullptr;
    table->pfnOpenPort(monitor, Text(Narrow(name)), &port);
    return port;
}

HANDLE MonitorFixture::AddAndOpenPort(const WideString& name, const WideString& server, WORD number)
{
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, AddPort(name, server, number));
    const HANDLE port = OpenPort(name);
    EXPECT_NE(nullptr, port);
    return port;
}

std::vector<std::string> MonitorFixture::PortNames()
{
    std::vector<std::string> names;
    for (const WideString& name : ListPortNames(*table, monitor))
        names.push_back(Narrow(name));
    return names;
}

LPWSTR MonitorFixture::Text(const std::string& text)
{
    texts.push_back(std::make_unique<WideString>(Wide(text)));
    return texts.back()->data();
}
