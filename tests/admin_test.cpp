#include <algorithm>
#include <cstring>
#include <thread>

#include "monitor/ini_port.h"
#include "tests/support/monitor_fixture.h"
#include "tests/support/text.h"

namespace {

using Names = std::vector<std::string>;
using Bytes = std::vector<BYTE>;
using Needed = std::optional<DWORD>;

constexpr DWORD kOk = ERROR_SUCCESS;
constexpr DWORD kDenied = ERROR_ACCESS_DENIED;
constexpr DWORD kBad = ERROR_INVALID_PARAMETER;
constexpr DWORD kTooSmall = ERROR_INSUFFICIENT_BUFFER;
constexpr DWORD kUnknown = ERROR_UNKNOWN_PORT;

const LPCWSTR kCommands[] = {
    TEXT("MonitorUI"),          TEXT("AddPort"),
    TEXT("DeletePort"),         TEXT("GetPortError"),
    TEXT("GetPortProperties"),  TEXT("SetPortProperties"),
    TEXT("GetVersionInfo"),     TEXT("GetDebug"),
    TEXT("GetAboutString"),     TEXT("SetKeepAliveValues"),
    TEXT("GetKeepAliveValues"), TEXT("GetDefaultKeepAliveValues"),
};

Bytes Version(DWORD version)
{
    return BytesOf(krelXcvVersionWord{version});
}

Bytes Query(DWORD version, WORD kind, const WideString& name)
{
    krelXcvPortErrorQuery query{version, kind, {}};
    name.copy(query.portName, 67);
    return BytesOf(query);
}

Bytes PortBytes(const WideString& name, const WideString& server, DWORD version)
{
    krelXcvPortData record = PortRecord(name, server, 9100);
    record.version = version;
    return BytesOf(record);
}

Bytes KeepAlive(DWORD version, WORD period, WORD timeout)
{
    return BytesOf(krelXcvKeepAliveValues{version, period, timeout});
}

Bytes Cut(Bytes bytes, std::size_t size)
{
    bytes.resize(size);
    return bytes;
}

Bytes WideBytes(const WideString& text)
{
    Bytes bytes(text.size() * sizeof(WCHAR));
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

class Admin : public RunningMonitor {
protected:
    void SetUp() override
    {
        RunningMonitor::SetUp();
        spooler.AddForeignPort(TEXT("COM1:"));
        ASSERT_EQ(kOk, AddPort(TEXT("Card"), TEXT("server"), 9100));
    }

    krelIniPort& Port(const WideString& name) { return *static_cast<krelIniPort*>(OpenPort(name)); }
    WideString ServerOf(const WideString& port)
    {
        return OpenXcv(port).Call(TEXT("GetPortProperties"), Version(1), 236).As<krelXcvPortData>().server;
    }
};

// Each row breaks one test of its command and all those behind it as far as that can be; so it also shows
// their order. The object is "Card", an existing port, unless told otherwise.
TEST_F(Admin, EveryTestInItsOrder)
{
    const WideString unended(66, TEXT('n'));
    const struct {
        LPCWSTR command;
        ACCESS_MASK access;
        const WCHAR* object;
        Bytes input;
        DWORD outputSize;
        DWORD result;
        Needed needed;
    } rows[] = {
        {TEXT("AddPort"), 0, TEXT(""), {}, 0, kDenied, {}},
        {TEXT("AddPort"), ~1u, TEXT(""), PortBytes(TEXT("New"), TEXT("s"), 1), 0, kDenied, {}},
        {TEXT("AddPort"), 1, TEXT(""), Cut(PortBytes(TEXT("Card"), unended, 2), 235), 0, kBad, {}},
        {TEXT("AddPort"), 1, TEXT(""), PortBytes(TEXT("Card"), unended, 2), 0, kBad, {}},
        {TEXT("AddPort"), 1, TEXT(""), PortBytes(unended, TEXT("s"), 2), 0, kBad, {}},
        {TEXT("AddPort"), 1, TEXT(""), PortBytes(TEXT(""), TEXT("s"), 2), 0, kBad, {}},
        {TEXT("AddPort"), 1, TEXT(""), PortBytes(TEXT("Card"), TEXT("s"), 2), 0, ERROR_NOT_SUPPORTED, {}},
        {TEXT("AddPort"), 1, TEXT(""), PortBytes(TEXT("cARD"), TEXT("s"), 1), 0, ERROR_ALREADY_EXISTS, {}},
        {TEXT("AddPort"), 1, TEXT(""), PortBytes(TEXT("com1:"), TEXT("s"), 1), 0, ERROR_ALREADY_EXISTS, {}},

        {TEXT("DeletePort"), 0, TEXT("Card"), {}, 0, kDenied, {}},
        {TEXT("DeletePort"), 1, TEXT("Card"), {}, 0, kBad, {}},
        {TEXT("DeletePort"), 1, TEXT("Card"), WideBytes(TEXT("Card")), 0, kBad, {}},
        {TEXT("DeletePort"), 1, TEXT("Card"), Bytes(1), 0, kBad, {}},
        {TEXT("DeletePort"), 1, TEXT("Card"), Bytes(2), 0, ERROR_FILE_NOT_FOUND, {}},
        {TEXT("DeletePort"), 1, TEXT("Card"), WideBytes({TEXT("COM1:"), 6}), 0, ERROR_FILE_NOT_FOUND, {}},

        {TEXT("GetPortError"), 0, TEXT("None"), {}, 139, kTooSmall, 140},
        {TEXT("GetPortError"), 0, TEXT("None"), Cut(Query(1, 2, TEXT("")), 139), 140, kBad, 140},
        {TEXT("GetPortError"), 0, TEXT("None"), Query(2, 2, TEXT("")), 140, kBad, 140},
        {TEXT("GetPortError"), 0, TEXT("None"), Query(1, 1, TEXT("")), 140, kBad, 140},
        {TEXT("GetPortError"), 0, TEXT("None"), Query(1, 2, TEXT("Card")), 140, kBad, 140},
        {TEXT("GetPortError"), 0, TEXT("Card"), Query(1, 2, TEXT("card")), 140, kBad, 140},
        {TEXT("GetPortError"), 0, TEXT("None"), Query(1, 2, TEXT("None")), 140, kUnknown, 140},
        {TEXT("GetPortError"), 0, TEXT(""), Query(1, 2, TEXT("")), 140, kUnknown, 140},
        {TEXT("GetPortError"), 0, TEXT(""), Query(1, 2, WideString(67, TEXT('n'))), 140, kBad, 140},
        {TEXT("GetPortError"), 0, TEXT(""), Query(1, 2, TEXT("cARD")), 200, kOk, 140},
        {TEXT("GetPortError"), 0, TEXT("Remote TCP/IP Card Printer Port"), Query(1, 2, TEXT("Card")), 140,
         kOk, 140},
        {TEXT("GetPortError"), 0, TEXT("remote TCP/IP Card Printer Port"), Query(1, 2, TEXT("Card")), 140,
         kBad, 140},
        {TEXT("GetPortError"), 0, TEXT("Card"), Cut(Query(1, 2, TEXT("")), 150), 140, kOk, 140},
        {TEXT("GetPortError"), 0, TEXT("Card"), Query(1, 2, TEXT("Card")), 140, kOk, 140},

        {TEXT("GetPortProperties"), 0, TEXT("None"), Cut(Version(1), 3), 0, kBad, {}},
        {TEXT("GetPortProperties"), 0, TEXT("None"), Cut(Version(1), 5), 0, kBad, {}},
        {TEXT("GetPortProperties"), 0, TEXT("None"), Version(0), 0, kBad, {}},
        {TEXT("GetPortProperties"), 0, TEXT("None"), Version(1), 235, kTooSmall, 236},
        {TEXT("GetPortProperties"), 0, TEXT("None"), Version(1), 236, kUnknown, {}},
        {TEXT("GetPortProperties"), 0, TEXT("cARD"), Version(1), 300, kOk, {}},

        {TEXT("SetPortProperties"),
         0,
         TEXT("None"),
         Cut(PortBytes(TEXT(""), TEXT("s"), 1), 235),
         0,
         kBad,
         {}},
        {TEXT("SetPortProperties"), 0, TEXT("None"), PortBytes(TEXT(""), TEXT("s"), 2), 0, kBad, {}},
        {TEXT("SetPortProperties"), 0, TEXT("None"), PortBytes(TEXT(""), unended, 1), 0, kBad, {}},
        {TEXT("SetPortProperties"), 0, TEXT("None"), PortBytes(TEXT("Card"), TEXT("s"), 1), 0, kUnknown, {}},
        {TEXT("SetPortProperties"), 0, TEXT("Card"), PortBytes(unended, TEXT("server"), 1), 0, kOk, {}},

        {TEXT("SetKeepAliveValues"), 0, TEXT("None"), {}, 0, kDenied, {}},
        {TEXT("SetKeepAliveValues"), 1, TEXT("None"), {}, 0, kUnknown, {}},
        {TEXT("SetKeepAliveValues"), 1, TEXT("Card"), Cut(KeepAlive(1, 1, 1), 7), 0, kBad, {}},
        {TEXT("SetKeepAliveValues"), 1, TEXT("Card"), KeepAlive(2, 1, 1), 0, kBad, {}},

        {TEXT("GetKeepAliveValues"), 0, TEXT("None"), {}, 0, kUnknown, {}},
        {TEXT("GetKeepAliveValues"), 0, TEXT("Card"), {}, 7, kTooSmall, 8},
        {TEXT("GetKeepAliveValues"), 0, TEXT("Card"), KeepAlive(1, 1, 1), 8, kBad, 8},
        {TEXT("GetKeepAliveValues"), 0, TEXT("Card"), Version(2), 8, kBad, 8},
        {TEXT("GetKeepAliveValues"), 0, TEXT("Card"), Version(1), 8, kOk, 8},

        {TEXT("GetDefaultKeepAliveValues"), 0, TEXT("None"), {}, 7, kTooSmall, 8},
        {TEXT("GetDefaultKeepAliveValues"), 0, TEXT("None"), Version(2), 8, kBad, 8},
        {TEXT("GetDefaultKeepAliveValues"), 0, TEXT("None"), Version(1), 8, kOk, 8},

        {TEXT("MonitorUI"), 0, TEXT(""), {}, 39, kTooSmall, 40},
        {TEXT("MonitorUI"), 0, TEXT(""), {}, 40, kOk, 40},
        {TEXT("GetAboutString"), 0, TEXT(""), {}, 217, kTooSmall, 218},
        {TEXT("GetAboutString"), 0, TEXT(""), {}, 218, kOk, {}},
        {TEXT("GetVersionInfo"), 1, TEXT("Card"), Bytes(300), 300, ERROR_NOT_SUPPORTED, {}},
        {TEXT("GetDebug"), 0, TEXT(""), {}, 0, kOk, {}},

        {TEXT("getDebug"), 1, TEXT("Card"), {}, 0, kBad, {}},
        {TEXT("GetDebug "), 1, TEXT("Card"), {}, 0, kBad, {}},
        {TEXT("GetDebu"), 1, TEXT("Card"), {}, 0, kBad, {}},
        {TEXT(""), 1, TEXT("Card"), {}, 0, kBad, {}},
    };
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << number++ << ": " << Narrow(row.command));
        const XcvAnswer answer = OpenXcv(row.object, row.access).Call(row.command, row.input, row.outputSize);
        EXPECT_EQ(row.result, answer.result);
        EXPECT_EQ(row.needed, answer.needed);
        if (row.result != kOk) {
            EXPECT_EQ(Bytes(row.outputSize, 0xCD), answer.output);
        }
    }
    EXPECT_EQ(Names{"Card"}, PortNames());
}

