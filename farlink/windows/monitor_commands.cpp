#include <array>
#include <filesystem>

#include "farlink/commands.h"
#include "farlink/ports/spooler_lists.h"
#include "farlink/ports/spooler_records.h"

namespace farlink {

namespace {

constexpr LPCWSTR kLibrary = TEXT("Farlink.dll");
constexpr LPCWSTR kDefaultName = TEXT("Remote TCP/IP Card Printer Port");

WideString SystemFolder()
{
    std::array<WCHAR, MAX_PATH> folder{};
    GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    return folder.data() + WideString(TEXT("\\"));
}

// The name by which the monitor will call itself; installed under another one its ports wouldn't be found.
WideString ConfiguredName()
{
    std::array<WCHAR, 2048> name{};
    GetPrivateProfileStringW(TEXT("Farlink"), TEXT("Name"), kDefaultName, name.data(),
                             static_cast<DWORD>(name.size()), (SystemFolder() + TEXT("Farlink.ini")).c_str());
    return name.data();
}

Failure MonitorFailure(const std::string& what)
{
    const DWORD word = GetLastError();
    if (word == ERROR_ACCESS_DENIED || word == ERROR_PRIVILEGE_NOT_HELD)
        return PlatformFailure(what, word, "it takes an administrator's rights");
    return PlatformFailure(what, word);
}

void Say(const Run& run, const char* state, const MonitorEntry& monitor, const std::string& text)
{
    if (run.json)
        PrintJson({{"state", state}, {"name", ToUtf8(monitor.name)}, {"library", ToUtf8(monitor.library)}});
    else
        PrintLine(text);
}

// The spooler loads monitors from its system folder alone, and whoever can put a file there can run code in
// the spooler: so that is left to the administrator's own hands.
void RequireLibrary()
{
    const WideString place = SystemFolder() + kLibrary;
    if (!std::filesystem::is_regular_file(place))
        throw Failure("'" + ToUtf8(place) +
                      "' is missing, and the spooler looks for it there; copy it first, as administrator: "
                      "copy Farlink.dll \"" +
                      ToUtf8(SystemFolder()) + "\"");
}

void Install(const Run& run)
{
    RequireLibrary();
    WideString name = ConfiguredName();
    WideString library = kLibrary;
    MONITOR_INFO_2W record{name.data(), nullptr, library.data()};
    if (!AddMonitorW(nullptr, 2, reinterpret_cast<LPBYTE>(&record)))
        throw MonitorFailure("The monitor was not installed");
    Say(run, "installed", {name, TEXT("Farlink")},
        "The spooler has a new monitor, '" + ToUtf8(name) + "', from " + ToUtf8(SystemFolder() + kLibrary) +
            "; nothing else was changed");
}

void Uninstall(const Run& run)
{
    MonitorEntry monitor = FindMonitor();
    if (!DeleteMonitorW(nullptr, nullptr, monitor.name.data()))
        throw MonitorFailure("The monitor was not removed");
    Say(run, "not installed", monitor,
        "The monitor '" + ToUtf8(monitor.name) + "' and its ports are removed from the spooler; " +
            ToUtf8(SystemFolder() + kLibrary) + " is left where it is");
}

void Status(const Run& run)
{
    const MonitorEntry monitor = FindMonitor();
    const std::size_t ports = ListPorts().size();
    Say(run, "installed", monitor,
        "The monitor '" + ToUtf8(monitor.name) + "' is installed and has " + std::to_string(ports) +
            (ports == 1 ? " port" : " ports"));
}

}  // namespace

void AddMonitorCommands(CLI::App& farlink, Run& run)
{
    CLI::App* monitor = farlink
                            .add_subcommand("monitor",
                                            "Install the monitor in the Windows spooler, remove it, or look "
                                            "whether it is there")
                            ->require_subcommand(1);
    AddExamples(*monitor,
                "copy Farlink.dll %SystemRoot%\\System32\nfarlink monitor install\nfarlink monitor status\n"
                "farlink monitor uninstall");
    const auto add = [&](const char* name, const char* description, auto action) {
        CLI::App* command = monitor->add_subcommand(name, description);
        AddJsonFlag(*command, run);
        AddExamples(*command, std::string("farlink monitor ") + name);
        command->callback([&run, action] { action(run); });
    };
    add("install",
        "Tell the spooler of Farlink.dll in its system folder; copies no file, takes an administrator's "
        "rights",
        Install);
    add("uninstall",
        "Remove the monitor and its ports from the spooler; deletes no file, takes an administrator's rights",
        Uninstall);
    add("status", "Tell whether it is installed; the status is 1 if it isn't", Status);
}

}  // namespace farlink
