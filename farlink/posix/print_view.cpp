#include "farlink/posix/print_view.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "farlink/commands.h"
#include "farlink/posix/progress_bar.h"
#include "farlink/sizes.h"

namespace farlink {

namespace {

using spooler::Outcome;
using spooler::Phase;
using spooler::Progress;
using spooler::Result;
using std::chrono::milliseconds;

const char* WordOf(Phase phase)
{
    switch (phase) {
        case Phase::Connecting:
            return "connecting";
        case Phase::WaitingInQueue:
            return "waiting-in-queue";
        case Phase::Sending:
            return "sending";
        case Phase::WaitingForCard:
            return "waiting-for-card";
        default:
            return "retrying";
    }
}

std::string RetrySentence(Result failed, milliseconds pause, bool withRemedy)
{
    const bool anew = spooler::RuleFor(failed.outcome).follow == spooler::Follow::SendAgain;
    if (!withRemedy)
        failed.reason.remedy.clear();
    return SentenceOf(failed) + "; trying again in " + DurationText(pause) +
           (anew ? ", from the document's first byte" : "");
}

// "badge.prn", "badge.prn (copy 2 of 3)".
std::string NameOf(const Printed& printed)
{
    std::string name = spooler::Printable(printed.document);
    if (printed.copies > 1)
        name += " (copy " + std::to_string(printed.copy) + " of " + std::to_string(printed.copies) + ")";
    return name;
}

void ToStandardError(const std::string& line)
{
    std::fprintf(stderr, "%s\n", line.c_str());
}

// Tells a state apart from the one before it: what is worth a line of its own.
struct Stage {
    explicit Stage(const Progress& progress)
        : phase(progress.phase), attempt(progress.attempt), position(progress.queuePosition)
    {
        if (phase != Phase::WaitingInQueue)
            position.reset();
    }
    bool operator==(const Stage&) const = default;

    Phase phase;
    unsigned attempt;
    std::optional<int> position;
};

class JsonView : public PrintView {
public:
    void Begin(const Printed& begun) override
    {
        printed = begun;
        shown.reset();
        progress = {};
    }
    void Show(const Progress& now) override
    {
        progress = now;
        if (now.phase == Phase::Pausing || shown == Stage(now))
            return;
        shown = Stage(now);
        Tell(WordOf(now.phase), false, {});
    }
    void ShowRetry(const Result& failed, milliseconds pause) override
    {
        Json line = Line("retrying", false, failed);
        line["pause"] = std::chrono::duration<double>(pause).count();
        PrintJsonLine(line);
    }
    void ShowLogLine(std::string_view line) override
    {
        PrintJsonLine({{"document", printed.document}, {"log", line}});
    }
    void End(const Result& result) override { Tell(spooler::RuleFor(result.outcome).word, true, result); }
    void Refuse(const std::string& document, const std::string& why) override
    {
        PrintJsonLine({{"document", document}, {"state", "refused"}, {"done", true}, {"reason", why}});
    }

private:
    Json Line(const char* state, bool done, const Result& result) const
    {
        Json line = {{"document", printed.document},
                     {"copy", printed.copy},
                     {"state", state},
                     {"done", done},
                     {"attempt", progress.attempt},
                     {"bytes", printed.bytes},
                     {"written", progress.written},
                     {"position", nullptr},
                     {"reason", result.reason.cause},
                     {"remedy", result.reason.remedy}};
        if (progress.queuePosition)
            line["position"] = *progress.queuePosition;
        return line;
    }
    void Tell(const char* state, bool done, const Result& result) const
    {
        PrintJsonLine(Line(state, done, result));
    }

    Printed printed;
    Progress progress;
    std::optional<Stage> shown;
};

// For people: plain lines, or one that moves. What became of a document that was not sent goes to standard
// error.
class TextView : public PrintView {
public:
    explicit TextView(bool moving) : bar(moving ? std::make_unique<ProgressBar>() : nullptr) {}

    void Begin(const Printed& begun) override
    {
        printed = begun;
        shown.reset();
        if (bar)
            bar->Begin(NameOf(printed));
    }
    void Show(const Progress& progress) override
    {
        if (bar)
            return bar->Show(progress);
        if (progress.phase == Phase::Pausing || shown == Stage(progress))
            return;
        const bool isFirst = !shown;
        shown = Stage(progress);
        PrintLine(NameOf(printed) + (isFirst ? ", " + SizeText(printed.bytes) : "") + ": " +
                  PhaseText(progress));
    }
    void ShowRetry(const Result& failed, milliseconds pause) override
    {
        if (bar)
            bar->Clear();
        const bool isNews = std::exchange(toldCause, failed.reason.cause) != failed.reason.cause;
        PrintLine(NameOf(printed) + ": " + RetrySentence(failed, pause, isNews));
    }
    void ShowLogLine(std::string_view line) override { ToStandardError("  " + std::string(line)); }
    void End(const Result& result) override
    {
        const std::string line = NameOf(printed) + ": " + SentenceOf(result);
        if (bar)
            bar->Clear();
        if (result.outcome == Outcome::Sent)
            PrintLine(line);
        else
            ToStandardError(line);
    }
    void Refuse(const std::string&, const std::string& why) override
    {
        ToStandardError("farlink: " + spooler::Printable(why));
    }

private:
    const std::unique_ptr<ProgressBar> bar;  // null for plain lines
    std::string toldCause;                   // of the last attempt that failed
    Printed printed;
    std::optional<Stage> shown;
};

bool IsTerminal()
{
    const char* kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

}  // namespace

std::unique_ptr<PrintView> MakePrintView(bool json, bool verbose)
{
    if (json)
        return std::make_unique<JsonView>();
    return std::make_unique<TextView>(IsTerminal() && !verbose);
}

std::string SentenceOf(const Result& result)
{
    if (result.outcome == Outcome::Sent)
        return "sent";
    if (result.outcome == Outcome::CancelledHere)
        return result.bytesWereOut ? "cancelled; part of a card may be printed"
                                   : "cancelled; nothing of it is out";
    std::string sentence = spooler::RuleFor(result.outcome).text;
    if (!result.reason.cause.empty())
        sentence += ": " + result.reason.cause;
    if (!result.reason.remedy.empty())
        sentence += "; " + result.reason.remedy;
    return sentence;
}

}  // namespace farlink