TEST_F(Admin, TheMonitorTellsItsTextsByItsFilesName)
{
    const auto text = [&](LPCWSTR command, DWORD size) {
        const Bytes output = OpenXcv(TEXT("")).Call(command, {}, size).output;
        WideString wide(size / sizeof(WCHAR), 0);
        std::memcpy(wide.data(), output.data(), size);
        return Narrow(wide);
    };
    EXPECT_EQ("farlink_testsUI.dll" + std::string(1, '\0'), text(TEXT("MonitorUI"), 40));
    EXPECT_EQ(
        "Version 1.1.2.18\nBuild 1252873320\nRemote TCP/IP Card Printer Port\nCard Printer TCP/IP Port\n"
        "farlink_tests.dll" +
            std::string(1, '\0'),
        text(TEXT("GetAboutString"), 218));
}

// Buffers of every size, at their exact ends: the sanitizers see a step behind them, and the guard
// bytes show that a failed command wrote nothing.
TEST_F(Admin, EveryCommandWithEveryBufferSize)
{
    const XcvSession session = OpenXcv(TEXT("Card"));
    for (const LPCWSTR command : kCommands) {
        const bool isChanging = WideStringView(command) == TEXT("AddPort");
        for (DWORD size = 0; size <= 300; size++) {
            for (const BYTE fill : {BYTE{0}, BYTE{1}, BYTE{0xFF}}) {
                const XcvAnswer answer = session.Call(command, Bytes(size, fill), size);
                if (answer.result != kOk) {
                    ASSERT_EQ(Bytes(size, 0xCD), answer.output) << Narrow(command) << " with " << size;
                }
                ASSERT_FALSE(isChanging && answer.result == kOk);
            }
        }
    }
}

