#include "farlink/progress_view.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "farlink/sizes.h"

namespace farlink {

namespace {

using Clock = std::chrono::steady_clock;

std::string Sentence(const JOB_PROGRESS& progress)
{
    switch (progress.phase) {
        case JOB_PHASE_SPOOLING:
            return "taking the document in";
        case JOB_PHASE_QUEUED:
            return "waiting for its turn on the port";
        case JOB_PHASE_STARTING:
            return "connecting to the print server";
        case JOB_PHASE_WRITING:
            return "sending";
        case JOB_PHASE_WAITING:
            return "waiting in the print server's queue";
        case JOB_PHASE_ENDING:
            return "all bytes sent, waiting for the card";
        case JOB_PHASE_KEEPING:
            return "its run is over, but the disk of the state folder is too full to keep that; make room on "
                   "it";
        case JOB_PHASE_RETRYING:
            return "attempt " + std::to_string(progress.attempt) + " failed, will try again";
        default:
            break;
    }
    switch (progress.outcome) {
        case JOB_OUTCOME_SENT:
            return "sent";
        case JOB_OUTCOME_DELETED:
            return "cancelled";
        case JOB_OUTCOME_UNCONFIRMED:
            return "unconfirmed";
        default:
            return "failed";
    }
}

std::string WithReason(const JOB_PROGRESS& progress)
{
    const std::string reason = ReasonOf(progress);
    const bool tells = progress.phase == JOB_PHASE_RETRYING || progress.phase == JOB_PHASE_DONE;
    return tells && !reason.empty() ? Sentence(progress) + ": " + reason : Sentence(progress);
}

// Tells a state apart from the one before it: what is worth a line of its own.
struct Stage {
    DWORD job = 0;
    DWORD phase = 0;
    DWORD outcome = 0;
    DWORD attempt = 0;
    bool operator==(const Stage&) const = default;
};

Stage StageOf(const FollowedJob& job, const JOB_PROGRESS& progress)
{
    return {job.id, progress.phase, progress.outcome, progress.attempt};
}

// Bytes per second since the first byte of the attempt under way.
class RateMeter {
public:
    double Rate(const FollowedJob& job, const JOB_PROGRESS& progress)
    {
        if (job.id != id || progress.attempt != attempt || progress.bytesWritten == 0) {
            id = job.id;
            attempt = progress.attempt;
            begin = Clock::now();
            first = progress.bytesWritten;
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
        return seconds < 0.2 ? 0 : static_cast<double>(progress.bytesWritten - first) / seconds;
    }

private:
    DWORD id = 0;
    DWORD attempt = 0;
    Clock::time_point begin;
    ULONGLONG first = 0;
};

class JsonView : public ProgressView {
public:
    void Show(const FollowedJob& job, const JOB_PROGRESS& progress) override
    {
        const Stage stage = StageOf(job, progress);
        if (stage == last)
            return;
        last = stage;
        PrintJsonLine({{"job", job.id},
                       {"document", job.document},
                       {"state", StateWordOf(progress)},
                       {"done", progress.phase == JOB_PHASE_DONE},
                       {"attempt", progress.attempt},
                       {"bytes", progress.bytesTotal},
                       {"written", progress.bytesWritten},
                       {"error", progress.lastError},
                       {"reason", ReasonOf(progress)}});
    }
    void Note(const std::string&) override {}

private:
    Stage last;
};

class LineView : public ProgressView {
public:
    void Show(const FollowedJob& job, const JOB_PROGRESS& progress) override
    {
        const Stage stage = StageOf(job, progress);
        if (stage == last)
            return;
        const std::string head = job.document + " (job " + std::to_string(job.id);
        const bool first = stage.job != last.job;
        last = stage;
        PrintLine(head + (first ? ", " + SizeText(progress.bytesTotal) : "") + "): " + WithReason(progress));
    }
    void Note(const std::string& text) override { PrintLine(text); }

private:
    Stage last;
};

// One line that is written over and over; the last state of a job stays.
class BarView : public ProgressView {
public:
    explicit BarView(bool inColour) : colour(inColour) {}
    ~BarView() override
    {
        if (unfinished)
            PrintLine("");
    }

    void Show(const FollowedJob& job, const JOB_PROGRESS& progress) override
    {
        const bool done = progress.phase == JOB_PHASE_DONE;
        const double rate = meter.Rate(job, progress);
        std::string line;
        if (done)
            line = job.document + "  " + SizeText(progress.bytesTotal) + "  " + WithReason(progress);
        else
            line = job.document + " " + Bar(progress) + " " + Amount(progress, rate) + "  " +
                   WithReason(progress);
        Draw(done ? line : line.substr(0, Columns() - 1), done ? ColourOf(progress) : "");
        if (done)
            PrintLine("");
        unfinished = !done;
    }

    void Note(const std::string& text) override
    {
        Draw(text, "");
        PrintLine("");
    }

private:
    static std::size_t Columns()
    {
        winsize size{};
        return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
    }

    static std::string Bar(const JOB_PROGRESS& progress)
    {
        constexpr std::size_t kCells = 20;
        const std::size_t full =
            progress.bytesTotal == 0
                ? 0
                : std::min<std::size_t>(kCells, progress.bytesWritten * kCells / progress.bytesTotal);
        return "[" + std::string(full, '#') + std::string(kCells - full, '.') + "]";
    }

    static std::string Amount(const JOB_PROGRESS& progress, double rate)
    {
        std::string text = SizeText(progress.bytesWritten) + " of " + SizeText(progress.bytesTotal);
        if (progress.phase == JOB_PHASE_WRITING && rate > 0)
            text += "  " + SizeText(static_cast<ULONGLONG>(rate)) + "/s";
        return text;
    }

    const char* ColourOf(const JOB_PROGRESS& progress) const
    {
        if (!colour)
            return "";
        return progress.outcome == JOB_OUTCOME_SENT ? "\x1b[32m" : "\x1b[31m";
    }

    void Draw(const std::string& line, const char* inColour) const
    {
        const std::string text =
            std::string("\r\x1b[K") + inColour + line + (*inColour == '\0' ? "" : "\x1b[0m");
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
    }

    const bool colour;
    bool unfinished = false;
    RateMeter meter;
};

bool IsTerminal()
{
    const char* kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

bool WantsColour()
{
    const char* refused = std::getenv("NO_COLOR");
    return refused == nullptr || *refused == '\0';
}

}  // namespace

std::unique_ptr<ProgressView> MakeProgressView(bool json)
{
    if (json)
        return std::make_unique<JsonView>();
    if (IsTerminal())
        return std::make_unique<BarView>(WantsColour());
    return std::make_unique<LineView>();
}

}  // namespace farlink
