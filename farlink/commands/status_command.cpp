#include <memory>

#include "farlink/commands.h"
#include "farlink/log/log_file_bytes.h"
#include "farlink/log/log_findings.h"
#include "farlink/log/log_path.h"
#include "farlink/log/log_settings.h"
#include "farlink/log/log_text.h"
#include "farlink/ports/port_administration.h"
#include "farlink/ports/port_lookup.h"
#include "farlink/ports/port_use.h"
#include "farlink/ports/spooler_lists.h"

namespace farlink {

namespace {

constexpr std::size_t kFailuresShown = 3;

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
        const std::string content = file.Read(0, file.Size());
        look.found = FindInLog(RecordsInOrderOfTime(content), tag);
    }
    return look;
}

struct Health {
    PortSettings port;
    KeepAlive keepAlive;
    Reach reach;
    std::vector<WaitingJob> jobs;
    LogLook log;
};

Health Examine(const WideString& name)
{
    Health health;
    health.port = GetPort(name);
    health.keepAlive = GetKeepAlive(name);
    health.reach = TryPort(health.port);  // before the look into the log, which then holds it too
    health.jobs = WaitingJobsOn(health.port.name);
    health.log = LookIntoLog(ToUtf8(health.port.server) + ":" + std::to_string(health.port.number));
    return health;
}

// --- for people -------------------------------------------------------------------------------------

std::string Unknown(const LogLook& log)
{
    if (!log.isOn)
        return "not known: the log is off ('farlink log level --file on')";
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

void Show(const Health& health)
{
    std::vector<std::string> jobs;
    for (const WaitingJob& job : health.jobs)
        jobs.push_back(std::to_string(job.id) + " " + job.state +
                       (job.reason.empty() ? "" : ": " + job.reason));
    std::vector<std::string> failures;
    for (const LogFindings::Word& failure : health.log.found.failures)
        failures.push_back(failure.time + "  " + failure.text);
    std::vector<std::vector<std::string>> rows = {
        {"port", ToUtf8(health.port.name)},
        {"server", ToUtf8(health.port.server) + ", " + std::to_string(health.port.number) + " (data), " +
                       std::to_string(health.port.number + 2) + " (commands)"},
        {"keep-alive", "period " + std::to_string(health.keepAlive.period) + " s, timeout " +
                           std::to_string(health.keepAlive.timeout) + " s"},
        {"reachable", health.reach.text},
        {"protocol", TextOf(health.log.found.version, health.log)},
        {"printer", TextOf(health.log.found.lastNote, health.log)}};
    AddRows(rows, "jobs", jobs, "none waits");
    AddRows(rows, "failures", failures, health.log.exists ? "none in the log" : Unknown(health.log));
    PrintTable(rows);
}

// --- for programs -----------------------------------------------------------------------------------

Json JsonOf(const std::optional<LogFindings::Word>& word)
{
    return word ? Json{{"time", word->time}, {"text", word->text}} : Json(nullptr);
}

void ShowJson(const Health& health)
{
    Json jobs = Json::array();
    for (const WaitingJob& job : health.jobs)
        jobs.push_back({{"job", job.id}, {"state", job.state}, {"reason", job.reason}});
    Json failures = Json::array();
    for (const LogFindings::Word& failure : health.log.found.failures)
        failures.push_back(JsonOf(failure));
    PrintJson({{"name", ToUtf8(health.port.name)},
               {"server", ToUtf8(health.port.server)},
               {"port", health.port.number},
               {"period", health.keepAlive.period},
               {"timeout", health.keepAlive.timeout},
               {"reachable", health.reach.word},
               {"reason", health.reach.text},
               {"protocol", JsonOf(health.log.found.version)},
               {"printer", JsonOf(health.log.found.lastNote)},
               {"jobs", jobs},
               {"failures", health.log.exists ? failures : Json(nullptr)},
               {"log", {{"on", health.log.isOn}, {"path", health.log.path}}}});
}

void Status(Run& run, const std::string& name)
{
    Health health = Examine(FindPort(name));
    auto& failures = health.log.found.failures;
    if (failures.size() > kFailuresShown)
        failures.erase(failures.begin(), failures.end() - kFailuresShown);
    if (run.json)
        ShowJson(health);
    else
        Show(health);
    if (health.reach.word == std::string("no"))
        run.status = ExitStatus::Failed;
}

}  // namespace

void AddStatusCommand(CLI::App& farlink, Run& run)
{
    auto name = std::make_shared<std::string>();
    CLI::App* status = farlink.add_subcommand(
        "status", "Tell a port's health: settings, whether its print server answers, jobs, last failures");
    AddJsonFlag(*status, run);
    status->add_option("NAME", *name, "A port or a printer")->required();
    AddExamples(*status, "farlink status front-desk\nfarlink status front-desk --json");
    status->footer(
        status->get_footer() + "\n\n" + kTryHelp +
        "\nProtocol, printer state and failures are what the monitor's log file holds.\n\n"
        "Exit status: 0 the print server answers, or the port is at work; 1 it doesn't, or there is\n"
        "no such port.");
    status->callback([&run, name] { Status(run, *name); });
}

}  // namespace farlink
