#include "farlink/windows/check/check_command.h"

#include <iostream>
#include <memory>
#include <random>

#include "farlink/interrupts.h"
#include "farlink/log/log_path.h"
#include "farlink/windows/check/check_steps.h"
#include "farlink/windows/monitor_installation.h"

namespace farlink {

namespace {

constexpr std::size_t kDocumentSize = 300000;

struct CheckOptions {
    bool isAgreed = false;
    bool restartsSpooler = false;
    std::string report = "farlink-check.txt";
};

void AskFor(const std::string& what)
{
    std::cout << what << " Go on? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y")
        throw Failure("Nothing was changed");
}

bool IsInstalled()
{
    try {
        (void)FindMonitor();
        return true;
    } catch (const Failure&) {
        return false;
    }
}

// The monitor, installed for the check if it wasn't before.
class Installation {
public:
    explicit Installation(bool wasThere) : isOurs(!wasThere)
    {
        if (isOurs)
            (void)InstallMonitor();
    }
    ~Installation()
    {
        try {
            if (isOurs)
                (void)UninstallMonitor();
        } catch (const Failure& failure) {
            std::cerr << failure.what() << std::endl;
        }
    }
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

private:
    const bool isOurs;
};

printserver::Bytes AnyBytes()
{
    std::mt19937 draw(kDocumentSize);  // each check prints the same
    printserver::Bytes bytes(kDocumentSize);
    for (auto& byte : bytes)
        byte = static_cast<std::uint8_t>(draw());
    return bytes;
}

void Tell(Run& run, const CheckReport& report, const std::string& path)
{
    const int failed = report.Count("FAILED");
    if (failed > 0)
        run.status = ExitStatus::Failed;
    if (!run.json) {
        PrintLine(std::to_string(report.Count("ok")) + " passed, " + std::to_string(failed) + " failed, " +
                  std::to_string(report.Count("skipped")) + " skipped; the report is in '" + path + "'");
        return;
    }
    Json steps = Json::array();
    for (const CheckReport::Result& result : report.Results())
        steps.push_back({{"step", result.name},
                         {"outcome", result.outcome},
                         {"seconds", result.seconds},
                         {"reason", result.reason}});
    PrintJson({{"failed", failed}, {"report", path}, {"steps", steps}});
}

void Check(Run& run, const CheckOptions& options)
{
    const bool wasThere = IsInstalled();
    if (!options.isAgreed)
        AskFor(
            std::string("A port and a printer are made, some documents are printed to a print server inside "
                        "this command, and both are deleted again.") +
            (wasThere ? "" : " The monitor is installed first, and removed at the end.") +
            (options.restartsSpooler ? " The spooler is restarted on the way." : ""));
    CatchInterrupts();
    const Installation installation(wasThere);
    CheckReport report(run.json);
    CheckBench bench;
    bench.document = AnyBytes();
    RunCheckSteps(bench, report, options.restartsSpooler);
    report.Write(options.report, LogPath(FindMonitor()), "127.0.0.1:" + std::to_string(bench.server.Port()));
    Tell(run, report, options.report);
}

}  // namespace

void AddCheckCommand(CLI::App& monitor, Run& run)
{
    auto options = std::make_shared<CheckOptions>();
    CLI::App* check = monitor.add_subcommand(
        "check",
        "Print through this machine's own spooler to a print server inside this command, and report");
    AddJsonFlag(*check, run);
    check->add_flag("--yes", options->isAgreed, "Don't ask first");
    check->add_flag("--restart-spooler", options->restartsSpooler,
                    "Restart the spooler on the way; documents under way are then printed again");
    check->add_option("--report", options->report, "File for the report, which can be sent to us")
        ->capture_default_str()
        ->type_name("FILE");
    AddExamples(*check,
                "farlink monitor check\nfarlink monitor check --yes --restart-spooler --report check.txt");
    check->footer(
        check->get_footer() +
        "\n\nIt takes an administrator's rights, a minute or two, and no print server. What it makes it\n"
        "removes: a port and a printer of its own, and the monitor if it wasn't installed. The report\n"
        "has the version of the system, what passed and how long it took, the spooler's newest events,\n"
        "which may name other printers and documents, and the monitor's log lines of the check.");
    check->callback([&run, options] { Check(run, *options); });
}

}  // namespace farlink
