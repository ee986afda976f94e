#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "link/command_channel.h"
#include "link/command_channel_message.h"
#include "link/data_channel.h"
#include "platform/test_switches.h"
#include "printserver/scripted/print_server.h"
#include "tests/support/monitor_fixture.h"

using Failures = std::vector<std::string>;

// The text's bytes; a fixture's own Text is a wide one.
inline printserver::Bytes Raw(std::string_view text)
{
    return printserver::Text(text);
}

// Asks until it is so; false after half a minute.
inline bool Eventually(const std::function<bool()>& predicate)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// The channels by themselves, without a port, on a print server of the test's own; the monitor runs for its
// log alone. Settings in seconds never pass by themselves: time moves by Pass, so that no test depends on
// the machine's speed. An opening counts its polls for a reply, and a slow machine must get its answer in:
// a bind has 400 ms at first. Hurry then makes a worker tick every 10 ms.
class LinkFixture : public RunningMonitor {
protected:
    static constexpr double kOpeningScale = 0.4;
    static constexpr SHORT kNever = 30000;  // seconds: five minutes of real time at the least

    void SetUp() override
    {
        RunningMonitor::SetUp();
        test_switches::SetTimeScale(kOpeningScale);
        log.Clear();
    }
    void TearDown() override
    {
        for (const auto& channel : made)
            channel->Shutdown();
        made.clear();
        RunningMonitor::TearDown();
    }

    std::shared_ptr<CDataChannel> MakeData()
    {
        return std::make_shared<CDataChannel>(TEXT("127.0.0.1"), server.Port());
    }
    std::shared_ptr<CCommandChannel> MakeCommand(SHORT period = kNever, SHORT timeout = kNever)
    {
        made.push_back(std::make_shared<CCommandChannel>(nullptr, TEXT("127.0.0.1"), server.Port() + 2u,
                                                         period, timeout));
        return made.back();
    }

    // Scripts of the next connections, up to the data channel's transparent mode (session 7) and to the start
    // of keep-alives. The command channel's goes on with what the test adds.
    printserver::Script& ServeData()
    {
        return server.Data().Accept().Send(
            printserver::Join(printserver::SessionId(7), printserver::TransMode()));
    }
    printserver::Script& ServeCommand(const std::string& version = "1.10")
    {
        return server.Command().Accept().AnswerVersion(version).AnswerStartKeepAlives();
    }
    // A command channel alone, open to such a script, with its worker: started last, it ticks fast at once.
    std::shared_ptr<CCommandChannel> OpenCommand(SHORT period = kNever, SHORT timeout = kNever)
    {
        test_switches::SetTimeScale(kOpeningScale);
        const auto channel = MakeCommand(period, timeout);
        EXPECT_TRUE(channel->Open());
        Hurry();
        EXPECT_TRUE(channel->InitializeKeepAlives(nullptr));
        return channel;
    }

    static void Hurry() { test_switches::SetTimeScale(0.01); }
    static void Pass(DWORD seconds) { test_switches::SetTickCount(GetTickCount() + seconds * 1000); }
    // So many whole ticks of the one worker that runs.
    static bool AwaitTicks(int count)
    {
        test_switches::CountCalls("WaitForSingleObject");
        return Eventually([&] { return test_switches::CallsCounted("WaitForSingleObject") > count; });
    }
    // The result of a call under way, which is released by force if it doesn't come.
    template <class Result>
    Result ResultOf(std::future<Result>& call)
    {
        if (call.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
            ADD_FAILURE() << "the call hangs";
            server.Stop();
        }
        return call.get();
    }

    printserver::PrintServer server;

private:
    std::vector<std::shared_ptr<CCommandChannel>> made;
};
