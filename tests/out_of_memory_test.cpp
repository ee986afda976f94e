// Memory that runs out inside the spooler's calls: each of a call's allocations fails in turn. The call says
// so or makes do without, nothing is left half done, and the next call finds all in order.

#include <set>

#include "monitor/library_entry.h"
#include "ports/ini_port.h"
#include "tests/support/failing_new.h"
#include "tests/support/printing_fixture.h"
#include "tests/support/text.h"

using namespace printserver;  // NOLINT(google-build-using-namespace): the server's own vocabulary

namespace {

// Makes the call with its first allocation failing, then with its second, until there is none left to fail;
// `check` sees each result. Gives the last call's result, which had all the memory that it wanted.
template <class Call, class Check>
auto AtEachAllocation(Call call, Check check)
{
    for (int which = 1;; ++which) {
        SCOPED_TRACE(testing::Message() << "allocation " << which << " fails");
        decltype(call()) result;
        bool hasFailed;
        {
            const FailingNew failing(which);
            result = call();
            hasFailed = failing.HasFailed();
        }
        if (!hasFailed)
            return result;
        check(result);
        if (testing::Test::HasFailure())
            return result;
    }
}

class PrintingOutOfMemory : public Printing {
protected:
    void ExpectIdlePort()
    {
        EXPECT_EQ(0, spooler.OpenPrinters());
        EXPECT_FALSE(static_cast<krelIniPort*>(port)->IsLockedForPrinting());
        EXPECT_EQ(log.Count("{CCommandChannel::ThreadProc"), log.Count("}CCommandChannel::ThreadProc"));
        EXPECT_TRUE(server->WaitFor([&] {
            return server->OpenConnections(Channel::Data) + server->OpenConnections(Channel::Command) == 0;
        }));
        log.Clear();
    }
    BOOL RawWrite()
    {
        static BYTE byte = 0x1B;
        return table->pfnWritePort(port, &byte, 1, &written);
    }
    BOOL RawRead()
    {
        readBack.assign(readBack.size(), 0xCD);
        return table->pfnReadPort(port, readBack.data(), static_cast<DWORD>(readBack.size()), &read);
    }
    BOOL RawQuery()
    {
        static WCHAR input[] = {'a', 'b'};
        static WCHAR output[2];
        returned = 77;
        return table->pfnGetPrinterDataFromPort(port, 5, nullptr, input, 4, output, 4, &returned);
    }
};

class AdministrationOutOfMemory : public RunningMonitor {};

}  // namespace

TEST_F(PrintingOutOfMemory, AStartThatFailsLeavesAnIdlePort)
{
    const SlowClock slow;
    DOC_INFO_1W document{Text("Card"), nullptr, Text("RAW")};
    const LPWSTR printer = Text("Printer");
    EXPECT_TRUE(AtEachAllocation(
        [&] { return table->pfnStartDocPort(port, printer, kJob, 1, reinterpret_cast<LPBYTE>(&document)); },
        [&](BOOL started) {
            if (started) {
                EXPECT_TRUE(End());
            }
            ExpectIdlePort();
        }));
    EXPECT_TRUE(Write({1, 2, 3}));
    EXPECT_TRUE(End());
    EXPECT_EQ((Bytes{1, 2, 3}), LastDocument().bytes);
}

TEST_F(PrintingOutOfMemory, AFirstWriteOrQueryInChannelModeThatFailsEndsItsDocument)
{
    const SlowClock slow;
    for (const bool writes : {true, false}) {
        for (const char* version : {"1.10", "1.9"}) {
            ServeVersion(version);
            ASSERT_TRUE(StartChannel());
            EXPECT_TRUE(AtEachAllocation([&] { return writes ? RawWrite() : RawQuery(); },
                                         [&](BOOL) {
                                             EXPECT_TRUE(End());
                                             ExpectIdlePort();
                                             EXPECT_TRUE(StartChannel());
                                         }));
            EXPECT_TRUE(End());
        }
    }
}

