#include <cstring>
#include <thread>

#include "diagnostics/diagnostic_log.h"
#include "diagnostics/log_file.h"
#include "monitor/port_monitor.h"
#include "platform/test_switches.h"
#include "ports/ini_port.h"
#include "tests/support/monitor_fixture.h"
#include "tests/support/text.h"

namespace {

using Names = std::vector<std::string>;

constexpr WideStringView kName = TEXT("Remote TCP/IP Card Printer Port");
constexpr WideStringView kDescription = TEXT("Card Printer TCP/IP Port");
constexpr BYTE kGuard = 0xCD;

class MonitorStart : public MonitorFixture {};
class Monitor : public RunningMonitor {};

TEST_F(MonitorStart, HandsOutTheWholeTable)
{
    Start();
    EXPECT_EQ(160u, table->cbSize);
    const auto* slots = reinterpret_cast<void* const*>(table) + 1;
    std::string present;
    for (int i = 0; i < 19; i++)
        present += slots[i] != nullptr ? 'x' : '-';
    EXPECT_EQ("xx-xxxxx----x-xxxx-", present);
}

TEST_F(MonitorStart, OnlyVersion50GetsTheShorterSize)
{
    const std::pair<DWORD, DWORD> versions[] = {{5, 1}, {6, 0}, {4, 0}, {5, 0}};
    for (const auto& [major, minor] : versions) {
        test_switches::SetReportedVersion(major, minor);
        Restart();
        EXPECT_EQ(major == 5 && minor == 0 ? 148u : 160u, table->cbSize);
    }
    EXPECT_NE(nullptr, table->pfnShutdown);
    table->cbSize = 160;  // the table is the process's, and keeps its size from then on
}

TEST_F(MonitorStart, RefusesWhatItCannotWorkWith)
{
    MONITORINIT init{};
    HANDLE handle = this;
    EXPECT_EQ(nullptr, InitializePrintMonitor2(nullptr, &handle));
    EXPECT_EQ(nullptr, InitializePrintMonitor2(&init, &handle));  // no registry callbacks
    init = registry.Init();
    EXPECT_EQ(nullptr, InitializePrintMonitor2(&init, nullptr));
    EXPECT_EQ(this, handle);
}

TEST_F(MonitorStart, ReadsTheLogSettingsBeforeThePorts)
{
    registry.SetDword("Ports", "EventTypesToLog", krelpmEventTrace);
    registry.SetDword("Ports", "MaxLogFileSize", 7);
    registry.SetBytes("Ports", "LogToFile", {1, 2, 3, 4, 5});  // too long: keeps its value
    registry.AddPort("Card", TEXT("server"), 9100);
    Start();
    EXPECT_EQ(DWORD{krelpmEventTrace}, gEventTypesToLog);
    EXPECT_EQ(0u, gLogToFile);
    EXPECT_EQ(7u, gMaxLogFileSize);
    EXPECT_EQ((Names{"    {krelPortMonitor::CreatePortEntry",
                     "        {krelIniPort::krelIniPort: port = Card, server = server",
                     "        }krelIniPort::krelIniPort", "    }krelPortMonitor::CreatePortEntry",
                     "}krelPortMonitor::init"}),
              log.Messages());
}

TEST_F(MonitorStart, WithoutItsKeyStartsEmptyAndWithDefaults)
{
    registry.Fail(Registry::CreateKey, ERROR_ACCESS_DENIED);
    registry.Fail(Registry::OpenKey, ERROR_ACCESS_DENIED);
    Start();
    EXPECT_EQ(Names{}, PortNames());
    EXPECT_EQ(Names{}, log.Messages());
}

TEST_F(MonitorStart, SeveralMonitorsInOneProcessAreStrangers)
{
    Start();
    const HANDLE first = monitor;
    Start();
    EXPECT_EQ(0u, AddPort(TEXT("Second's"), TEXT("server"), 1));
    EXPECT_EQ(Names{"Second's"}, PortNames());
    spooler.DetachMonitor(monitor);
    table->pfnShutdown(monitor);
    monitor = first;
    EXPECT_EQ(Names{}, PortNames());
}

TEST_F(MonitorStart, TenThousandPortsLoadAndEnumerate)
{
    registry.SetDword("Ports", "LogToDebugOutput", 0);
    constexpr DWORD kPorts = 10000;
    for (DWORD i = 0; i < kPorts; i++)
        registry.AddPort("Card " + std::to_string(10000 + i), TEXT("127.0.0.1"), 9100);
    Start();
    EXPECT_EQ(kPorts, PortNames().size());
    EXPECT_EQ("Card 19999", PortNames().front());  // the last to be loaded
    EXPECT_NE(nullptr, OpenPort(TEXT("card 10000")));
}

TEST_F(Monitor, OpensPortsByNameIgnoringCase)
{
    HANDLE port = this;
    EXPECT_EQ(FALSE, table->pfnOpenPort(monitor, Text("Card"), &port));
    EXPECT_EQ(nullptr, port);
    AddPort(TEXT("Card"), TEXT("server"), 9100);
    log.Clear();
    EXPECT_EQ(TRUE, table->pfnOpenPort(monitor, Text("cARD"), &port));
    EXPECT_NE(nullptr, port);
    EXPECT_EQ((Names{"gOpenPort", "{krelPortMonitor::openPort", "    {krelIniPort::Open",
                     "    }krelIniPort::Open", "}krelPortMonitor::openPort"}),
              log.Messages());
    EXPECT_EQ(FALSE, table->pfnOpenPort(monitor, nullptr, &port));
    EXPECT_EQ(nullptr, port);
    EXPECT_EQ(FALSE, table->pfnOpenPort(monitor, Text("Card"), nullptr));
    EXPECT_EQ(FALSE, table->pfnXcvOpenPort(monitor, Text("Card"), 1, nullptr));
}

TEST_F(Monitor, NullHandlesAreNamedInTheLogAndRefused)
{
    HANDLE out = nullptr;
    DWORD count = 77;
    SetLastError(1234);
    const struct {
        const char* name;
        BOOL result;
    } calls[] = {
        {"gEnumPorts", table->pfnEnumPorts(nullptr, nullptr, 3, nullptr, 0, &count, &count)},
        {"gOpenPort", table->pfnOpenPort(nullptr, Text("Card"), &out)},
        {"gXcvOpenPort", table->pfnXcvOpenPort(nullptr, Text("Card"), 1, &out)},
        {"gStartDocPort", table->pfnStartDocPort(nullptr, nullptr, 0, 1, nullptr)},
        {"gWritePort", table->pfnWritePort(nullptr, nullptr, 0, &count)},
        {"gReadPort", table->pfnReadPort(nullptr, nullptr, 0, &count)},
        {"gEndDocPort", table->pfnEndDocPort(nullptr)},
        {"gClosePort", table->pfnClosePort(nullptr)},
        {"gGetPrinterDataFromPort",
         table->pfnGetPrinterDataFromPort(nullptr, 0, nullptr, nullptr, 0, nullptr, 0, &count)},
    };
    EXPECT_EQ(1234u, GetLastError());
    table->pfnShutdown(nullptr);
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER},
              table->pfnXcvDataPort(nullptr, TEXT("GetDebug"), nullptr, 0, nullptr, 0, nullptr));
    EXPECT_EQ(TRUE, table->pfnXcvClosePort(nullptr));
    Names expected;
    for (const auto& call : calls) {
        EXPECT_EQ(FALSE, call.result) << call.name;
        expected.push_back(call.name);
    }
    expected.insert(expected.end(), {"gShutdown", "gXcvDataPort", "gXcvClosePort"});
    Names written = log.Messages();
    std::erase_if(written, [](const std::string& message) { return message[0] != 'g'; });
    EXPECT_EQ(expected, written);
    EXPECT_EQ(77u, count);
    for (const LogLine& line : log.All())
        EXPECT_EQ("N/A", line.tag);
}

