#pragma once

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/test_switches.h"
#include "printserver/scripted/print_server.h"
#include "tests/support/monitor_fixture.h"

// A monitor with one open port, "Card 1", on a print server of the test's own. The monitor's seconds are
// short (kTimeScale), the server's own delays are real.
class Printing : public RunningMonitor {
protected:
    static constexpr double kTimeScale = 0.02;
    static constexpr double kOpeningScale = 0.5;    // the opening's polls wait for the server's threads
    static constexpr WORD kPatientTimeout = 32767;  // seconds: the silence test ends no call by mistake
    static constexpr DWORD kJob = 7;

    // A test that wants another server calls Serve first in its own SetUp or body, before it prints.
    void SetUp() override
    {
        RunningMonitor::SetUp();
        test_switches::SetTimeScale(kTimeScale);
        Serve({});
    }

    // Starts a print server in place of the present one and points the port at it.
    void Serve(printserver::PrintServerOptions options)
    {
        if (server && port != nullptr) {
            EXPECT_EQ(0u, DeletePort(TEXT("Card 1")));
        }
        server.reset();
        if (!options.keepAliveEvery)
            options.keepAliveEvery = printserver::Milliseconds(20);
        server.emplace(std::move(options));
        port = AddAndOpenPort(TEXT("Card 1"), TEXT("127.0.0.1"), server->Port());
        EXPECT_EQ(0u, SetKeepAlive(TEXT("Card 1"), 5, kPatientTimeout));
    }
    void ServeVersion(const std::string& version)
    {
        printserver::PrintServerOptions options;
        options.version = version;
        Serve(std::move(options));
    }
    // The test sends each notification itself; the first record is `first`.
    void ServeByHand(const printserver::Lpq& first)
    {
        printserver::PrintServerOptions options;
        options.course.byHand = first;
        Serve(std::move(options));
    }

    // While a call may be opening channels.
    struct SlowClock {
        SlowClock() { test_switches::SetTimeScale(kOpeningScale); }
        ~SlowClock() { test_switches::SetTimeScale(kTimeScale); }
        SlowClock(const SlowClock&) = delete;
        SlowClock& operator=(const SlowClock&) = delete;
    };

    // --- what a spooler does with the port ---

    bool StartJob(DWORD jobId = kJob)
    {
        const SlowClock slow;
        DOC_INFO_1W document{Text("Card"), nullptr, Text("RAW")};
        return table->pfnStartDocPort(port, Text("Printer"), jobId, 1, reinterpret_cast<LPBYTE>(&document));
    }
    bool StartChannel(DWORD jobId = kJob)
    {
        DOC_INFO_2W document{Text("Channel"), nullptr, Text("RAW"), DI_CHANNEL, jobId};
        return table->pfnStartDocPort(port, Text("Printer"), jobId, 2, reinterpret_cast<LPBYTE>(&document));
    }
    bool Write(printserver::Bytes bytes)
    {
        const SlowClock slow;
        written = 0xDEADBEEF;
        return table->pfnWritePort(port, bytes.data(), static_cast<DWORD>(bytes.size()), &written);
    }
    bool Read(DWORD size)
    {
        readBack.assign(size, 0xCD);
        read = 0xDEADBEEF;
        return table->pfnReadPort(port, readBack.data(), size, &read);
    }
    bool End() { return table->pfnEndDocPort(port); }
    bool Query(DWORD control, DWORD outputSize = 64)
    {
        const SlowClock slow;
        answer.assign(outputSize, 0xCD);
        returned = 0xDEADBEEF;
        return table->pfnGetPrinterDataFromPort(port, control, nullptr, Text("ab"), 4,
                                                reinterpret_cast<LPWSTR>(answer.data()), outputSize,
                                                &returned);
    }
    // Waits until the monitor's log shows that it knows the server's record.
    bool Learns(const printserver::Lpq& record)
    {
        const std::string text = "bound job state = " + std::to_string(record.boundJobState);
        log.Clear();
        return server->Notify(record) && log.WaitFor(text);
    }

    // The document that the print server has taken last.
    const printserver::Document& LastDocument()
    {
        EXPECT_TRUE(server->WaitFor([this] { return !server->Documents().empty(); }));
        documents = server->Documents();
        return documents.back();
    }
    // The messages of a command connection, without the keep-alives above version 1.0: they come by the
    // clock.
    std::vector<std::string> CommandMessages(int connection = 1) const
    {
        std::vector<std::string> messages;
        const auto report = server->Report(printserver::Channel::Command, connection);
        for (const auto& [direction, bytes] : report.transcript.Entries()) {
            const bool fromMonitor = direction == printserver::Direction::FromMonitor;
            if (bytes != printserver::KeepAlive())
                messages.push_back((fromMonitor ? "monitor " : "server ") + printserver::Hex(bytes));
        }
        return messages;
    }

    std::optional<printserver::PrintServer> server;
    HANDLE port = nullptr;
    std::vector<printserver::Document> documents;
    DWORD written = 0;
    DWORD read = 0;
    std::vector<BYTE> readBack;
    DWORD returned = 0;
    std::vector<BYTE> answer;
};

inline printserver::Bytes SampleDocument(std::size_t size)
{
    printserver::Bytes bytes(size);
    std::uint32_t state = 1;
    for (auto& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return bytes;
}
