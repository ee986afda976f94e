#include "farlink/log/log_show.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "farlink/log/log_file_bytes.h"
#include "farlink/log/log_follower.h"
#include "farlink/log/log_path.h"
#include "farlink/log/log_text.h"
#include "farlink/ports/port_lookup.h"

namespace farlink {

namespace {

constexpr std::chrono::milliseconds kLookAtLogEvery{100};
constexpr std::size_t kLinesBeforeFollowing = 10;

struct ShowOptions {
    std::string file;
    std::string port;
    std::string since;
    bool follow = false;
};

// As CLI11 wants it: empty if the text is a time of day, the complaint otherwise.
std::string CheckTime(const std::string& text)
{
    constexpr std::string_view kLast = "29:59:59";  // the greatest digit in each place
    bool isTime = text.size() == kLast.size();
    for (std::size_t i = 0; isTime && i < kLast.size(); ++i)
        isTime = kLast[i] == ':' ? text[i] == ':' : text[i] >= '0' && text[i] <= kLast[i];
    return isTime && text < "24" ? "" : "'" + text + "' is no time of day, HH:MM:SS";
}

void Print(const Run& run, std::string_view record)
{
    if (!run.json) {
        PrintLine(std::string(record));
        return;
    }
    const LogFields fields = FieldsOf(record);
    PrintJsonLine(
        {{"time", fields.time}, {"tag", fields.tag}, {"thread", fields.thread}, {"message", fields.message}});
}

// A text that looks like a tag is one, so that a file from another system can be read without its ports.
std::string TagOf(const std::string& port)
{
    const std::size_t colon = port.rfind(':');
    const bool isTag = colon != std::string::npos && colon + 1 < port.size() &&
                       port.find_first_not_of("0123456789", colon + 1) == std::string::npos;
    return port.empty() || isTag ? port : LogTagOf(GetPort(FindPortByName(port)));
}

std::vector<std::string_view> Chosen(const std::string& tag, const std::vector<std::string>& records)
{
    std::vector<std::string_view> chosen;
    for (const std::string& record : records)
        if (tag.empty() || FieldsOf(record).tag == tag)
            chosen.emplace_back(record);
    return chosen;
}

void Show(const Run& run, const ShowOptions& options)
{
    const std::string tag = TagOf(options.port);
    const std::string path = options.file.empty() ? LogPath(FindMonitor()) : options.file;
    LogFileBytes file(path);
    if (!options.follow && !file.Exists())
        throw Failure("There is no log file '" + path + "'; 'farlink log level --file on' turns it on");
    LogFollower follower(file);
    const std::vector<std::string> there = follower.Look().records;
    std::vector<std::string_view> records = Chosen(tag, there);
    if (!options.since.empty())
        DropBefore(options.since, records);
    else if (options.follow && records.size() > kLinesBeforeFollowing)
        records.erase(records.begin(), records.end() - kLinesBeforeFollowing);
    for (const std::string_view record : records)
        Print(run, record);
    while (options.follow && !OutputIsBroken()) {
        const LogFollower::News news = follower.Look();
        if (news.incomplete)
            Complain("The log was written faster than it was read; lines are missing here");
        for (const std::string_view record : Chosen(tag, news.records))
            Print(run, record);
        std::this_thread::sleep_for(kLookAtLogEvery);
    }
}

}  // namespace

void AddLogShowing(CLI::App& log, Run& run)
{
    auto options = std::make_shared<ShowOptions>();
    AddJsonFlag(log, run);
    log.add_option("FILE", options->file, "A log file; the monitor's own if none is named");
    log.add_option("-p,--port", options->port,
                   "Only lines of this port; or of this tag: print server and port number")
        ->type_name("NAME");
    log.add_option("--since", options->since, "Only lines from this time of day on")
        ->check(CheckTime)
        ->type_name("HH:MM:SS");
    log.add_flag("-f,--follow", options->follow, "Show the last lines, then each new one, until Ctrl-C");
    log.callback([&run, &log, options] {
        if (log.get_subcommands().empty())
            Show(run, *options);
    });
}

}  // namespace farlink