TEST_F(Admin, NullPointersAreRefusedNotFollowed)
{
    const XcvSession session = OpenXcv(TEXT("Card"));
    for (const LPCWSTR command : kCommands) {
        SCOPED_TRACE(Narrow(command));
        const WideStringView name = command;
        DWORD expected = kBad;  // absent input or absent output with a sufficient size
        if (name == TEXT("GetVersionInfo"))
            expected = ERROR_NOT_SUPPORTED;
        else if (name == TEXT("GetDebug"))
            expected = kOk;
        else if (name.ends_with(TEXT("KeepAliveValues")) && name.starts_with(TEXT("Get")))
            expected = kTooSmall;
        EXPECT_EQ(expected,
                  table->pfnXcvDataPort(session.Handle(), command, nullptr, 300, nullptr, 300, nullptr));
    }
    EXPECT_EQ(kBad, table->pfnXcvDataPort(session.Handle(), nullptr, nullptr, 0, nullptr, 0, nullptr));
    EXPECT_EQ(kBad, table->pfnXcvDataPort(session.Handle(), TEXT("GetAboutString"), nullptr, 0, nullptr, 0,
                                          nullptr));
    DWORD needed = 0;
    Bytes version = Version(1);
    EXPECT_EQ(kBad, table->pfnXcvDataPort(session.Handle(), TEXT("GetPortProperties"), version.data(), 4,
                                          nullptr, 236, &needed));
    HANDLE nameless = nullptr;
    EXPECT_EQ(TRUE, table->pfnXcvOpenPort(monitor, nullptr, 1, &nameless));
    Bytes query = Query(1, 2, TEXT("Card"));
    BYTE output[140];
    EXPECT_EQ(kOk,
              table->pfnXcvDataPort(nameless, TEXT("GetPortError"), query.data(), 140, output, 140, &needed));
    EXPECT_EQ(TRUE, table->pfnXcvClosePort(nameless));
}

