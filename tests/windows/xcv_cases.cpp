#include "tests/windows/xcv_cases.h"

#include <algorithm>
#include <iterator>

#include "admin/xcv_records.h"

namespace {

constexpr const wchar_t* kFree = L"not there";
constexpr const wchar_t* kSystemPort = L"COM1:";  // of a monitor of the system's own

template <typename Record>
std::vector<BYTE> BytesOf(const Record& record)
{
    const auto* bytes = reinterpret_cast<const BYTE*>(&record);
    return {bytes, bytes + sizeof record};
}

std::vector<BYTE> Cut(std::vector<BYTE> bytes)
{
    bytes.pop_back();
    return bytes;
}

std::vector<BYTE> UnendedServer()
{
    krelXcvPortData record{};
    record.portName[0] = L'x';
    record.version = 1;
    std::fill(std::begin(record.server), std::end(record.server), L's');
    return BytesOf(record);
}

std::vector<BYTE> KeepAliveRecord(WORD period, WORD timeout, DWORD version = 1)
{
    return BytesOf(krelXcvKeepAliveValues{version, period, timeout});
}

std::vector<BYTE> ErrorQuery(const std::wstring& name, WORD kind = 2)
{
    krelXcvPortErrorQuery query{1, kind, {}};
    std::copy(name.begin(), name.end(), query.portName);
    return BytesOf(query);
}

}  // namespace

std::vector<BYTE> PortRecord(const std::wstring& name, const std::wstring& server, WORD number, DWORD version)
{
    krelXcvPortData record{};
    std::copy(name.begin(), name.end(), record.portName);
    record.version = version;
    std::copy(server.begin(), server.end(), record.server);
    record.portNumber = number;
    return BytesOf(record);
}

std::vector<BYTE> TextInput(const std::wstring& text)
{
    const auto* bytes = reinterpret_cast<const BYTE*>(text.c_str());
    return {bytes, bytes + (text.size() + 1) * sizeof(wchar_t)};
}

std::vector<BYTE> VersionWord(DWORD version)
{
    return BytesOf(krelXcvVersionWord{version});
}

