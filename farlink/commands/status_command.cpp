#include <algorithm>
#include <memory>

#include "farlink/commands.h"
#include "farlink/log/log_file_bytes.h"
#include "farlink/log/log_findings.h"
#include "farlink/log/log_path.h"
#include "farlink/log/log_settings.h"
#include "farlink/log/log_text.h"
#include "farlink/log/newest_lines.h"
#include "farlink/ports/port_entry.h"
#include "farlink/ports/port_lookup.h"
#include "farlink/ports/port_use.h"
#include "farlink/ports/reach.h"
#include "farlink/ports/spooler_lists.h"

namespace farlink {

namespace {

constexpr std::size_t kFailuresShown = 3;
// Of the newest lines: a log without a limit may be larger than the memory.
constexpr std::uint64_t kLogBytesRead = std::uint64_t{8} << 20;

// Whatever process wrote it. What the log doesn't hold isn't known.
struct LogLook {
    std::string path;
    bool isOn = false;
    bool exists = false;
    LogFindings found;
};

LogLook LookIntoLog(const std::string& tag)
{
    const MonitorEntry monitor = FindMonitor();
    LogLook look;
    look.path = LogPath(monitor);
    look.isOn = ReadLogSetting(monitor, TEXT("LogToFile")).value_or(0) != 0;
    LogFileBytes file(look.path);
    look.exists = file.Exists();
    if (look.exists) {
        const NewestLines newest = ReadNewestLines(file, kLogBytesRead);
        look.found = FindInLog(RecordsOf(newest.lines), tag);
    }
    return look;
}

struct Health {
    PortEntry port;
    Reach reach;
    std::optional<std::vector<WaitingJob>> jobs;
    LogLook log;
};

Health Examine(const WideString& name)
{
    Health health;
    health.port = ReadPort(name);
    health.reach = TryPort(health.port.settings);
    health.jobs = WaitingJobsOn(name);
    health.log = LookIntoLog(LogTagOf(health.port.settings));
    auto& failures = health.log.found.failures;
    if (failures.size() > kFailuresShown)
        failures.erase(failures.begin(), failures.end() - kFailuresShown);
    return health;
}

std::string WordOf(const Reach& reach)
{
    return reach.answers ? "yes" : "no";
}

// --- for people -------------------------------------------------------------------------------------

std::string Unknown(const LogLook& log)
{
    if (!log.isOn)
        return std::string("not known: the log is off (") + kLogHint + ")";
    return log.exists ? "not known: the log doesn't tell" : "not known: there is no log file yet";
}

std::string TextOf(const std::optional<LogFindings::Word>& word, const LogLook& log)
{
    return word ? word->text + " (in the log at " + word->time + ")" : Unknown(log);
}

void AddRows(std::vector<std::vector<std::string>>& rows, const std::string& heading,
             const std::vector<std::string>& lines, const std::string& none)
{
    if (lines.empty())
        rows.push_back({heading, none});
    for (const std::string& line : lines)
        rows.push_back({&line == &lines.front() ? heading : "", line});
}

std::vector<std::string> LinesOf(const std::vector<WaitingJob>& jobs)
{
    std::vector<std::string> lines;
    for (const WaitingJob& job : jobs)
        lines.push_back(std::to_string(job.id) + " " + job.state +
                        (job.reason.empty() ? "" : ": " + job.reason));
    return lines;
}

void Show(const Health& health)
{
    std::vector<std::string> failures;
    for (const LogFindings::Word& failure : health.log.found.failures)
        failures.push_back(failure.time + "  " + failure.text);
    const PortSettings& port = health.port.settings;
    std::vector<std::vector<std::string>> rows = {
        {"port", ToUtf8(port.name)},
        {"server", ToUtf8(port.server) + ", " + std::to_string(port.number) + " (data), " +
                       std::to_string(port.number + 2) + " (commands)"},
        {"keep-alive", "period " + std::to_string(health.port.keepAlive.period) + " s, timeout " +
                           std::to_string(health.port.keepAlive.timeout) + " s"},
        {"reachable", WordOf(health.reach) + ": " + health.reach.text},
        {"protocol", TextOf(health.log.found.version, health.log)},
        {"printer", TextOf(health.log.found.lastNote, health.log)}};
    if (health.jobs)
        AddRows(rows, "jobs", LinesOf(*health.jobs), "none waits");
    AddRows(rows, "failures", failures, health.log.exists ? "none in the log" : Unknown(health.log));
    PrintTable(rows);
}

// --- for programs -----------------------------------------------------------------------------------

Json JsonOf(const std::optional<LogFindings::Word>& word)
{
    return word ? Json{{"time", word->time}, {"text", word->text}} : Json(nullptr);
}

Json JsonOf(const PortEntry& port, const Reach& reach)
{
    Json all = JsonOf(port);
    all.update({{"reachable", WordOf(reach)}, {"reason", reach.text}});
    return all;
}

void ShowJson(const Health& health)
{
    Json jobs;  // null: not known
    if (health.jobs) {
        jobs = Json::array();
        for (const WaitingJob& job : *health.jobs)
            jobs.push_back({{"job", job.id}, {"state", job.state}, {"reason", job.reason}});
    }
    Json failures = Json::array();
    for (const LogFindings::Word& failure : health.log.found.failures)
        failures.push_back(JsonOf(failure));
    Json all = JsonOf(health.port, health.reach);
    all.update({{"protocol", JsonOf(health.log.found.version)},
                {"printer", JsonOf(health.log.found.lastNote)},
                {"jobs", jobs},
                {"failures", health.log.exists ? failures : Json(nullptr)},
                {"log", {{"on", health.log.isOn}, {"path", health.log.path}}}});
    PrintJson(all);
}

// --- the commands -----------------------------------------------------------------------------------

void TellOne(Run& run, const std::string& name)
{
    const Health health = Examine(FindPort(name));
    if (run.json)
        ShowJson(health);
    else
        Show(health);
    if (!health.reach.answers)
        run.status = std::max(run.status, ExitStatus::Failed);
}

void TellAll(Run& run)
{
    std::vector<PortEntry> ports;
    for (const WideString& name : ListPorts())
        ports.push_back(ReadPort(name));
    const std::vector<Reach> reached = TryPorts(ports);
    Json all = Json::array();
    std::vector<std::vector<std::string>> rows;
    for (std::size_t i = 0; i < ports.size(); ++i) {
        all.push_back(JsonOf(ports[i], reached[i]));
        rows.push_back({ToUtf8(ports[i].settings.name), WordOf(reached[i]), reached[i].text});
        if (!reached[i].answers)
            run.status = ExitStatus::Failed;
    }
    if (run.json)
        PrintJson(all);
    else if (rows.empty())
        PrintLine("No ports. 'farlink port add NAME --server HOST --port N' makes one.");
    else
        PrintTable(std::move(rows));
}

}  // namespace

void AddStatusCommand(CLI::App& farlink, Run& run)
{
    auto names = std::make_shared<std::vector<std::string>>();
    CLI::App* status = farlink.add_subcommand(
        "status",
        "Tell which print servers answer; of a named port also its settings, jobs and last failures");
    AddJsonFlag(*status, run);
    status->add_option("NAME", *names, "A port or a printer; without a name, a line for each port");
    AddExamples(*status, "farlink status\nfarlink status front-desk\nfarlink status --json");
    status->footer(
        status->get_footer() +
        "\n\nTo try a print server, its command channel is connected to and let go without a byte.\n"
        "Protocol, printer state and failures are what the monitor's log file holds.\n\n"
        "Exit status: 0 every print server that was tried answers; 1 one doesn't, or there is no such\n"
        "port.");
    status->callback([&run, names] {
        if (names->empty())
            TellAll(run);
        ForEach(run, *names, [&](const std::string& name) { TellOne(run, name); });
    });
}

}  // namespace farlink
