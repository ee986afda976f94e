#pragma once

#include "tests/support/monitor_fixture.h"
#include "tests/support/text.h"

class krelIniPort;

// The tests of a tool's commands: inputs as bytes, results by short names, and a monitor with one port.

using Names = std::vector<std::string>;
using Bytes = std::vector<BYTE>;
using Needed = std::optional<DWORD>;

constexpr DWORD kOk = ERROR_SUCCESS;
constexpr DWORD kDenied = ERROR_ACCESS_DENIED;
constexpr DWORD kBad = ERROR_INVALID_PARAMETER;
constexpr DWORD kTooSmall = ERROR_INSUFFICIENT_BUFFER;
constexpr DWORD kUnknown = ERROR_UNKNOWN_PORT;

inline constexpr LPCWSTR kCommands[] = {
    TEXT("MonitorUI"),          TEXT("AddPort"),
    TEXT("DeletePort"),         TEXT("GetPortError"),
    TEXT("GetPortProperties"),  TEXT("SetPortProperties"),
    TEXT("GetVersionInfo"),     TEXT("GetDebug"),
    TEXT("GetAboutString"),     TEXT("SetKeepAliveValues"),
    TEXT("GetKeepAliveValues"), TEXT("GetDefaultKeepAliveValues"),
};

inline Bytes Version(DWORD version)
{
    return BytesOf(krelXcvVersionWord{version});
}

inline Bytes KeepAlive(DWORD version, WORD period, WORD timeout)
{
    return BytesOf(krelXcvKeepAliveValues{version, period, timeout});
}

inline Bytes Cut(Bytes bytes, std::size_t size)
{
    bytes.resize(size);
    return bytes;
}

// Without a NUL.
inline Bytes WideBytes(const WideString& text)
{
    return Cut(WithNul(text), text.size() * sizeof(WCHAR));
}

// A monitor whose only port is "Card", on server "server" at 9100, beside another monitor's "COM1:".
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
