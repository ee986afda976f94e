#include <algorithm>
#include <memory>

#include "admin/xcv_records.h"
#include "tests/windows/checks.h"
#include "tests/windows/spooler_checks.h"
#include "tests/windows/xcv_cases.h"
#include "tests/windows/xcv_session.h"

namespace {

constexpr const wchar_t* kKept = L"kept, B\u00FCro 2";
constexpr const wchar_t* kPassing = L"passing";
constexpr const wchar_t* kAbout =
    L"Version 1.1.2.18\nBuild 1252873320\nRemote TCP/IP Card Printer Port\nCard Printer TCP/IP Port\n"
    L"Farlink.dll";

std::wstring PortSession(const std::wstring& port)
{
    return L",XcvPort " + port;
}

std::wstring NameOf(Session session, const std::wstring& port)
{
    const bool onMonitor = session == Session::Monitor || session == Session::MonitorReader;
    return onMonitor ? kMonitorSession : PortSession(port);
}

ACCESS_MASK AccessOf(Session session)
{
    const bool reads = session == Session::MonitorReader || session == Session::PortReader;
    return reads ? 0 : SERVER_ACCESS_ADMINISTER;
}

void Play(const std::vector<XcvCase>& cases, const std::wstring& port)
{
    for (const XcvCase& each : cases) {
        const XcvSession session(NameOf(each.session, port), AccessOf(each.session));
        std::vector<BYTE> output(each.outputSize + 1);
        DWORD needed = 0;
        const DWORD word = session.Ask(each.command, each.input.data(), static_cast<DWORD>(each.input.size()),
                                       output.data(), each.outputSize, &needed);
        checks::Check(word == each.word && needed == each.needed, each.what,
                      "answer " + std::to_string(word) + ", needed " + std::to_string(needed));
    }
}

void CheckAboutText()
{
    const XcvSession session(kMonitorSession, 0);
    std::vector<WCHAR> text(1000);
    DWORD needed = 0;
    session.Ask(L"GetAboutString", nullptr, 0, text.data(), 2000, &needed);
    checks::Check(std::wstring(text.data()) == kAbout, "the about text", ToUtf8(text.data()));
    session.Ask(L"MonitorUI", nullptr, 0, text.data(), 2000, &needed);
    checks::Check(std::wstring(text.data()) == L"FarlinkUI.dll", "the user interface's library",
                  ToUtf8(text.data()));
}

DWORD Add(const std::wstring& port, const std::wstring& server, WORD number)
{
    const XcvSession session(kMonitorSession, SERVER_ACCESS_ADMINISTER);
    const std::vector<BYTE> record = PortRecord(port, server, number);
    DWORD needed = 0;
    return session.Ask(L"AddPort", record.data(), static_cast<DWORD>(record.size()), nullptr, 0, &needed);
}

std::string Joined(const std::vector<std::wstring>& names)
{
    std::string text;
    for (const std::wstring& name : names)
        text += ToUtf8(name.c_str()) + "; ";
    return text;
}

void CheckList(std::vector<std::wstring> wanted, const char* when)
{
    std::vector<std::wstring> ours = PortNames(2);
    std::ranges::sort(ours);
    std::ranges::sort(wanted);
    checks::Check(ours == wanted, std::string("ports of the monitor ") + when, Joined(ours));
    const std::vector<std::wstring> all = PortNames(1);
    const bool everyOneIsThere = std::ranges::all_of(
        wanted, [&](const std::wstring& name) { return std::ranges::count(all, name) == 1; });
    checks::Check(everyOneIsThere && std::ranges::count(all, L"COM1:") == 1,
                  std::string("ports of all monitors ") + when, Joined(all));
}

void CheckSettings(const std::wstring& port, const std::wstring& server, WORD number, WORD period,
                   WORD timeout)
{
    const XcvSession session(PortSession(port), 0);
    const std::vector<BYTE> version = VersionWord();
    krelXcvPortData settings{};
    krelXcvKeepAliveValues times{};
    DWORD needed = 0;
    session.Ask(L"GetPortProperties", version.data(), 4, &settings, sizeof settings, &needed);
    session.Ask(L"GetKeepAliveValues", version.data(), 4, &times, sizeof times, &needed);
    checks::Check(settings.portName == port && settings.server == server && settings.portNumber == number,
                  "settings of " + ToUtf8(port.c_str()),
                  ToUtf8(settings.server) + " " + std::to_string(settings.portNumber));
    checks::Check(times.keepAlivePeriod == period && times.keepAliveTimeout == timeout,
                  "keep-alive times of " + ToUtf8(port.c_str()),
                  std::to_string(times.keepAlivePeriod) + " " + std::to_string(times.keepAliveTimeout));
}

DWORD AboutSize()
{
    return static_cast<DWORD>((std::wstring(kAbout).size() + 1) * sizeof(wchar_t));
}

// One set of levels' calls: how large the answer is, one byte too few, and the answer itself.
std::vector<BYTE> AskPorts(DWORD level, DWORD& count)
{
    DWORD needed = 0;
    DWORD returned = 0;
    const BOOL sized = EnumPortsW(nullptr, level, nullptr, 0, &needed, &returned);
    const DWORD error = GetLastError();
    std::vector<BYTE> buffer(needed);
    const BOOL cut = EnumPortsW(nullptr, level, buffer.data(), needed - 1, &needed, &returned);
    const BOOL given = EnumPortsW(nullptr, level, buffer.data(), needed, &needed, &count);
    checks::Check(!sized && error == ERROR_INSUFFICIENT_BUFFER && !cut && given && needed == buffer.size(),
                  "EnumPortsW at level " + std::to_string(level), "error " + std::to_string(error));
    return buffer;
}

}  // namespace