std::vector<XcvCase> CasesOfMonitor(DWORD aboutSize)
{
    constexpr Session kMonitor = Session::Monitor;
    constexpr Session kReader = Session::MonitorReader;
    return {
        {"unknown command", kMonitor, L"Frobnicate", {}, 0, 87},
        {"command in another letter case", kMonitor, L"addport", PortRecord(kFree, L"s", 1), 0, 87},
        {"command with a blank behind it", kMonitor, L"GetDebug ", {}, 0, 87},
        {"empty command", kMonitor, L"", {}, 0, 87},
        {"MonitorUI without room", kReader, L"MonitorUI", {}, 0, 122, 28},
        {"MonitorUI", kReader, L"MonitorUI", {}, 28, 0, 28},
        {"GetAboutString without room", kReader, L"GetAboutString", {}, aboutSize - 1, 122, aboutSize},
        {"GetAboutString", kReader, L"GetAboutString", {}, aboutSize, 0},
        {"GetVersionInfo", kReader, L"GetVersionInfo", {}, 0, 50},
        {"GetDebug", kReader, L"GetDebug", {}, 0, 0},
        {"AddPort without the right", kReader, L"AddPort", PortRecord(kFree, L"s", 1), 0, 5},
        {"AddPort, short record", kMonitor, L"AddPort", Cut(PortRecord(kFree, L"s", 1)), 0, 87},
        {"AddPort, server without an end", kMonitor, L"AddPort", UnendedServer(), 0, 87},
        {"AddPort, empty name", kMonitor, L"AddPort", PortRecord(L"", L"s", 1), 0, 87},
        {"AddPort, another version", kMonitor, L"AddPort", PortRecord(kFree, L"s", 1, 2), 0, 50},
        {"AddPort, name of a system port", kMonitor, L"AddPort", PortRecord(kSystemPort, L"s", 1), 0, 183},
        {"DeletePort without the right", kReader, L"DeletePort", TextInput(kFree), 0, 5},
        {"DeletePort, unknown", kMonitor, L"DeletePort", TextInput(kFree), 0, 2},
        {"DeletePort of a system port", kMonitor, L"DeletePort", TextInput(kSystemPort), 0, 2},
        {"GetPortError without room", kReader, L"GetPortError", ErrorQuery(kFree), 139, 122, 140},
        {"GetPortError, short query", kReader, L"GetPortError", Cut(ErrorQuery(kFree)), 140, 87, 140},
        {"GetPortError, another kind", kReader, L"GetPortError", ErrorQuery(kFree, 3), 140, 87, 140},
        {"GetPortError, unknown", kReader, L"GetPortError", ErrorQuery(kFree), 140, 1796, 140},
        {"GetPortProperties, version 2", kReader, L"GetPortProperties", VersionWord(2), 236, 87},
        {"GetPortProperties without room", kReader, L"GetPortProperties", VersionWord(), 235, 122, 236},
        {"GetPortProperties of the monitor", kReader, L"GetPortProperties", VersionWord(), 236, 1796},
        {"SetPortProperties, short record", kMonitor, L"SetPortProperties", Cut(PortRecord(kFree, L"s", 1)),
         0, 87},
        {"SetPortProperties, version 2", kMonitor, L"SetPortProperties", PortRecord(kFree, L"s", 1, 2), 0,
         87},
        {"SetPortProperties of the monitor", kMonitor, L"SetPortProperties", PortRecord(kFree, L"s", 1), 0,
         1796},
        {"SetKeepAliveValues without the right", kReader, L"SetKeepAliveValues", KeepAliveRecord(5, 20), 0,
         5},
        {"SetKeepAliveValues of the monitor", kMonitor, L"SetKeepAliveValues", KeepAliveRecord(5, 20), 0,
         1796},
        {"GetKeepAliveValues of the monitor", kReader, L"GetKeepAliveValues", VersionWord(), 8, 1796},
        {"GetDefaultKeepAliveValues without room", kReader, L"GetDefaultKeepAliveValues", VersionWord(), 7,
         122, 8},
        {"GetDefaultKeepAliveValues, version 2", kReader, L"GetDefaultKeepAliveValues", VersionWord(2), 8, 87,
         8},
        {"GetDefaultKeepAliveValues", kReader, L"GetDefaultKeepAliveValues", VersionWord(), 8, 0, 8},
    };
}

std::vector<XcvCase> CasesOfPort(const std::wstring& port)
{
    constexpr Session kPort = Session::Port;
    constexpr Session kReader = Session::PortReader;
    return {
        {"AddPort, the name exists", Session::Monitor, L"AddPort", PortRecord(port, L"s", 1), 0, 183},
        {"GetPortError", Session::MonitorReader, L"GetPortError", ErrorQuery(port), 140, 0, 140},
        {"GetPortError of the session's port", kReader, L"GetPortError", ErrorQuery(L""), 140, 0, 140},
        {"GetPortError of another port", kReader, L"GetPortError", ErrorQuery(kFree), 140, 87, 140},
        {"GetPortProperties", kReader, L"GetPortProperties", VersionWord(), 236, 0},
        {"GetKeepAliveValues without room", kReader, L"GetKeepAliveValues", VersionWord(), 7, 122, 8},
        {"GetKeepAliveValues, input too long", kReader, L"GetKeepAliveValues", KeepAliveRecord(1, 2), 8, 87,
         8},
        {"GetKeepAliveValues", kReader, L"GetKeepAliveValues", VersionWord(), 8, 0, 8},
        {"SetKeepAliveValues, short record", kPort, L"SetKeepAliveValues", Cut(KeepAliveRecord(1, 2)), 0, 87},
        {"SetKeepAliveValues, version 2", kPort, L"SetKeepAliveValues", KeepAliveRecord(1, 2, 2), 0, 87},
        {"SetPortProperties, version 2", kPort, L"SetPortProperties", PortRecord(port, L"s", 1, 2), 0, 87},
        {"SetKeepAliveValues", kPort, L"SetKeepAliveValues", KeepAliveRecord(7, 65535), 0, 0},
        {"SetPortProperties", kPort, L"SetPortProperties", PortRecord(port, L"printers.example", 9100), 0, 0},
    };
}