TEST_F(Monitor, PortFunctionsTagTheirThreadFromTheFirstLine)
{
    const HANDLE port = AddAndOpenPort(TEXT("Card"), TEXT("card-server"), 9100);
    log.Clear();
    EXPECT_EQ(TRUE, table->pfnClosePort(port));
    EXPECT_EQ((Names{"gClosePort", "{krelIniPort::Close", "}krelIniPort::Close"}), log.Messages());
    for (const LogLine& line : log.All())
        EXPECT_EQ("card-server:9100", line.tag);
    vexkitTypeDiagnosticPuts("afterwards");
    EXPECT_EQ("N/A", log.All().back().tag);
}

TEST_F(Monitor, AnExceptionLeavesNoEntryFunctionAndNoDocument)
{
    const HANDLE port = AddAndOpenPort(TEXT("Card"), TEXT("127.0.0.1"), 9);
    spooler.Before(Spooler::OpenPrinter, [] { throw std::bad_alloc(); });
    EXPECT_EQ(FALSE, table->pfnStartDocPort(port, Text("Printer"), 1, 1, nullptr));
    vexkitTypeDiagnosticPuts("afterwards");
    EXPECT_EQ("N/A", log.All().back().tag);
    EXPECT_FALSE(static_cast<krelIniPort*>(port)->IsLockedForPrinting());

    spooler.Before(Spooler::EnumPorts, [] { throw std::bad_alloc(); });
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, AddPort(TEXT("Other"), TEXT("server"), 1));
    spooler.Before(Spooler::EnumPorts, nullptr);
    registry.Before(Registry::SetValue, [] { throw std::bad_alloc(); });
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, AddPort(TEXT("Other"), TEXT("server"), 1));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, SetKeepAlive(TEXT("Card"), 1, 1));  // tells nothing of its registry
    registry.Before(Registry::SetValue, nullptr);
    static const auto closeKey = registry.Callbacks()->fpCloseKey;
    registry.Callbacks()->fpCloseKey = [](HKEYMONITOR key, HANDLE spoolerHandle) -> LONG {
        (void)closeKey(key, spoolerHandle);
        throw std::bad_alloc();
    };
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, AddPort(TEXT("Other"), TEXT("server"), 1));  // all is stored by then
    registry.Callbacks()->fpCloseKey = closeKey;
    EXPECT_EQ(0, spooler.IdentitiesOut());
    std::thread([&] { EXPECT_EQ((Names{"Other", "Card"}), PortNames()); }).join();  // the sections are free
}