// A tool that asks at a bad moment costs nobody his card. Only a reply without room ends the link.
TEST_F(PrintingOutOfMemory, AQueryThatCannotBeSentLeavesTheJobItsLink)
{
    ASSERT_TRUE(StartJob());
    int linksLost = 0;
    EXPECT_TRUE(AtEachAllocation([&] { return RawQuery(); },
                                 [&](BOOL answered) {
                                     EXPECT_EQ(answered ? 4u : 77u, returned);
                                     if (!RawQuery()) {
                                         linksLost++;
                                         EXPECT_TRUE(StartJob());
                                     }
                                 }));
    EXPECT_EQ(1, linksLost);
    EXPECT_TRUE(Write({1}));
    EXPECT_TRUE(End());
    EXPECT_EQ(JOB_CONTROL_SENT_TO_PRINTER, spooler.JobCommands().back());
}

TEST_F(PrintingOutOfMemory, AReadThatFailsTakesNothingFromTheNext)
{
    ServeByHand(Lpq(0, kFinished));
    ASSERT_TRUE(StartJob());
    readBack.resize(3);
    server->OfferParallelData(SampleDocument(3));
    EXPECT_TRUE(AtEachAllocation([&] { return RawRead(); },
                                 [&](BOOL got) {
                                     if (got) {
                                         EXPECT_EQ(SampleDocument(3), readBack);
                                         server->OfferParallelData(SampleDocument(3));
                                     }
                                     if (!spooler.JobCommands().empty()) {  // it cost the link
                                         EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, GetLastError());
                                         EXPECT_TRUE(End());
                                         spooler.Reset();
                                         EXPECT_TRUE(StartJob());
                                         server->OfferParallelData(SampleDocument(3));
                                     }
                                 }));
    EXPECT_EQ(SampleDocument(3), readBack);
    EXPECT_TRUE(End());
}

TEST_F(PrintingOutOfMemory, APrintedJobIsStillReportedSent)
{
    ServeByHand(Lpq(0, kFinished));
    ASSERT_TRUE(StartJob());
    EXPECT_TRUE(AtEachAllocation([&] { return table->pfnEndDocPort(port); },
                                 [&](BOOL ended) {
                                     EXPECT_TRUE(ended);
                                     EXPECT_EQ(std::vector<DWORD>{JOB_CONTROL_SENT_TO_PRINTER},
                                               spooler.JobCommands());
                                     ExpectIdlePort();
                                     spooler.Reset();
                                     EXPECT_TRUE(StartJob());
                                 }));
    ExpectIdlePort();
}

TEST_F(PrintingOutOfMemory, AWriteOnALostLinkStillFailsTheJob)
{
    ASSERT_TRUE(StartJob());
    server->Reset(Channel::Data);
    for (int i = 0; i < 100000 && Write({1}); ++i)
        continue;
    EXPECT_FALSE(AtEachAllocation([&] { return RawWrite(); },
                                  [&](BOOL wrote) {
                                      EXPECT_FALSE(wrote);
                                      EXPECT_EQ(DWORD{ERROR_GEN_FAILURE}, GetLastError());
                                  }));
    EXPECT_TRUE(End());
}

