#pragma once

// A port monitor that does what a test tells it to. The library is loaded by the spooler like any
// other; the test reaches its controls through the exported TestMonitor().

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/platform.h"

// A test writes the first half and reads the second, both under the lock of TestMonitorControls.
struct TestMonitorScript {
    std::vector<WideString> ports = {TEXT("ONE"), TEXT("TWO")};
    std::vector<WideString> portsAddedByNextEnumeration;
    int failingStarts = 0;
    int failingWrites = 0;
    int emptyWrites = 0;   // writes that take nothing, with TRUE
    DWORD takeAtMost = 0;  // bytes per write; 0: all
    WideString heldPort;   // its writes wait until this changes ...
    int heldAfter = 0;     // ... but for the first so many
    // Job commands that it gives.
    std::vector<DWORD> onFailedWrite = {JOB_CONTROL_RESTART};
    std::vector<DWORD> onEnd = {JOB_CONTROL_SENT_TO_PRINTER};  // of a document without a failed write
    bool commandsFromAnotherThread = false;
    bool heldQuery = false;          // queries wait until this is false
    std::string answer = "answer";   // to queries
    DWORD queryError = 0;            // not 0: queries fail with this last error
    std::function<DWORD()> command;  // each administrator's command, with its result

    struct Document {
        WideString port;
        DWORD jobId;
        DWORD startedAt;  // tick
        std::string bytes;
        bool ended;
        bool channel = false;  // opened in channel mode
    };
    MONITORINIT init = {};
    int running = 0;  // monitors started and not shut down
    int writes = 0;
    std::vector<Document> documents;  // one for each start
    std::vector<BYTE*> xcvPointers;   // input, output
    struct Query {
        DWORD controlId;
        std::string input;
    };
    std::vector<Query> queries;
    DWORD portsSeenFromWithin = 0;  // by EnumPortsW, called inside EndDocPort
};

struct TestMonitorControls : TestMonitorScript {
    std::mutex lock;
    std::condition_variable changed;

    template <typename Action>
    auto Locked(Action action)
    {
        struct Announce {
            std::condition_variable& changed;
            ~Announce() { changed.notify_all(); }
        } announce{changed};
        const std::lock_guard guard(lock);
        return action(static_cast<TestMonitorScript&>(*this));
    }
    template <typename Condition>
    void Await(Condition condition)
    {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return condition(static_cast<const TestMonitorScript&>(*this)); });
    }
};

extern "C" TestMonitorControls* TestMonitor();
