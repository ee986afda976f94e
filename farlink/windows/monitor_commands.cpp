#include "farlink/commands.h"
#include "farlink/ports/spooler_lists.h"
#include "farlink/ports/spooler_records.h"
#include "farlink/windows/check/check_command.h"
#include "farlink/windows/monitor_installation.h"
#include "farlink/windows/system_library.h"
#include "version/build.h"

namespace farlink {

namespace {

void Say(const Run& run, const char* state, const MonitorEntry& monitor, const std::string& text)
{
    if (run.json)
        PrintJson({{"state", state}, {"name", ToUtf8(monitor.name)}, {"library", ToUtf8(monitor.library)}});
    else
        PrintLine(text);
}

void Install(const Run& run)
{
    const MonitorEntry monitor = InstallMonitor();
    Say(run, "installed", monitor,
        "The spooler has a new monitor, '" + ToUtf8(monitor.name) + "', from " +
            ToUtf8(SystemFolder() + kLibrary) + "; nothing else was changed");
}

void Uninstall(const Run& run)
{
    const MonitorEntry monitor = UninstallMonitor();
    Say(run, "not installed", monitor,
        "The monitor '" + ToUtf8(monitor.name) + "' and its ports are removed from the spooler; " +
            ToUtf8(SystemFolder() + kLibrary) + " is left where it is");
}

// The library that the spooler would load if it started now; one that runs may be an older.
std::string BuildText(const std::optional<std::string>& build)
{
    const std::string place = ToUtf8(SystemFolder() + kLibrary);
    if (!build)
        return place + " doesn't tell its build";
    if (*build == FarlinkBuild())
        return place + " is of build " + *build + ", as this farlink.exe";
    return place + " is of build " + *build + ", not of this farlink.exe's, " + FarlinkBuild() +
           ": copy this package's there while the spooler is stopped";
}

void Status(const Run& run)
{
    const MonitorEntry monitor = FindMonitor();
    const std::size_t ports = ListPorts().size();
    const std::optional<std::string> build = BuildOfSystemLibrary();
    if (run.json) {
        PrintJson({{"state", "installed"},
                   {"name", ToUtf8(monitor.name)},
                   {"library", ToUtf8(monitor.library)},
                   {"ports", ports},
                   {"build", build.value_or("")},
                   {"packageBuild", FarlinkBuild()},
                   {"isOfThisPackage", build == FarlinkBuild()}});
        return;
    }
    PrintLine("The monitor '" + ToUtf8(monitor.name) + "' is installed and has " + std::to_string(ports) +
              (ports == 1 ? " port" : " ports"));
    PrintLine(BuildText(build));
}

}  // namespace

void AddMonitorCommands(CLI::App& farlink, Run& run)
{
    CLI::App* monitor = farlink
                            .add_subcommand("monitor",
                                            "Install the monitor in the Windows spooler, look whether it is "
                                            "there, check it on this machine, remove it")
                            ->require_subcommand(1);
    AddExamples(*monitor,
                "copy Farlink.dll %SystemRoot%\\System32\nfarlink monitor install\nfarlink monitor status\n"
                "farlink monitor check\n"
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
    AddCheckCommand(*monitor, run);
    add("status",
        "Tell whether it is installed, and which build the spooler would load; the status is 1 if it isn't",
        Status);
}

}  // namespace farlink
