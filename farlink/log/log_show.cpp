#include "farlink/log/log_show.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "farlink/log/log_file_bytes.h"
#include "farlink/log/log_path.h"
#include "farlink/log/log_text.h"

namespace farlink {

namespace {

constexpr std::chrono::milliseconds kLookAtLogEvery{100};
constexpr std::size_t kLinesBeforeFollowing = 10;

struct ShowOptions {
    std::string file;
    std::string tag;
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

// Texts from outside stand in a log; a terminal is not to obey them.
std::string Harmless(std::string_view record)
{
    std::string text(record);
    for (char& letter : text)
        if ((letter >= 0 && letter < ' ' && letter != '\t' && letter != '\n') || letter == 0x7F)
            letter = '.';
    return text;
}

void Print(const Run& run, std::string_view record)
{
    if (!run.json) {
        PrintLine(Harmless(record));
        return;
    }
    const LogFields fields = FieldsOf(record);
    PrintJsonLine(
        {{"time", fields.time}, {"tag", fields.tag}, {"thread", fields.thread}, {"message", fields.message}});
}

std::vector<std::string_view> Chosen(const ShowOptions& options, const std::vector<std::string>& records)
{
    std::vector<std::string_view> chosen;
    for (const std::string& record : records)
        if (options.tag.empty() || FieldsOf(record).tag == options.tag)
            chosen.emplace_back(record);
    return chosen;
}

void Show(const Run& run, const ShowOptions& options)
{
    const std::string path = options.file.empty() ? LogPath(FindMonitor()) : options.file;
    LogFileBytes file(path);
    if (!options.follow && !file.Exists())
        throw Failure("There is no log file '" + path + "'; 'farlink log level --file on' turns it on");
    LogFollower follower(file);
    const std::vector<std::string> there = follower.Look().records;
    std::vector<std::string_view> records = Chosen(options, there);
    if (!options.since.empty())
        DropBefore(options.since, records);
    else if (options.follow && records.size() > kLinesBeforeFollowing)
        records.erase(records.begin(), records.end() - kLinesBeforeFollowing);
    for (const std::string_view record : records)
        Print(run, record);
    while (options.follow) {
        const LogFollower::News news = follower.Look();
        if (news.incomplete)
            std::fputs("farlink: The log was written faster than it was read; lines are missing here\n",
                       stderr);
        for (const std::string_view record : Chosen(options, news.records))
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
    log.add_option("--port", options->tag, "Only lines with this tag: print server and port number")
        ->type_name("HOST:N");
    log.add_option("--since", options->since, "Only lines from this time of day on")
        ->check(CheckTime)
        ->type_name("HH:MM:SS");
    log.add_flag("--follow", options->follow, "Show the last lines, then each new one, until Ctrl-C");
    log.callback([&run, &log, options] {
        if (log.get_subcommands().empty())
            Show(run, *options);
    });
}

}  // namespace farlink