// --- enumeration ---

class Enumeration : public RunningMonitor {
protected:
    // The records and strings in a buffer of the given size, as it lies after the call.
    std::vector<BYTE> ExpectedBuffer(const BYTE* base, DWORD level, DWORD size,
                                     const std::vector<WideString>& names)
    {
        std::vector<BYTE> expected(size, kGuard);
        const std::size_t recordSize = level == 2 ? 32 : 8;
        std::size_t end = size;
        for (std::size_t i = 0; i < names.size(); i++) {
            std::vector<WideString> strings = {names[i]};
            if (level == 2)
                strings.insert(strings.end(), {WideString(kName), WideString(kDescription)});
            for (std::size_t s = 0; s < strings.size(); s++) {
                const std::size_t bytes = (strings[s].size() + 1) * sizeof(WCHAR);
                end -= bytes;
                std::memcpy(&expected[end], strings[s].c_str(), bytes);
                const BYTE* address = base + end;
                std::memcpy(&expected[i * recordSize + s * 8], &address, sizeof(address));
            }
            if (level == 2)
                std::memcpy(&expected[i * recordSize + 24], "\1\0\0\0\0\0\0\0", 8);
        }
        return expected;
    }
};

TEST_F(Enumeration, PacksRecordsByteForByte)
{
    AddPort(TEXT("A"), TEXT("server"), 1);
    AddPort(TEXT("Longer name"), TEXT("server"), 2);
    const std::vector<WideString> newestFirst = {TEXT("Longer name"), TEXT("A")};
    for (const DWORD level : {1u, 2u}) {
        const DWORD strings = static_cast<DWORD>(kName.size() + kDescription.size());
        const DWORD expectedSize = level == 1 ? 2 * 8 + 2 * (2 + 12) : 2 * (38 + 2 * strings) + 2 * (1 + 11);
        for (const DWORD more : {0u, 1u, 2u, 97u}) {  // an odd size puts the strings on odd addresses
            SCOPED_TRACE(testing::Message() << "level " << level << ", " << more << " bytes more");
            const DWORD size = expectedSize + more;
            std::vector<BYTE> buffer(size, kGuard);
            DWORD needed = 0;
            DWORD returned = 0;
            EXPECT_EQ(TRUE,
                      table->pfnEnumPorts(monitor, nullptr, level, buffer.data(), size, &needed, &returned));
            EXPECT_EQ(expectedSize, needed);
            EXPECT_EQ(2u, returned);
            EXPECT_EQ(ExpectedBuffer(buffer.data(), level, size, newestFirst), buffer);
        }
    }
}

TEST_F(Enumeration, RefusesEveryBufferThatIsTooSmallUntouched)
{
    AddPort(TEXT("Card"), TEXT("server"), 1);
    for (DWORD size = 0; size < 8 + 10; size++) {
        std::vector<BYTE> buffer(size, kGuard);
        DWORD needed = 0;
        DWORD returned = 77;
        EXPECT_EQ(FALSE, table->pfnEnumPorts(monitor, nullptr, 1, buffer.data(), size, &needed, &returned));
        EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, GetLastError());
        EXPECT_EQ(18u, needed);
        EXPECT_EQ(77u, returned);
        EXPECT_EQ(std::vector<BYTE>(size, kGuard), buffer);
    }
}