TEST_F(Admin, RecordsMayLieOnOddAddresses)
{
    const Bytes port = PortBytes(TEXT("Odd"), TEXT("odd-server"), 1);
    Bytes input(port.size() + 1);
    std::copy(port.begin(), port.end(), input.begin() + 1);
    const XcvSession session = OpenXcv(TEXT("Odd"));
    EXPECT_EQ(kOk,
              table->pfnXcvDataPort(session.Handle(), TEXT("AddPort"), &input[1], 236, nullptr, 0, nullptr));
    Bytes output(237);
    const Bytes version = Cut(Bytes{0, 1}, 5);
    EXPECT_EQ(kOk, table->pfnXcvDataPort(session.Handle(), TEXT("GetPortProperties"),
                                         const_cast<PBYTE>(&version[1]), 4, &output[1], 236, nullptr));
    EXPECT_EQ(port, Bytes(output.begin() + 1, output.end()));
}

TEST_F(Admin, PropertiesAreWrittenUpToTheirNulAndNoFurther)
{
    krelXcvPortData expected;
    std::memset(&expected, 0xCD, sizeof(expected));
    std::memcpy(expected.portName, TEXT("Card"), 5 * sizeof(WCHAR));
    expected.version = 1;
    std::memcpy(expected.server, TEXT("server"), 7 * sizeof(WCHAR));
    expected.portNumber = 9100;
    Bytes bytes = BytesOf(expected);
    bytes.resize(240, 0xCD);
    EXPECT_EQ(bytes, OpenXcv(TEXT("card")).Call(TEXT("GetPortProperties"), Version(1), 240).output);
}

