#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "platform/test_switches.h"

namespace {

class Platform : public testing::Test {
protected:
    ~Platform() override { test_switches::Reset(); }
};

TEST_F(Platform, EventsKeepOrLoseTheirSignal)
{
    const HANDLE manual = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE automatic = CreateEventW(nullptr, FALSE, TRUE, nullptr);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(manual, 0));
    EXPECT_TRUE(SetEvent(manual));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(manual, 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(manual, INFINITE));
    EXPECT_TRUE(ResetEvent(manual));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(manual, 1));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(automatic, 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(automatic, 0));

    EXPECT_TRUE(CloseHandle(manual));
    EXPECT_TRUE(CloseHandle(automatic));
    for (const HANDLE bad : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, manual}) {
        SetLastError(0);
        EXPECT_FALSE(CloseHandle(bad));
        EXPECT_EQ(WAIT_FAILED, WaitForSingleObject(bad, 0));
        EXPECT_FALSE(SetEvent(bad));
        EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    }
}

struct Worker {
    HANDLE exitEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<bool> left{false};

    static DWORD Run(LPVOID argument)
    {
        auto* self = static_cast<Worker*>(argument);
        WaitForSingleObject(self->exitEvent, INFINITE);
        self->left = true;
        return 0;
    }
};

// A handle may be closed while its thread runs, and while another thread waits on it.
TEST_F(Platform, AClosedThreadHandleLeavesTheThreadAndItsWaitersAlone)
{
    Worker worker;
    const HANDLE thread = CreateThread(nullptr, 0, &Worker::Run, &worker, 0, nullptr);
    std::atomic<bool> waiting{false};
    std::thread waiter([&] {
        waiting = true;
        WaitForSingleObject(thread, INFINITE);
    });
    while (!waiting)
        std::this_thread::yield();
    EXPECT_TRUE(CloseHandle(thread));
    EXPECT_FALSE(worker.left);
    EXPECT_TRUE(SetEvent(worker.exitEvent));
    waiter.join();
    while (!worker.left)
        std::this_thread::yield();
    EXPECT_TRUE(CloseHandle(worker.exitEvent));
}

TEST_F(Platform, ComparisonsFoldCaseAsFarAsTheirPlatformNamesakes)
{
    EXPECT_EQ(0, lstrcmpiW(u"\u00C4rger \u0416", u"\u00E4RGER \u0436"));
    EXPECT_NE(0, _wcsicmp(u"\u00C4", u"\u00E4"));
    EXPECT_EQ(0, _wcsicmp(u"Farlink[", u"fARLINK["));
    EXPECT_LT(lstrcmpiW(u"port", u"Port 2"), 0);
    EXPECT_GT(_wcsicmp(u"b", u"A"), 0);
    EXPECT_EQ(0, lstrlenW(nullptr));
}

TEST_F(Platform, BrokenTextBecomesTheReplacementCharacter)
{
    const struct {
        const char* utf8;
        const char16_t* utf16;
    } broken[] = {
        {"\x80", u"\uFFFD"},
        {"\xC0\xAF", u"\uFFFD\uFFFD"},
        {"\xE0\x80\x80", u"\uFFFD"},      // overlong
        {"\xED\xA0\x80x", u"\uFFFDx"},    // a surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD"},  // beyond the last code
        {"\xE2\x82", u"\uFFFD"},          // cut off
        {"\xE2(\xE2", u"\uFFFD(\uFFFD"},
    };
    for (const auto& [utf8, utf16] : broken)
        EXPECT_EQ(utf16, ToUtf16(utf8));
    const std::u16string whole = u"a\u00E4\u20AC\U0001F5A8";
    EXPECT_EQ("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x96\xA8", ToUtf8(whole));
    EXPECT_EQ(whole, ToUtf16(ToUtf8(whole)));
    const char16_t lone[] = {0xDC00, u'a', 0xD800, 0};
    EXPECT_EQ(
        "\xEF\xBF\xBD"
        "a"
        "\xEF\xBF\xBD",
        ToUtf8(lone));
}

}  // namespace
