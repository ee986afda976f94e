#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "diagnostics/diagnostic_log.h"
#include "diagnostics/diagnostics.h"
#include "diagnostics/format_text.h"
#include "diagnostics/function_trace.h"
#include "diagnostics/log_file.h"
#include "diagnostics/thread_port_tag.h"
#include "monitor/library_entry.h"
#include "platform/test_switches.h"
#include "tests/support/failing_new.h"
#include "tests/support/monitor_fixture.h"

namespace {

using Messages = std::vector<std::string>;

constexpr DWORD kAllEvents = 0x3F;

class Diagnostics : public testing::Test {
protected:
    void SetUp() override { Watch(kAllEvents); }
    void TearDown() override
    {
        test_switches::Reset();
        ApplyLogSettings(kDefaultLogSettings);
    }

    // From now on the log has these event types, from its start.
    void Watch(DWORD eventTypes)
    {
        ApplyLogSettings({eventTypes, 0, 1, 0});
        log.Clear();
    }
    void Unwatch() { ApplyLogSettings(kDefaultLogSettings); }

    LogLines& log = LogLines::Captured();
};

std::string Format(std::size_t size, const char* format, FormatArguments arguments)
{
    std::vector<char> buffer(size + 1, '#');
    const std::size_t length = FormatText(buffer.data(), size, format, arguments);
    EXPECT_EQ('#', buffer[size]) << "wrote behind the buffer";
    EXPECT_EQ(length, std::string(buffer.data()).size());
    return buffer.data();
}

TEST(FormatText, PrintsEachConversion)
{
    const struct {
        const char* expected;
        const char* format;
        FormatArguments arguments;
    } cases[] = {
        {"-1 4294967295 ffffffff", "%i %u %x", {-1, DWORD{0xFFFFFFFF}, -1}},
        {"0x0000BEEF", "0x%08X", {0xBEEF}},
        {"ffff -1 255", "%x %d %u", {short{-1}, short{-1}, BYTE{255}}},
        {"-9223372036854775808 ffffffffffffffff", "%lld %llx", {INT64_MIN, UINT64_MAX}},
        {"01:02:03.004", "%02d:%02d:%02d.%03d", {WORD{1}, WORD{2}, WORD{3}, WORD{4}}},
        {"  7|-07", "%3d|%03d", {7, -7}},
        {"100% sure", "%i%% %s", {100, "sure"}},
        {"caf\xC3\xA9 \xF0\x9F\x96\xA8 \xEF\xBF\xBD", "%S", {TEXT("caf\u00E9 \U0001F5A8 \xD800")}},
        {"NULL NULL", "%s %S", {static_cast<const char*>(nullptr), static_cast<const WCHAR*>(nullptr)}},
        {"wide narrow", "%s %S", {TEXT("wide"), "narrow"}},
        {"? ? 1?", "%s %i %u%q", {1, "text", 1, 2}},
        {"1 ?", "%i %i", {1}},
        {"50?", "50%", {}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.format);
        EXPECT_EQ(one.expected, Format(100, one.format, one.arguments));
    }
}

TEST(FormatText, CutsAtEveryLengthBetweenCharacters)
{
    const std::string whole = "a\xC3\xA9-\xE4\xB8\xAD=\xF0\x9F\x96\xA8!";
    const std::size_t starts[] = {0, 1, 3, 4, 7, 8, 12, 13};
    for (std::size_t size = 1; size <= whole.size() + 1; size++) {
        std::size_t expected = 0;
        for (const std::size_t start : starts)
            expected = start < size ? start : expected;
        EXPECT_EQ(whole.substr(0, expected), Format(size, "%S", {TEXT("a\u00E9-\u4E2D=\U0001F5A8!")}));
        EXPECT_EQ(whole.substr(0, expected), Format(size, "%s", {whole.c_str()}));
    }
    // What isn't UTF-8 still gets as much room as there is, and nothing follows a cut.
    EXPECT_EQ(std::string(9, '\x80'), Format(10, "%s%s", {std::string(20, '\x80').c_str(), "more"}));
}

TEST_F(Diagnostics, ScopesReadAsACallTree)
{
    {
        CFunctionTrace outer("Outer::Run", "port = %S, len = %i", TEXT("Card"), 3);
        {
            CFunctionTrace middle("Middle::Run");
            CFunctionTrace inner("Inner::Run");
            CFunctionTrace deepest("Deepest::Run");
            deepest.Fail("first");
            deepest.Fail("error %i", 10054);
            inner.Fail("taken back");
            inner.Fail("");
            inner.Log(krelpmEventInfo, "Received session id %i.", 7);
        }
        outer.Fail("Call failed.");
    }
    EXPECT_EQ((Messages{"{Outer::Run: port = Card, len = 3", "    {Middle::Run", "        {Inner::Run",
                        "            {Deepest::Run", "Received session id 7.",
                        "            }Deepest::Run: ERROR: error 10054", "        }Inner::Run",
                        "    }Middle::Run", "}Outer::Run: ERROR: Call failed."}),
              log.Messages());
}

TEST_F(Diagnostics, EachEventBitLetsItsOwnThrough)
{
    const auto run = [&](DWORD eventTypes) {
        Watch(eventTypes);
        CFunctionTrace outer("Outer::Run");
        CFunctionTrace inner("Inner::Run");
        inner.Log(krelpmEventWarning, "warning");
        inner.Log(krelpmEventInfo, "info");
        inner.Log(krelpmEventInfo | krelpmEventData, "either");
        inner.Fail("inside");
        outer.Fail("outside");
    };
    const struct {
        DWORD eventTypes;
        Messages expected;
    } cases[] = {
        {0, {}},
        {krelpmEventError, {"Inner::Run: ERROR: inside", "Outer::Run: ERROR: outside"}},
        {krelpmEventTrace | krelpmEventError,
         {"{Outer::Run", "    {Inner::Run", "    }Inner::Run: ERROR: inside", "}Outer::Run: ERROR: outside"}},
        {krelpmEventWarning, {"warning"}},
        {krelpmEventInfo, {"info", "either"}},
        {krelpmEventData, {"either"}},
        {0xFFFFFFC0, {}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.eventTypes);
        run(one.eventTypes);
        EXPECT_EQ(one.expected, log.Messages());
    }
}

// On every installation both sinks are off at first.
TEST_F(Diagnostics, WithoutASinkAScopeTakesNoClockLockOrMemory)
{
    Unwatch();
    const char* const calls[] = {"GetLocalTime", "GetTickCount", "EnterCriticalSection",
                                 "TryEnterCriticalSection"};
    for (const char* call : calls)
        test_switches::CountCalls(call);
    bool hasAllocated = false;
    {
        const FailingNew watched(1);
        {
            CFunctionTrace trace("Scope::Run", "server = %S, len = %i", TEXT("Card"), 1);
            trace.Log(krelpmEventWarning, "warning %s", "text");
            trace.Fail("failure %i", 10054);
        }
        hasAllocated = watched.HasFailed();
    }
    EXPECT_FALSE(hasAllocated);
    for (const char* call : calls)
        EXPECT_EQ(0, test_switches::CallsCounted(call)) << call;
}

TEST_F(Diagnostics, AFailureIsSeenEvenWithoutMemoryForItsText)
{
    {
        CFunctionTrace trace("Scope::Run");
        trace.Fail("first");
        const FailingNew failing(1);
        trace.Fail("error %i", 10054);
    }
    EXPECT_EQ((Messages{"{Scope::Run", "}Scope::Run: ERROR: out of memory"}), log.Messages());
}

TEST_F(Diagnostics, WithoutASlotForTheDepthLinesAreNotIndented)
{
    DiagnosticsShutdown();
    test_switches::FailCall("TlsAlloc", ERROR_NOT_ENOUGH_MEMORY);
    DiagnosticsStartup(DLL_PROCESS_ATTACH);
    Watch(kAllEvents);
    {
        CFunctionTrace outer("Outer::Run");
        CFunctionTrace inner("Inner::Run");
    }
    EXPECT_EQ((Messages{"{Outer::Run", "{Inner::Run", "}Inner::Run", "}Outer::Run"}), log.Messages());
    DiagnosticsShutdown();
    DiagnosticsStartup(DLL_PROCESS_ATTACH);
}

class LogSettingsOfTwoMonitors : public MonitorFixture {};

// The second starts while the first is still reading its registry.
TEST_F(LogSettingsOfTwoMonitors, AreNotUndoneByTheOtherOnesStart)
{
    registry.Before(Registry::QueryValue, [] {
        LogSettings others;
        others.maxLogFileSize = 9;
        ApplyLogSettings(others);
    });
    Start();
    EXPECT_EQ(9u, gMaxLogFileSize);
    EXPECT_EQ(1u, gLogToDebugOutput);
}

TEST_F(Diagnostics, DepthStaysRightWhenSettingsChangeWithinAScope)
{
    {
        CFunctionTrace counted("Counted::Run");
        Watch(krelpmEventError);  // the scope still uncounts itself
    }
    {
        CFunctionTrace uncounted("Uncounted::Run");
        Watch(kAllEvents);  // and this one was never counted
    }
    Unwatch();
    {
        CFunctionTrace silent("Silent::Run");
        Watch(kAllEvents);  // a sink comes on: the exit line appears, and the failure with it
        CFunctionTrace inner("Inner::Run");
        silent.Fail("late");
    }
    EXPECT_EQ((Messages{"    {Inner::Run", "    }Inner::Run", "}Silent::Run: ERROR: late"}), log.Messages());
    Watch(kAllEvents);
    CFunctionTrace next("Next::Run");
    EXPECT_EQ(Messages{"{Next::Run"}, log.Messages());
}

TEST_F(Diagnostics, EachThreadHasItsOwnDepth)
{
    CFunctionTrace here("Here::Run");
    DWORD otherId = 0;
    std::thread([&] {
        otherId = GetCurrentThreadId();
        CFunctionTrace there("There::Run");
    }).join();
    EXPECT_EQ((Messages{"{There::Run", "}There::Run"}), log.MessagesOfThread(otherId));
    DllEntryPoint(GetModuleHandleW(nullptr), DLL_THREAD_ATTACH, nullptr);  // a thread begins at none
    CFunctionTrace next("Next::Run");
    EXPECT_TRUE(log.Messages().back() == "{Next::Run");
}

TEST_F(Diagnostics, ManyThreadsTraceAndTagAtOnce)
{
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (WORD number = 1; number <= 4; number++) {
        threads.emplace_back([number] {
            for (int i = 0; i < 100; i++) {
                const CThreadPortTag tag(TEXT("server"), number);
                CFunctionTrace trace("Worker::Run");
                trace.Fail("%u", number);
            }
        });
    }
    for (int i = 0; i < 100; i++)
        ApplyLogSettings({kAllEvents, 0, 1, 0});  // as another monitor does that starts meanwhile
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(400, log.Count("{Worker::Run"));
    for (const LogLine& line : log.All()) {
        ASSERT_TRUE(line.wellFormed) << line.message;
        if (line.message.starts_with("}")) {
            EXPECT_EQ("server:" + line.message.substr(line.message.size() - 1), line.tag);
        }
    }
}

TEST_F(Diagnostics, TracingKeepsTheLastError)
{
    for (const DWORD eventTypes : {kAllEvents, DWORD{0}}) {
        Watch(eventTypes);
        SetLastError(1234);
        {
            const CThreadPortTag tag(TEXT("server"), 9100);
            CFunctionTrace trace("Scope::Run", "len = %i", 1);
            EXPECT_EQ(1234u, GetLastError());
            trace.Fail("failure");
            trace.Log(krelpmEventInfo, "message");
            vexkitTypeDiagnosticPuts("line");
            EXPECT_EQ(1234u, GetLastError());
        }
        EXPECT_EQ(1234u, GetLastError());
    }
}

TEST_F(Diagnostics, LongTextsAreCutAndStillEndTheLine)
{
    const std::size_t prefix = std::string("01:02:03.004 N/A 0x00000001\t").size();
    const std::string longText(5000, 'x');
    for (const std::size_t length : {1022 - 2 - prefix, 1022 - 1 - prefix, std::size_t{5000}}) {
        log.Clear();
        vexkitTypeDiagnosticPuts(longText.substr(0, length).c_str());
        EXPECT_EQ(longText.substr(0, 1022 - 2 - prefix), log.Messages().at(0));
        EXPECT_TRUE(log.All().at(0).wellFormed);
    }
    log.Clear();
    std::string accents;
    while (accents.size() < 3000)
        accents += "\xE4\xB8\xAD";
    vexkitTypeDiagnosticPuts(("." + accents).c_str());
    EXPECT_EQ(0u, (log.Messages().at(0).size() - 1) % 3);
    {
        CFunctionTrace trace("Scope::Run", "%s", longText.c_str());
        trace.Fail("%s", longText.c_str());
    }
    EXPECT_TRUE(log.Has("}Scope::Run: ERROR: xxxx"));
}

TEST_F(Diagnostics, OddMessages)
{
    vexkitTypeDiagnosticPuts(nullptr);
    vexkitTypeDiagnosticPuts("Server (x) name could not be resolved!\n");
    vexkitTypeDiagnosticPuts("");
    vexkitTypeDiagnosticPuts("100%s");
    EXPECT_EQ((Messages{"vexkitTypeDiagnosticPuts passed NULL", "Server (x) name could not be resolved!\n",
                        "", "100%s"}),
              log.Messages());
}

TEST_F(Diagnostics, LinesCarryTheTagOfTheirThread)
{
    const auto tagNow = [&] {
        log.Clear();
        vexkitTypeDiagnosticPuts("line");
        return log.All().at(0).tag;
    };
    EXPECT_EQ("N/A", tagNow());
    {
        const CThreadPortTag nobody(nullptr, 9100);
        EXPECT_EQ("N/A", tagNow());
    }
    {
        const CThreadPortTag tag(TEXT("card-server"), 65535);
        EXPECT_EQ("card-server:65535", tagNow());
        std::thread([&] { EXPECT_EQ("N/A", tagNow()); }).join();
        {
            const CThreadPortTag second(TEXT("other"), 0);
            EXPECT_EQ("other:0", tagNow());
        }
        EXPECT_EQ("N/A", tagNow());  // the first scope to end erases the tag
    }
    const WideString longest(48, TEXT('\u4E2D'));
    const CThreadPortTag tag(longest.c_str(), 65535);
    EXPECT_EQ(48u * 3 + 6, tagNow().size());
}

TEST_F(Diagnostics, NothingComesOutOrBreaksAfterTheShutdown)
{
    DiagnosticsShutdown();
    {
        const CThreadPortTag tag(TEXT("server"), 1);
        CFunctionTrace trace("Scope::Run");
        trace.Fail("failure");
        trace.Log(krelpmEventInfo, "message");
        vexkitTypeDiagnosticPuts("line");
    }
    EXPECT_EQ(Messages{}, log.Messages());
    DiagnosticsStartup(DLL_PROCESS_ATTACH);
    Watch(kAllEvents);
    CFunctionTrace trace("Scope::Run");
    EXPECT_EQ(Messages{"{Scope::Run"}, log.Messages());
}

}  // namespace
