#include "cups/progress_lines.h"

#include <cups/sidechannel.h>

#include <utility>

#include "cups/status_lines.h"

namespace farlink_cups {

using spooler::Phase;

namespace {

constexpr double kBackChannelPatience = 1;  // s
constexpr std::chrono::seconds kPauseOfSending{1};

// From previous runs that were killed, reasons may stand that nobody else takes back.
constexpr std::string_view kReasons[] = {"connecting-to-device", "cups-waiting-for-job-completed"};

std::string_view ReasonIn(Phase phase)
{
    switch (phase) {
        case Phase::Connecting:
        case Phase::Pausing:
            return kReasons[0];
        case Phase::WaitingForCard:
            return kReasons[1];
        default:
            return {};
    }
}

}  // namespace

std::string TextOf(const spooler::Reason& reason)
{
    return reason.remedy.empty() ? reason.cause : reason.cause + "; " + reason.remedy;
}

ProgressLines::ProgressLines(const DeviceUri& uri_, std::string copy_, JobMark& mark_, Requests& requests_)
    : uri(uri_), copy(std::move(copy_)), mark(mark_), requests(requests_)
{
    for (const std::string_view each : kReasons)
        SetReason(each, false);
}

ProgressLines::~ProgressLines()
{
    if (!reason.empty())
        SetReason(reason, false);
}

// While attempts fail, what stands is why.
std::string ProgressLines::TextOf(const spooler::Progress& now) const
{
    switch (now.phase) {
        case Phase::Connecting:
            return now.attempt > 1 ? shown
                                   : "connecting to " + uri.host + ", port " + std::to_string(uri.port);
        case Phase::WaitingInQueue:
            return now.queuePosition.value_or(0) > 0
                       ? "waiting in the print server's queue, position " + std::to_string(*now.queuePosition)
                       : shown;
        case Phase::Sending:
            return "sending, " + std::to_string(now.written * 100 / now.total) + " %";
        case Phase::WaitingForCard:
            return "all is sent; waiting until the card is through";
        case Phase::Pausing:
            return shown;
    }
    return shown;
}

void ProgressLines::OnProgress(const spooler::Progress& now)
{
    Show(now.phase);
    std::string text = TextOf(now);
    const auto time = std::chrono::steady_clock::now();
    if (text == shown ||
        (now.phase == Phase::Sending && phase == now.phase && time < shownAt + kPauseOfSending))
        return;
    phase = now.phase;
    shown = std::move(text);
    shownAt = time;
    Info(copy + shown);
}

void ProgressLines::Show(Phase now)
{
    requests.SetConnected(now != Phase::Connecting && now != Phase::Pausing);
    const std::string_view next = ReasonIn(now);
    if (next == reason)
        return;
    if (!reason.empty())
        SetReason(reason, false);
    if (!next.empty())
        SetReason(next, true);
    reason = next;
}

void ProgressLines::OnLogLine(std::string_view line)
{
    Debug(line);
}

void ProgressLines::OnAttemptFailed(const spooler::Result& result, std::chrono::milliseconds pause)
{
    if (std::exchange(lastByteIsOut, false))
        mark.Note(JobMark::State::Clear);
    const spooler::Rule& rule = spooler::RuleFor(result.outcome);
    const auto seconds = std::to_string((pause.count() + 999) / 1000);
    shown = (result.reason.cause.empty() ? rule.text : farlink_cups::TextOf(result.reason)) +
            (rule.follow == spooler::Follow::SendAgain ? ": sent again from its first byte in "
                                                       : ": tried again in ") +
            seconds + " s";
    Info(copy + shown);
}

void ProgressLines::OnBeforeLastByte()
{
    try {
        mark.Note(JobMark::State::InDoubt);
    } catch (...) {
        markFailure = std::current_exception();
        throw;
    }
    lastByteIsOut = true;
}

void ProgressLines::RethrowMarkFailure() const
{
    if (markFailure)
        std::rethrow_exception(markFailure);
}

void ProgressLines::OnReadBack(std::span<const BYTE> bytes)
{
    (void)cupsBackChannelWrite(reinterpret_cast<const char*>(bytes.data()), bytes.size(),
                               kBackChannelPatience);
}

}  // namespace farlink_cups