TEST_F(Admin, TheLongestNamesFit)
{
    const WideString name(65, TEXT('n'));
    const WideString server(48, TEXT('s'));
    EXPECT_EQ(kOk, AddPort(name, server, 65535));
    Restart();
    const auto record = OpenXcv(name).Call(TEXT("GetPortProperties"), Version(1), 236).As<krelXcvPortData>();
    EXPECT_EQ(name, record.portName);
    EXPECT_EQ(server, record.server);
    EXPECT_EQ(65535, record.portNumber);
    // A session's object is cut at 66 characters, so it reaches no port of a longer name.
    EXPECT_EQ(kUnknown,
              OpenXcv(WideString(80, TEXT('n'))).Call(TEXT("GetPortProperties"), Version(1), 236).result);
    EXPECT_EQ(kOk, OpenXcv(WideString(80, TEXT('n'))).Call(TEXT("GetDebug")).result);
}

TEST_F(Admin, SettingsPersistOverARestart)
{
    EXPECT_EQ(kOk, SetKeepAlive(TEXT("Card"), 0, 65535));
    EXPECT_EQ(kOk, OpenXcv(TEXT("cARD"))
                       .Send(TEXT("SetPortProperties"), PortRecord(TEXT("ignored"), TEXT("other"), 7))
                       .result);
    EXPECT_EQ(kOk, AddPort(TEXT("Plain"), TEXT(""), 0));
    for (int start = 0; start < 2; start++) {
        const auto port =
            OpenXcv(TEXT("Card")).Call(TEXT("GetPortProperties"), Version(1), 236).As<krelXcvPortData>();
        EXPECT_EQ(WideString(TEXT("Card")), port.portName);
        EXPECT_EQ(WideString(TEXT("other")), port.server);
        EXPECT_EQ(7, port.portNumber);
        EXPECT_EQ(KeepAlive(1, 0, 65535),
                  OpenXcv(TEXT("Card")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
        EXPECT_EQ(KeepAlive(1, 5, 20),
                  OpenXcv(TEXT("Plain")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
        EXPECT_EQ(KeepAlive(1, 5, 20),
                  OpenXcv(TEXT("")).Call(TEXT("GetDefaultKeepAliveValues"), Version(1), 8).output);
        Restart();
    }
    EXPECT_EQ(std::nullopt, registry.Dword("Ports/Plain", "Keep Alive Timeout"));
    EXPECT_EQ(kOk, DeletePort(TEXT("Card")));
    Restart();
    EXPECT_EQ(Names{"Plain"}, PortNames());
}

TEST_F(Admin, ASessionOutlivesItsPortAndFindsTheNextOfItsName)
{
    const XcvSession session = OpenXcv(TEXT("Card"));
    EXPECT_EQ(kOk, DeletePort(TEXT("Card")));
    EXPECT_EQ(kUnknown, session.Call(TEXT("GetPortProperties"), Version(1), 236).result);
    EXPECT_EQ(kUnknown, session.Call(TEXT("SetKeepAliveValues"), KeepAlive(1, 1, 1)).result);
    EXPECT_EQ(kOk, AddPort(TEXT("CARD"), TEXT("new"), 1));
    EXPECT_EQ(kOk, session.Call(TEXT("GetPortProperties"), Version(1), 236).result);
}

TEST_F(Admin, ABusyPortKeepsItsSettings)
{
    krelIniPort& port = Port(TEXT("Card"));
    ASSERT_TRUE(port.LockPortForPrinting());
    EXPECT_EQ(DWORD{ERROR_BUSY}, SetKeepAlive(TEXT("Card"), 1, 1));
    EXPECT_EQ(
        DWORD{ERROR_BUSY},
        OpenXcv(TEXT("Card")).Send(TEXT("SetPortProperties"), PortRecord(TEXT(""), TEXT("other"), 7)).result);
    EXPECT_EQ(WideString(TEXT("server")), ServerOf(TEXT("Card")));
    EXPECT_EQ(TEXT("server"), registry.Text("Ports/Card", "Print Server"));
    port.Cleanup();
    EXPECT_EQ(kOk, SetKeepAlive(TEXT("Card"), 1, 1));
}

TEST_F(Admin, TwoAdditionsOfOneNameMakeOnePort)
{
    const Gate listed;  // both find the name free before either has added it
    spooler.After(Spooler::EnumPorts, [listed] { listed.Pass(); });
    DWORD results[2];
    std::thread first([&] { results[0] = AddPort(TEXT("Twin"), TEXT("first"), 1); });
    std::thread second([&] { results[1] = AddPort(TEXT("tWIN"), TEXT("second"), 2); });
    EXPECT_TRUE(listed.AwaitArrival(2));
    listed.Open();
    first.join();
    second.join();
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, std::max(results[0], results[1]));
    EXPECT_EQ(kOk, std::min(results[0], results[1]));
    EXPECT_EQ(2u, PortNames().size());
    EXPECT_EQ(WideString(results[0] == kOk ? TEXT("first") : TEXT("second")), ServerOf(TEXT("Twin")));
}

TEST_F(Admin, TheSpoolersListDecidesWhichNamesAreFree)
{
    spooler.Refuse(Spooler::EnumPorts, 1722, 1);
    EXPECT_EQ(1722u, AddPort(TEXT("A"), TEXT("server"), 1));
    // The second call of the pair fails: the name counts as free.
    spooler.Before(Spooler::EnumPorts, [&, calls = 0]() mutable {
        if (++calls == 2)
            spooler.Refuse(Spooler::EnumPorts, 1722, 1);
    });
    EXPECT_EQ(kOk, AddPort(TEXT("B"), TEXT("server"), 1));
    spooler.Reset();  // lists nothing at all
    EXPECT_EQ(kOk, AddPort(TEXT("C"), TEXT("server"), 1));
}

// --- the registry refuses ---

TEST_F(Admin, AnAdditionThatTheRegistryRefusesLeavesNoPort)
{
    const std::pair<Registry, int> steps[] = {
        {Registry::CreateKey, 0}, {Registry::CreateKey, 1}, {Registry::SetValue, 0}, {Registry::SetValue, 1}};
    for (const auto& [callback, skip] : steps) {
        registry.Fail(callback, ERROR_ACCESS_DENIED, skip);
        EXPECT_EQ(kDenied, AddPort(TEXT("New"), TEXT("server"), 1));
        EXPECT_EQ(Names{"Card"}, PortNames());
        EXPECT_EQ(0, registry.OpenKeys());
        registry.StopFailing();
    }
    // What the last one had stored stays, and isn't enough for a port.
    EXPECT_EQ((Names{"Card", "New"}), registry.Subkeys("Ports"));
    Restart();
    EXPECT_EQ(Names{"Card"}, PortNames());
    EXPECT_EQ(kOk, AddPort(TEXT("New"), TEXT("server"), 1));
}

TEST_F(Admin, AChangeThatTheRegistryRefusesDoesNotReachThePort)
{
    const std::pair<Registry, int> steps[] = {{Registry::OpenKey, 0},
                                              {Registry::OpenKey, 1},
                                              {Registry::OpenKey, 3},
                                              {Registry::SetValue, 0},
                                              {Registry::SetValue, 1}};
    for (const auto& [callback, skip] : steps) {
        registry.Fail(callback, ERROR_ACCESS_DENIED, skip);
        EXPECT_EQ(kDenied, OpenXcv(TEXT("Card"))
                               .Send(TEXT("SetPortProperties"), PortRecord(TEXT(""), TEXT("other"), 7))
                               .result);
        EXPECT_EQ(WideString(TEXT("server")), ServerOf(TEXT("Card")));
        registry.StopFailing();
    }
    EXPECT_EQ(TEXT("other"), registry.Text("Ports/Card", "Print Server"));  // the number was refused
    EXPECT_EQ(9100u, registry.Dword("Ports/Card", "Port Number"));
}

TEST_F(Admin, RefusedKeepAliveValuesHoldUntilTheRestart)
{
    registry.Fail(Registry::SetValue, ERROR_ACCESS_DENIED, 0, 2);
    EXPECT_EQ(kOk, SetKeepAlive(TEXT("Card"), 3, 4));
    EXPECT_EQ(KeepAlive(1, 3, 4),
              OpenXcv(TEXT("Card")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
    Restart();
    EXPECT_EQ(KeepAlive(1, 5, 20),
              OpenXcv(TEXT("Card")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
}

TEST_F(Admin, ADeletionThatTheRegistryRefusesLastsUntilTheRestart)
{
    for (const Registry callback : {Registry::OpenKey, Registry::DeleteKey}) {
        registry.Fail(callback, ERROR_ACCESS_DENIED);
        EXPECT_EQ(kOk, DeletePort(TEXT("Card")));
        EXPECT_EQ(Names{}, PortNames());
        Restart();
        EXPECT_EQ(Names{"Card"}, PortNames());
    }
}

TEST_F(Admin, MalformedEntriesArePassedOverAndLeftAlone)
{
    registry.MakeKey("Ports/1 Empty");
    registry.SetText("Ports/2 No number", "Print Server", TEXT("server"));
    registry.SetDword("Ports/3 No server", "Port Number", 1);
    registry.AddPort("4 Long server", WideString(49, TEXT('s')), 1);
    registry.AddPort(std::string(67, '5'), TEXT("server"), 1);
    registry.AddPort("6 Huge server", WideString(499, TEXT('s')), 1);
    registry.AddPort("7 Long number", TEXT("server"), 1);
    registry.SetBytes("Ports/7 Long number", "Port Number", Bytes(5));

    registry.AddPort(std::string(66, '8'), WideString(48, TEXT('s')), 0x12345);
    registry.SetBytes("Ports/9 No NUL", "Print Server", WideBytes(TEXT("server")));
    registry.SetDword("Ports/9 No NUL", "Port Number", 9100);
    registry.SetDword("Ports/9 No NUL", "Keep Alive Timeout", 0x10007);
    // 998 bytes pass the size test and hold a short text.
    WideString padded = TEXT("short");
    padded.resize(499, 0);
    registry.SetBytes("Ports/Padded", "Print Server", WideBytes(padded));
    registry.SetDword("Ports/Padded", "Port Number", 1);
    const Names before = registry.Subkeys("Ports");
    Restart();
    EXPECT_EQ((Names{"Padded", "Card", "9 No NUL", std::string(66, '8')}), PortNames());
    EXPECT_EQ(before, registry.Subkeys("Ports"));
    EXPECT_EQ(WideString(TEXT("server")), ServerOf(TEXT("9 No NUL")));
    EXPECT_EQ(KeepAlive(1, 5, 7),
              OpenXcv(TEXT("9 No NUL")).Call(TEXT("GetKeepAliveValues"), Version(1), 8).output);
    // A name of 66 characters is one too long for the record's field, and is cut there.
    const auto longest = OpenXcv(WideString(66, TEXT('8')))
                             .Call(TEXT("GetPortProperties"), Version(1), 236)
                             .As<krelXcvPortData>();
    EXPECT_EQ(WideString(65, TEXT('8')), longest.portName);
    EXPECT_EQ(1u, longest.version);
    EXPECT_EQ(0x2345, longest.portNumber);

    registry.Fail(Registry::OpenKey, ERROR_ACCESS_DENIED, 8);  // the key of the name of 66 characters
    registry.Fail(Registry::EnumKey, ERROR_ACCESS_DENIED, 9);  // looks like the end of the list
    Restart();
    EXPECT_EQ(Names{"9 No NUL"}, PortNames());
}

// --- identity ---

class Identity : public Admin {
protected:
    // What the command asked of the spooler and the registry, in the order of both together.
    Names RecordOf(const std::function<void()>& command)
    {
        Names record;
        const std::pair<Spooler, const char*> steps[] = {{Spooler::EnumPorts, "list"},
                                                         {Spooler::LoadSpoolss, "load"},
                                                         {Spooler::Revert, "revert"},
                                                         {Spooler::Impersonate, "return"},
                                                         {Spooler::FreeSpoolss, "free"}};
        for (const auto& [call, name] : steps) {
            spooler.Before(call, [this, &record, name = name] {
                AddRegistryCalls(record);
                record.push_back(name);
            });
        }
        registry.ForgetCalls();
        command();
        AddRegistryCalls(record);
        return record;
    }

private:
    void AddRegistryCalls(Names& record)
    {
        if (!registry.Calls().empty())
            record.push_back("registry");
        registry.ForgetCalls();
    }
};

TEST_F(Identity, ChangingCommandsReachTheRegistryAsTheSpooler)
{
    const Names scope = {"load", "revert", "registry", "return", "free"};
    EXPECT_EQ((Names{"list", "list", "load", "revert", "registry", "return", "free"}),
              RecordOf([&] { AddPort(TEXT("New"), TEXT("server"), 1); }));
    EXPECT_EQ(scope, RecordOf([&] { SetKeepAlive(TEXT("New"), 1, 1); }));
    EXPECT_EQ(scope, RecordOf([&] {
                  OpenXcv(TEXT("New")).Send(TEXT("SetPortProperties"), PortRecord(TEXT(""), TEXT("s"), 1));
              }));
    EXPECT_EQ(scope, RecordOf([&] { DeletePort(TEXT("New")); }));
    EXPECT_EQ((Names{"list", "list"}), RecordOf([&] { AddPort(TEXT("Card"), TEXT("server"), 1); }));
    EXPECT_EQ(Names{}, RecordOf([&] {
                  for (const LPCWSTR command : kCommands)
                      OpenXcv(TEXT("Card"), 0).Call(command, Version(1), 300);
              }));
    ASSERT_TRUE(Port(TEXT("Card")).LockPortForPrinting());
    EXPECT_EQ((Names{"load", "revert", "return", "free"}),
              RecordOf([&] { SetKeepAlive(TEXT("Card"), 1, 1); }));
    Port(TEXT("Card")).Cleanup();
}

TEST_F(Identity, WithoutTheSpoolersLibraryCommandsRunAsTheClient)
{
    const struct {
        Spooler refused;
        std::string failure;
        Names steps;
    } cases[] = {
        {Spooler::LoadSpoolss, "Unable to load spoolss.dll", {"load", "registry"}},
        {Spooler::FindRevert, "Failed to get address of RevertToPrinterSelf()", {"load", "registry", "free"}},
        {Spooler::FindImpersonate,
         "Failed to get address of ImpersonatePrinterClient()",
         {"load", "registry", "free"}},
        {Spooler::Revert, "", {"load", "revert", "registry", "free"}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.failure);
        log.Clear();
        spooler.Refuse(one.refused, 5, 1);
        EXPECT_EQ(one.steps, RecordOf([&] { EXPECT_EQ(kOk, SetKeepAlive(TEXT("Card"), 1, 1)); }));
        Names expected;
        if (!one.failure.empty())
            expected.push_back("krelRevertToPrinterSelf::krelRevertToPrinterSelf: " + one.failure);
        EXPECT_EQ(expected, log.Failures());
    }
}

TEST_F(Identity, TheScopeLiesInsideTheCommandsScope)
{
    log.Clear();
    DeletePort(TEXT("Card"));
    EXPECT_EQ((Names{"gXcvOpenPort", "{krelPortMonitor::xcvOpenPort", "}krelPortMonitor::xcvOpenPort",
                     "gXcvDataPort", "{krelPortMonitorXcvHandler::XcvDataPort",
                     "    {krelRevertToPrinterSelf::krelRevertToPrinterSelf",
                     "    }krelRevertToPrinterSelf::krelRevertToPrinterSelf",
                     "    {krelPortMonitor::deletePortEntry", "        {krelIniPort::~krelIniPort",
                     "            {krelIniPort::Cleanup", "            }krelIniPort::Cleanup",
                     "        }krelIniPort::~krelIniPort", "    }krelPortMonitor::deletePortEntry",
                     "    {krelRevertToPrinterSelf::~krelRevertToPrinterSelf",
                     "    }krelRevertToPrinterSelf::~krelRevertToPrinterSelf",
                     "}krelPortMonitorXcvHandler::XcvDataPort", "gXcvClosePort",
                     "{krelPortMonitorXcvHandler::xcvClosePort", "}krelPortMonitorXcvHandler::xcvClosePort"}),
              log.Messages());
}

}  // namespace
