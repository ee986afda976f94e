#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include "farlink/commands.h"
#include "farlink/log/log_path.h"
#include "farlink/posix/destination.h"
#include "farlink/posix/log_holder.h"
#include "farlink/posix/print_view.h"
#include "farlink/posix/retry_time.h"
#include "farlink/posix/signal_watch.h"
#include "spooler/printing.h"
#include "spooler/spooler_error.h"

namespace farlink {

namespace {

using spooler::Outcome;
using std::chrono::milliseconds;

constexpr DWORD kAllLogLines = 0x3F;

struct PrintOptions {
    std::string destination;
    std::vector<std::string> files;
    std::string title;
    std::string retryFor = "5m";
    unsigned copies = 1;
    bool verbose = false;
};

bool IsStandardInput(const std::string& name)
{
    return name == "-";
}

std::string DocumentName(const std::string& file)
{
    return IsStandardInput(file) ? "standard input" : std::filesystem::path(file).filename().string();
}

ExitStatus StatusOf(Outcome outcome)
{
    switch (outcome) {
        case Outcome::Sent:
            return ExitStatus::Done;
        case Outcome::CancelledHere:
        case Outcome::CancelledAtServer:
            return ExitStatus::Deleted;
        case Outcome::Unconfirmed:
            return ExitStatus::Unconfirmed;
        default:
            return ExitStatus::Failed;
    }
}

// The one that asks more of the person.
ExitStatus Worse(ExitStatus left, ExitStatus right)
{
    static constexpr ExitStatus kByWeight[] = {ExitStatus::Done, ExitStatus::Deleted, ExitStatus::Unconfirmed,
                                               ExitStatus::Failed};
    return std::ranges::find(kByWeight, left) < std::ranges::find(kByWeight, right) ? right : left;
}

class ToView : public spooler::Listener {
public:
    ToView(PrintView& shownIn, bool withLog) : view(shownIn), verbose(withLog) {}

    void OnProgress(const spooler::Progress& progress) override { view.Show(progress); }
    void OnLogLine(std::string_view line) override
    {
        if (verbose)
            view.ShowLogLine(line);
    }
    void OnAttemptFailed(const spooler::Result& failed, milliseconds pause) override
    {
        view.ShowRetry(failed, pause);
    }

private:
    PrintView& view;
    const bool verbose;
};

class Printer {
public:
    Printer(const PrintOptions& wanted, bool json)
        : options(wanted),
          retryFor(RetryTime(options.retryFor)),
          stop(WatchSignals()),
          destination(options.destination),
          view(MakePrintView(json, options.verbose))
    {
    }

    // A document that fails doesn't keep the others from being printed; a stop does, and counts only where it
    // leaves something undone.
    ExitStatus Print()
    {
        TellOfLog();
        ExitStatus worst = ExitStatus::Done;
        for (const std::string& file : options.files) {
            if (stop.stop_requested())
                return Worse(worst, ExitStatus::Deleted);
            worst = Worse(worst, PrintFile(file));
        }
        return worst;
    }

private:
    // Before the port monitor of this process tries for the log itself.
    void TellOfLog() const
    {
        if (!destination.Log().toFile)
            return;
        const std::string path = LogPath(FindMonitor());
        if (LogIsHeld(path))
            Complain("another process writes the log file '" + path +
                     "'; it will hold nothing of these documents");
    }

    ExitStatus PrintFile(const std::string& file)
    {
        ExitStatus worst = ExitStatus::Done;
        try {
            const auto document = IsStandardInput(file)
                                      ? spooler::Document::OpenDescriptor(0, DocumentName(file), stop)
                                      : spooler::Document::OpenFile(file, stop);
            for (unsigned copy = 1; copy <= options.copies; ++copy) {
                if (stop.stop_requested())
                    return Worse(worst, ExitStatus::Deleted);
                worst = Worse(worst,
                              PrintCopy(*document, {TitleOf(file), copy, options.copies, document->Size()}));
            }
            return worst;
        } catch (const spooler::SpoolerError& error) {
            view->Refuse(DocumentName(file), error.text);
            return error.word == ERROR_PRINT_CANCELLED ? ExitStatus::Deleted : ExitStatus::Failed;
        }
    }

    ExitStatus PrintCopy(const spooler::Document& document, const Printed& printed)
    {
        spooler::Order order;
        order.port = [this] { return destination.Settings(); };
        order.log = [this] { return destination.Log(); };
        order.title = printed.document;
        order.retryFor = retryFor;
        order.eventTypes = options.verbose ? kAllLogLines : 0;
        view->Begin(printed);
        ToView listener(*view, options.verbose);
        const spooler::Result result = spooler::PrintDocument(order, document, listener, stop);
        view->End(result);
        // Who waited in vain for the print server once doesn't wait as long again for each further document.
        if (spooler::RuleFor(result.outcome).follow == spooler::Follow::TryAgain)
            retryFor = milliseconds::zero();
        return StatusOf(result.outcome);
    }

    std::string TitleOf(const std::string& file) const
    {
        return options.title.empty() ? DocumentName(file) : options.title;
    }

    const PrintOptions& options;
    std::optional<milliseconds> retryFor;
    const std::stop_token stop;
    const Destination destination;
    const std::unique_ptr<PrintView> view;
};

void AddOptions(CLI::App& print, PrintOptions& options)
{
    print
        .add_option("-t,--to", options.destination,
                    "A port's name, or HOST:PORT; without it $FARLINK_PORT, or the only port")
        ->type_name("NAME");
    print.add_option("FILE", options.files, "Card print data, sent as it is; - is the standard input")
        ->required();
    print.add_option("-n,--copies", options.copies, "Print each document so often, one after the other")
        ->capture_default_str()
        ->check(CLI::Range(1U, 1000U))
        ->type_name("N");
    print.add_option("-T,--title", options.title, "What the document is called, instead of its file's name")
        ->type_name("TEXT");
    print
        .add_option("-r,--retry-for", options.retryFor,
                    "How long to try again while there is no link: 90s, 5m, 2h, forever; 0: one attempt")
        ->capture_default_str()
        ->type_name("DURATION");
    print.add_flag("-v,--verbose", options.verbose, "Show all that the port monitor writes for its log");
}

}  // namespace

void AddPrintCommand(CLI::App& farlink, Run& run)
{
    auto options = std::make_shared<PrintOptions>();
    CLI::App* print =
        farlink.add_subcommand("print", "Print files and follow each to its end at the print server");
    AddJsonFlag(*print, run);
    AddOptions(*print, *options);
    AddExamples(*print,
                "farlink print --to front-desk badge.prn\nfarlink print --to 10.0.0.7:9100 *.prn --json\n"
                "make-badge | farlink print --copies 2 -");
    print->footer(
        print->get_footer() +
        "\n\nCtrl-C, SIGTERM and SIGHUP cancel at once. A document of which all bytes are out and the print\n"
        "server says nothing more is never printed again unasked (status 4): look at the printer first.\n\n" +
        kExitStatusHelp);
    print->callback([&run, options] { run.status = Printer(*options, run.json).Print(); });
}

}  // namespace farlink
