// What a tool may ask, and what it is told.

#include <algorithm>
#include <cstring>
#include <thread>

#include "platform/test_switches.h"
#include "ports/ini_port.h"
#include "tests/support/admin_fixture.h"

namespace {

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

// Each row breaks one test of its command and all those behind it as far as that can be; so it also shows
// their order. The object is "Card", an existing port, unless told otherwise.
TEST_F(Admin, EveryTestInItsOrder)
{
    const WideString unended(66, TEXT('n'));
    const WideString unnamed(67, TEXT('n'));
    const WCHAR* const monitorName = TEXT("Remote TCP/IP Card Printer Port");
    const WCHAR* const inAnotherCase = TEXT("remote TCP/IP Card Printer Port");
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
        {TEXT("GetPortError"), 0, TEXT(""), Query(1, 2, unnamed), 140, kBad, 140},
        {TEXT("GetPortError"), 0, TEXT("Card"), Query(1, 2, unnamed), 140, kBad, 140},
        {TEXT("GetPortError"), 0, unended.c_str(), Query(1, 2, unnamed), 140, kUnknown, 140},
        {TEXT("GetPortError"), 0, TEXT(""), Query(1, 2, TEXT("cARD")), 200, kOk, 140},
        {TEXT("GetPortError"), 0, monitorName, Query(1, 2, TEXT("Card")), 140, kOk, 140},
        {TEXT("GetPortError"), 0, inAnotherCase, Query(1, 2, TEXT("Card")), 140, kBad, 140},
        {TEXT("GetPortError"), 0, TEXT("Card"), Cut(Query(1, 2, TEXT("")), 150), 140, kOk, 140},
        {TEXT("GetPortError"), 0, TEXT("Card"), Query(1, 2, TEXT("Card")), 140, kOk, 140},

        {TEXT("GetPortProperties"), 0, TEXT("None"), Cut(Version(1), 3), 0, kBad, {}},
        {TEXT("GetPortProperties"), 0, TEXT("None"), Cut(Version(1), 5), 0, kBad, {}},
        {TEXT("GetPortProperties"), 0, TEXT("None"), Version(0), 0, kBad, {}},
        {TEXT("GetPortProperties"), 0, TEXT("None"), Version(1), 235, kTooSmall, 236},
        {TEXT("GetPortProperties"), 0, TEXT("None"), Version(1), 236, kUnknown, {}},
        {TEXT("GetPortProperties"), 0, TEXT("cARD"), Version(1), 300, kOk, {}},

        {TEXT("SetPortProperties"), 0, TEXT("None"), Cut(PortBytes({}, TEXT("s"), 1), 235), 0, kBad, {}},
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
    test_switches::FailCall("GetModuleFileNameW", ERROR_INVALID_HANDLE);
    EXPECT_EQ("FarlinkUI.dll" + std::string(1, '\0'), text(TEXT("MonitorUI"), 28));
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
        BYTE output[300];
        for (const DWORD size : {2u, 4u, 8u, 140u, 236u}) {  // as large as a record, and no record there
            (void)table->pfnXcvDataPort(session.Handle(), command, nullptr, size, output, 300, nullptr);
        }
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

TEST_F(Admin, ASessionOutlivesItsPortAndFindsTheNextOfItsName)
{
    const XcvSession session = OpenXcv(TEXT("Card"));
    EXPECT_EQ(kOk, DeletePort(TEXT("Card")));
    EXPECT_EQ(kUnknown, session.Call(TEXT("GetPortProperties"), Version(1), 236).result);
    EXPECT_EQ(kUnknown, session.Call(TEXT("SetKeepAliveValues"), KeepAlive(1, 1, 1)).result);
    EXPECT_EQ(kOk, AddPort(TEXT("CARD"), TEXT("new"), 1));
    EXPECT_EQ(kOk, session.Call(TEXT("GetPortProperties"), Version(1), 236).result);
}

TEST_F(Admin, TwoAdditionsOfOneNameMakeOnePort)
{
    // The spooler, and the registry, know that letters beyond ASCII have two cases.
    const std::pair<WideString, WideString> names[] = {{TEXT("Twin"), TEXT("tWIN")},
                                                       {TEXT("Drucker \u00C4"), TEXT("drucker \u00E4")}};
    for (const auto& [one, other] : names) {
        const Gate listed;  // both find the name free before either has added it
        spooler.After(Spooler::EnumPorts, [listed] { listed.Pass(); });
        DWORD results[2];
        std::thread first([&] { results[0] = AddPort(one, TEXT("first"), 1); });
        std::thread second([&] { results[1] = AddPort(other, TEXT("second"), 2); });
        EXPECT_TRUE(listed.AwaitArrival(2));
        listed.Open();
        first.join();
        second.join();
        EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, std::max(results[0], results[1]));
        EXPECT_EQ(kOk, std::min(results[0], results[1]));
        EXPECT_EQ(2u, PortNames().size());
        const WideString& added = results[0] == kOk ? one : other;
        EXPECT_EQ(WideString(results[0] == kOk ? TEXT("first") : TEXT("second")), ServerOf(added));
        EXPECT_EQ(kOk, DeletePort(added));
    }
}

TEST_F(Admin, TheSpoolersListDecidesWhichNamesAreFree)
{
    spooler.Refuse(Spooler::EnumPorts, 1722, 1);
    EXPECT_EQ(1722u, AddPort(TEXT("A"), TEXT("server"), 1));
    // The second call of the pair fails: the name counts as free, as far as this monitor can tell.
    int calls = 0;
    spooler.Before(Spooler::EnumPorts, [&] {
        if (++calls % 2 == 0)
            spooler.Refuse(Spooler::EnumPorts, 1722, 1);
    });
    EXPECT_EQ(kOk, AddPort(TEXT("COM1:"), TEXT("server"), 1));
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, AddPort(TEXT("Card"), TEXT("server"), 1));
    spooler.Reset();  // lists nothing at all
    EXPECT_EQ(kOk, AddPort(TEXT("C"), TEXT("server"), 1));
}

}  // namespace