TEST_F(AdministrationOutOfMemory, ACommandThatFailsChangesNothing)
{
    ASSERT_EQ(0u, AddPort(TEXT("Card"), TEXT("a-server-with-a-long-name"), 9100));
    const XcvSession session = OpenXcv(TEXT("Card"));
    krelXcvPortErrorQuery error{1, 2, {}};
    const auto version = BytesOf(krelXcvVersionWord{1});
    const struct {
        LPCWSTR command;
        std::vector<BYTE> input;
        std::set<DWORD> failures;
    } rows[] = {
        {TEXT("MonitorUI"), {}, {8}},
        {TEXT("AddPort"), BytesOf(PortRecord(TEXT("A port with a long name"), TEXT("server"), 1)), {5}},
        {TEXT("DeletePort"), WithNul(TEXT("A port with a long name")), {8}},
        {TEXT("GetPortError"), BytesOf(error), {}},
        {TEXT("GetPortProperties"), version, {}},
        {TEXT("SetPortProperties"), BytesOf(PortRecord({}, TEXT("other"), 7)), {}},
        {TEXT("GetVersionInfo"), {}, {}},
        {TEXT("GetDebug"), {}, {}},
        {TEXT("GetAboutString"), {}, {8}},
        {TEXT("SetKeepAliveValues"), BytesOf(krelXcvKeepAliveValues{1, 3, 4}), {}},
        {TEXT("GetKeepAliveValues"), version, {}},
        {TEXT("GetDefaultKeepAliveValues"), version, {}},
    };
    std::vector<BYTE> output(1000);
    DWORD needed = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(Narrow(row.command));
        std::vector<BYTE> input = row.input;
        std::set<DWORD> results;
        const std::vector<std::string> before = PortNames();
        const DWORD last = AtEachAllocation(
            [&] {
                return table->pfnXcvDataPort(session.Handle(), row.command, input.data(),
                                             static_cast<DWORD>(input.size()), output.data(), 1000, &needed);
            },
            [&](DWORD result) {
                results.insert(result);
                if (result != 0) {
                    EXPECT_EQ(before, PortNames());
                } else if (PortNames().size() > before.size()) {
                    EXPECT_EQ(0u, DeletePort(TEXT("A port with a long name")));
                }
            });
        EXPECT_EQ(WideStringView(row.command) == TEXT("GetVersionInfo") ? DWORD{ERROR_NOT_SUPPORTED} : 0,
                  last);
        results.erase(0);
        EXPECT_EQ(row.failures, results);
        EXPECT_EQ(0, registry.OpenKeys());
        EXPECT_EQ(0, spooler.IdentitiesOut());
        EXPECT_EQ(0, spooler.LibrariesLoaded());
    }
}

TEST_F(AdministrationOutOfMemory, PortsAreListedAndOpenedWithoutAnyMemory)
{
    AddPort(TEXT("Card"), TEXT("server"), 9100);
    HANDLE found = nullptr;
    HANDLE session = nullptr;
    BYTE buffer[1000];
    DWORD needed = 0;
    DWORD returned = 0;
    const LPWSTR name = Text("Card");
    {
        const FailingNew failing(1);
        EXPECT_TRUE(table->pfnEnumPorts(monitor, nullptr, 2, buffer, 1000, &needed, &returned));
        EXPECT_TRUE(table->pfnOpenPort(monitor, name, &found));
        EXPECT_FALSE(failing.HasFailed());
        EXPECT_FALSE(table->pfnXcvOpenPort(monitor, name, 1, &session));
        EXPECT_TRUE(failing.HasFailed());
    }
    EXPECT_EQ(1u, returned);
    EXPECT_TRUE(table->pfnClosePort(found));
    EXPECT_EQ(nullptr, session);
}

TEST_F(AdministrationOutOfMemory, ALibraryThatCannotAttachStartsNoMonitor)
{
    Shutdown();
    const HMODULE module = GetModuleHandleW(nullptr);
    DllEntryPoint(module, DLL_PROCESS_DETACH, nullptr);
    MONITORINIT init = registry.Init();
    HANDLE handle = nullptr;
    {
        const FailingNew failing(1);  // the log's lock; without its names the library makes do
        EXPECT_EQ(1, DllEntryPoint(module, DLL_PROCESS_ATTACH, nullptr));
    }
    EXPECT_EQ(nullptr, InitializePrintMonitor2(&init, &handle));
    DllEntryPoint(module, DLL_PROCESS_DETACH, nullptr);
    DllEntryPoint(module, DLL_PROCESS_ATTACH, nullptr);
    DllEntryPoint(module, DLL_PROCESS_ATTACH, nullptr);  // no harm either
    Start();
}

TEST_F(AdministrationOutOfMemory, AMonitorThatCannotStartLeavesNothingBehind)
{
    Shutdown();
    registry.AddPort("Card", TEXT("server"), 9100);
    registry.SetDword("Ports", "LogToFile", 0);
    MONITORINIT init = registry.Init();
    HANDLE handle = nullptr;
    const auto* started = AtEachAllocation([&] { return InitializePrintMonitor2(&init, &handle); },
                                           [&](const MONITOR2* functions) {
                                               EXPECT_EQ(functions != nullptr, handle != nullptr);
                                               EXPECT_EQ(0, registry.OpenKeys());
                                               if (functions != nullptr)
                                                   functions->pfnShutdown(handle);
                                               handle = nullptr;
                                           });
    ASSERT_NE(nullptr, started);
    monitor = handle;
    EXPECT_EQ(std::vector<std::string>{"Card"}, PortNames());
}
