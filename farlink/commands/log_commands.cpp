#include <algorithm>
#include <memory>
#include <optional>
#include <sstream>

#include "farlink/commands.h"
#include "farlink/log/log_path.h"
#include "farlink/log/log_settings.h"
#include "farlink/log/log_show.h"
#include "farlink/ports/spooler_lists.h"

namespace farlink {

namespace {

struct Setting {
    LPCWSTR name;
    DWORD initial;  // what the monitor takes when nothing is stored
};
constexpr Setting kEvents{TEXT("EventTypesToLog"), 0x3F};
constexpr Setting kFile{TEXT("LogToFile"), 0};
constexpr Setting kDebug{TEXT("LogToDebugOutput"), 0};
constexpr Setting kLimit{TEXT("MaxLogFileSize"), 0};

// A port that waits writes 12 MiB an hour, so a log that is switched on gets a limit unless there is one.
constexpr DWORD kUsualLimit = 10240;

struct EventName {
    const char* name;
    DWORD bit;
};
constexpr EventName kEventNames[] = {{"entry", 0x01},   {"trace", 0x02}, {"error", 0x04},
                                     {"warning", 0x08}, {"info", 0x10},  {"data", 0x20}};

struct LevelOptions {
    std::optional<std::string> events;
    std::optional<std::string> file;
    std::optional<std::string> debug;
    std::optional<DWORD> limit;
    bool defaults = false;

    bool ChangesAny() const { return events || file || debug || limit || defaults; }
};

DWORD Read(const MonitorEntry& monitor, const Setting& setting)
{
    return ReadLogSetting(monitor, setting.name).value_or(setting.initial);
}

std::vector<std::string> NamesOf(DWORD events)
{
    std::vector<std::string> names;
    for (const EventName& event : kEventNames)
        if ((events & event.bit) != 0)
            names.push_back(event.name);
    return names;
}

DWORD EventsOf(const std::string& list)
{
    if (list == "all")
        return kEvents.initial;
    if (list == "none")
        return 0;
    DWORD events = 0;
    std::istringstream names(list);
    for (std::string name; std::getline(names, name, ',');) {
        const auto* known =
            std::ranges::find(kEventNames, name, [](const EventName& event) { return event.name; });
        if (known == std::end(kEventNames))
            throw Failure("'" + name +
                              "' is no kind of event: entry, trace, error, warning, info and data are, "
                              "with commas between them, or all, or none",
                          ExitStatus::Usage);
        events |= known->bit;
    }
    return events;
}

void Show(const Run& run, const MonitorEntry& monitor)
{
    const std::vector<std::string> events = NamesOf(Read(monitor, kEvents));
    const bool file = Read(monitor, kFile) != 0;
    const bool debug = Read(monitor, kDebug) != 0;
    const DWORD limit = Read(monitor, kLimit);
    if (run.json) {
        PrintJson({{"events", events},
                   {"file", file},
                   {"debug", debug},
                   {"limitKiB", limit},
                   {"path", LogPath(monitor)}});
        return;
    }
    std::string list;
    for (const std::string& event : events)
        list += list.empty() ? event : "," + event;
    PrintTable({{"events", list.empty() ? "none" : list},
                {"file", file ? "on, " + LogPath(monitor) : "off"},
                {"debug", debug ? "on" : "off"},
                {"limit", limit == 0 ? "none" : std::to_string(limit) + " KiB"}});
}

void Level(const Run& run, const LevelOptions& options)
{
    const MonitorEntry monitor = FindMonitor();
    const std::optional<DWORD> events =
        options.events ? std::optional(EventsOf(*options.events)) : std::nullopt;
    if (options.defaults)
        for (const Setting& setting : {kEvents, kFile, kDebug, kLimit})
            RemoveLogSetting(monitor, setting.name);
    if (events)
        StoreLogSetting(monitor, kEvents.name, *events);
    if (options.file == "on" && !options.limit && !ReadLogSetting(monitor, kLimit.name))
        StoreLogSetting(monitor, kLimit.name, kUsualLimit);
    if (options.file)
        StoreLogSetting(monitor, kFile.name, *options.file == "on" ? 1 : 0);
    if (options.debug)
        StoreLogSetting(monitor, kDebug.name, *options.debug == "on" ? 1 : 0);
    if (options.limit)
        StoreLogSetting(monitor, kLimit.name, *options.limit);
    Show(run, monitor);
    if (!run.json && options.ChangesAny())
        PrintLine(kWhenSettingsCount);
}

}  // namespace

void AddLogCommands(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<LevelOptions>();
    CLI::App* log = farlink.add_subcommand("log", "Show the monitor's diagnostic log in the order of time")
                        ->require_subcommand(0, 1);
    AddLogShowing(*log, run);
    AddExamples(*log,
                "farlink log --since 14:05:00\nfarlink log --follow --port front-desk\n"
                "farlink log saved.log --json\nfarlink log level --file on");
    CLI::App* level = log->add_subcommand(
        "level", "Show or change what is logged and where; counts for each monitor that starts from then on");
    AddJsonFlag(*level, run);
    AddExamples(*level,
                "farlink log level\nfarlink log level --file on --limit 1024\n"
                "farlink log level --events error,warning\nfarlink log level --defaults");
    level
        ->add_option("--events", options->events,
                     "entry, trace, error, warning, info, data, with commas between them; all; none")
        ->type_name("LIST");
    level->add_option("--file", options->file, "Write the log file")
        ->check(CLI::IsMember({"on", "off"}))
        ->type_name("SWITCH");
    level->add_option("--debug", options->debug, "Write to the debug output")
        ->check(CLI::IsMember({"on", "off"}))
        ->type_name("SWITCH");
    level
        ->add_option("--limit", options->limit,
                     "Size at which the file wraps; 0 for none. 10240 if the log is switched on without one")
        ->transform(WithoutLeadingZeros())
        ->type_name("KIB");
    level->add_flag("--defaults", options->defaults, "First put back what a new system has");
    level->callback([&run, options] { Level(run, *options); });
}

}  // namespace farlink