std::vector<std::wstring> PortNames(DWORD level)
{
    DWORD count = 0;
    const std::vector<BYTE> buffer = AskPorts(level, count);
    std::vector<std::wstring> names;
    for (DWORD i = 0; i < count; ++i) {
        if (level == 1) {
            names.emplace_back(reinterpret_cast<const PORT_INFO_1W*>(buffer.data())[i].pName);
            continue;
        }
        const PORT_INFO_2W& port = reinterpret_cast<const PORT_INFO_2W*>(buffer.data())[i];
        const std::wstring description = port.pDescription;
        if (port.pMonitorName == std::wstring(kMonitorName) && description == L"Card Printer TCP/IP Port")
            names.emplace_back(port.pPortName);
    }
    return names;
}

void CheckUnaided(const std::vector<std::string>&)
{
    const XcvSession pin(kMonitorSession, 0);  // one monitor for all that follows
    CheckList({}, "at the start");
    CheckAboutText();
    Play(CasesOfMonitor(AboutSize()), {});
    checks::CheckEqual(Add(kPassing, L"localhost", 9100), 5, "AddPort where the registry refuses");
    CheckList({}, "after the refusal");
}

void CheckPorts(const std::vector<std::string>&)
{
    const XcvSession pin(kMonitorSession, 0);
    CheckList({}, "at the start");
    CheckAboutText();
    Play(CasesOfMonitor(AboutSize()), {});
    checks::CheckEqual(Add(kKept, L"localhost", 9200), 0, "AddPort");
    checks::CheckEqual(Add(kPassing, L"localhost", 9300), 0, "AddPort of another");
    CheckList({kKept, kPassing}, "after AddPort");
    CheckSettings(kPassing, L"localhost", 9300, 5, 20);
    Play(CasesOfPort(kKept), kKept);
    CheckSettings(kKept, L"printers.example", 9100, 7, 65535);

    const std::vector<BYTE> name = TextInput(kPassing);
    const XcvSession session(PortSession(kPassing), SERVER_ACCESS_ADMINISTER);
    DWORD needed = 0;
    const DWORD word =
        session.Ask(L"DeletePort", name.data(), static_cast<DWORD>(name.size()), nullptr, 0, &needed);
    checks::CheckEqual(word, 0, "DeletePort");
    const std::vector<BYTE> version = VersionWord();
    krelXcvPortData record{};
    checks::CheckEqual(session.Ask(L"GetPortProperties", version.data(), 4, &record, sizeof record, &needed),
                       ERROR_UNKNOWN_PORT, "a session that outlives its port");
    CheckList({kKept}, "after DeletePort");
    checks::CheckEqual(XcvSession(PortSession(kPassing), 0).Error(), ERROR_UNKNOWN_PORT,
                       "no session with a deleted port");
}

void CheckRestarted(const std::vector<std::string>&)
{
    const XcvSession pin(kMonitorSession, 0);
    CheckList({kKept}, "after a restart, malformed entries apart");
    CheckSettings(kKept, L"printers.example", 9100, 7, 65535);
}
