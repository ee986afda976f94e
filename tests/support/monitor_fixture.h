#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "admin/xcv_records.h"
#include "platform/platform.h"
#include "tests/support/log_lines.h"
#include "tests/support/registry_double.h"
#include "tests/support/spooler_double.h"

// What a command answered.
struct XcvAnswer {
    DWORD result;
    std::vector<BYTE> output;     // the whole output buffer, 0xCD where nothing was written
    std::optional<DWORD> needed;  // nothing when pcbOutputNeeded was not written

    // The record at the output's start.
    template <class Record>
    Record As() const;
};

// A tool's session, closed at its end.
class XcvSession {
public:
    XcvSession(const MONITOR2& table, HANDLE monitor, const WideString& object, ACCESS_MASK access);
    ~XcvSession();
    XcvSession(const XcvSession&) = delete;
    XcvSession& operator=(const XcvSession&) = delete;

    HANDLE Handle() const { return handle; }
    XcvAnswer Call(LPCWSTR command, const std::vector<BYTE>& input = {}, DWORD outputSize = 0) const;
    template <class Record>
    XcvAnswer Send(LPCWSTR command, const Record& input, DWORD outputSize = 0) const;

private:
    const MONITOR2& table;
    HANDLE handle = nullptr;
};

// Base of the tests on a monitor: the doubles around it, its table of functions, and at the end the check
// that nothing is left open. The monitor runs in the test binary, which is attached to it as a library once
// per process; its log goes to `log` with all event types on.
//
//     class Deletion : public RunningMonitor {};
//     TEST_F(Deletion, OfABusyPort)
//     {
//         AddPort(TEXT("Card 1"), TEXT("127.0.0.1"), 9100);
//         HANDLE port = OpenPort(TEXT("card 1"));
//         EXPECT_TRUE(table->pfnStartDocPort(port, Text("Printer"), 7, 1, nullptr));
//         EXPECT_EQ(0u, DeletePort(TEXT("Card 1")));
//         EXPECT_TRUE(log.Has("}krelIniPort::~krelIniPort"));
//     }
class MonitorFixture : public testing::Test {
protected:
    MonitorFixture();
    ~MonitorFixture() override;
    void SetUp() override;
    void TearDown() override;

    // What the registry holds is settled before; fails the test when the monitor doesn't start.
    void Start();
    // Nothing without a running monitor. TearDown does it too.
    void Shutdown();
    void Restart();

    // Commands as an administrator gives them, with their results.
    XcvSession OpenXcv(const WideString& object, ACCESS_MASK access = SERVER_ACCESS_ADMINISTER);
    DWORD AddPort(const WideString& name, const WideString& server, WORD number);
    DWORD DeletePort(const WideString& name);
    DWORD SetKeepAlive(const WideString& port, WORD periodSeconds, WORD timeoutSeconds);

    // Null when there is none.
    HANDLE OpenPort(const WideString& name);
    // Adds a port, which must succeed, and opens it.
    HANDLE AddAndOpenPort(const WideString& name, const WideString& server, WORD number);
    // The names by level 1, in the monitor's order.
    std::vector<std::string> PortNames();
    // A text that lives as long as the test, for the spooler's non-const arguments.
    LPWSTR Text(const std::string& text);

    RegistryDouble registry;
    SpoolerDouble& spooler = SpoolerDouble::Instance();
    LogLines& log = LogLines::Captured();
    MONITOR2* table = nullptr;
    HANDLE monitor = nullptr;

private:
    std::vector<std::unique_ptr<WideString>> texts;
};

// The same with the monitor started and an empty table of ports.
class RunningMonitor : public MonitorFixture {
protected:
    void SetUp() override
    {
        MonitorFixture::SetUp();
        Start();
    }
};

// Records as bytes.
template <class Record>
std::vector<BYTE> BytesOf(const Record& record)
{
    const auto* first = reinterpret_cast<const BYTE*>(&record);
    return {first, first + sizeof(record)};
}
krelXcvPortData PortRecord(const WideString& name, const WideString& server, WORD number);

template <class Record>
Record XcvAnswer::As() const
{
    Record record{};
    std::copy_n(output.begin(), std::min(output.size(), sizeof(record)), reinterpret_cast<BYTE*>(&record));
    return record;
}

template <class Record>
XcvAnswer XcvSession::Send(LPCWSTR command, const Record& input, DWORD outputSize) const
{
    return Call(command, BytesOf(input), outputSize);
}