TEST_F(Enumeration, LevelsEmptyTablesAndNullCounts)
{
    DWORD needed = 77;
    DWORD returned = 77;
    EXPECT_EQ(FALSE, table->pfnEnumPorts(monitor, nullptr, 3, nullptr, 1000, &needed, &returned));
    EXPECT_EQ(DWORD{ERROR_INVALID_LEVEL}, GetLastError());
    EXPECT_EQ(77u, needed + returned - 77);
    for (const DWORD level : {0u, 1u, 2u}) {
        SetLastError(1234);
        needed = returned = 77;
        EXPECT_EQ(TRUE, table->pfnEnumPorts(monitor, nullptr, level, nullptr, 0, &needed, &returned));
        EXPECT_EQ(0u, needed + returned);
        EXPECT_EQ(1234u, GetLastError());
        EXPECT_EQ(TRUE, table->pfnEnumPorts(monitor, nullptr, level, nullptr, 0, nullptr, nullptr));
    }
    AddPort(TEXT("Card"), TEXT("server"), 1);
    EXPECT_EQ(TRUE, table->pfnEnumPorts(monitor, Text("any server"), 0, nullptr, 0, &needed, &returned));
    EXPECT_EQ(0u, needed);
    EXPECT_EQ(1u, returned);
    EXPECT_EQ(FALSE, table->pfnEnumPorts(monitor, nullptr, 1, nullptr, 0, nullptr, nullptr));
    EXPECT_EQ(FALSE, table->pfnEnumPorts(monitor, nullptr, 1, nullptr, 1000, &needed, nullptr));
    EXPECT_EQ(18u, needed);
}

// --- the life of ports ---

TEST_F(Monitor, DeletedPortsLeaveTheTableWhereverTheyStand)
{
    for (const WCHAR* name : {TEXT("A"), TEXT("B"), TEXT("C"), TEXT("D")})
        AddPort(name, TEXT("server"), 1);
    EXPECT_EQ((Names{"D", "C", "B", "A"}), PortNames());
    EXPECT_EQ(0u, DeletePort(TEXT("b")));
    EXPECT_EQ((Names{"D", "C", "A"}), PortNames());
    EXPECT_EQ(0u, DeletePort(TEXT("A")));
    EXPECT_EQ(0u, DeletePort(TEXT("D")));
    EXPECT_EQ(Names{"C"}, PortNames());
    SetLastError(0);
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, DeletePort(TEXT("D")));
    EXPECT_EQ(DWORD{ERROR_UNKNOWN_PORT}, GetLastError());
    AddPort(TEXT("D"), TEXT("server"), 1);
    EXPECT_EQ((Names{"D", "C"}), PortNames());
}

// A port that takes its time to go holds up neither the spooler's look at the table nor its registry key's
// next owner for good.
TEST_F(Monitor, ADeletionThatHangsInTheSpoolerHoldsUpOnlyItsName)
{
    AddPort(TEXT("Other"), TEXT("server"), 1);
    const HANDLE port = AddAndOpenPort(TEXT("Card"), TEXT("127.0.0.1"), 9);
    DOC_INFO_2W channel{};
    channel.dwMode = DI_CHANNEL;  // opens the printer and nothing else
    EXPECT_EQ(TRUE, table->pfnStartDocPort(port, Text("Printer"), 1, 2, reinterpret_cast<LPBYTE>(&channel)));
    const Gate closing = spooler.Block(Spooler::ClosePrinter);
    std::thread deleting([&] { EXPECT_EQ(0u, DeletePort(TEXT("Card"))); });
    EXPECT_TRUE(closing.AwaitArrival());
    EXPECT_EQ(Names{"Other"}, PortNames());
    EXPECT_EQ(nullptr, OpenPort(TEXT("Card")));
    std::thread adding([&] { EXPECT_EQ(0u, AddPort(TEXT("Card"), TEXT("server"), 2)); });
    closing.Open();
    deleting.join();
    adding.join();
    EXPECT_EQ((Names{"Card", "Other"}), PortNames());
    EXPECT_TRUE(registry.HasKey("Ports/Card"));
}

TEST_F(Monitor, PortsComeAndGoWhileTheSpoolerLooks)
{
    std::atomic<bool> done = false;
    std::thread looking([&] {
        while (!done) {
            PortNames();
            OpenPort(TEXT("Card 1"));
            EXPECT_NE(
                DWORD{ERROR_INVALID_PARAMETER},
                OpenXcv(TEXT("Card 1")).Send(TEXT("GetPortProperties"), krelXcvVersionWord{1}, 236).result);
        }
    });
    for (int i = 0; i < 30; i++) {
        const WideString name = Wide("Card " + std::to_string(i % 3));
        EXPECT_EQ(0u, AddPort(name, TEXT("server"), 1));
        EXPECT_EQ(0u, DeletePort(name));
    }
    done = true;
    looking.join();
}

}  // namespace
