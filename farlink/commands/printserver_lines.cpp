#include "farlink/commands/printserver_lines.h"

#include <cstdio>
#include <ctime>

#include "farlink/json_output.h"
#include "farlink/output.h"

namespace farlink {

namespace {

using printserver::EventKind;

// "12:34:56.789" of this place, or "2026-01-31T12:34:56.789Z" for programs.
std::string TimeText(std::chrono::system_clock::time_point time, bool whole)
{
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
    const auto seconds = static_cast<std::time_t>(sinceEpoch.count() / 1000);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): events are told one at a time
    const std::tm* parts = whole ? std::gmtime(&seconds) : std::localtime(&seconds);
    char clock[32];
    std::strftime(clock, sizeof clock, whole ? "%Y-%m-%dT%H:%M:%S" : "%H:%M:%S", parts);
    char text[48];
    std::snprintf(text, sizeof text, "%s.%03d%s", clock, static_cast<int>(sinceEpoch.count() % 1000),
                  whole ? "Z" : "");
    return text;
}

const char* WordOf(EventKind kind)
{
    switch (kind) {
        case EventKind::Connected:
            return "connected";
        case EventKind::SessionAssigned:
            return "session";
        case EventKind::VersionAsked:
            return "version-asked";
        case EventKind::Bound:
            return "bound";
        case EventKind::KeepAlivesStarted:
            return "keep-alives-started";
        case EventKind::NotificationsStarted:
            return "notifications-started";
        case EventKind::QueuePosition:
            return "queue-position";
        case EventKind::JobState:
            return "job-state";
        case EventKind::Receiving:
            return "receiving";
        case EventKind::DocumentComplete:
            return "document-complete";
        case EventKind::DocumentBroken:
            return "document-broken";
        case EventKind::SyslogSuppressed:
            return "syslog-suppressed";
        case EventKind::ParallelRead:
            return "parallel-read";
        case EventKind::PrinterDataQuery:
            return "query";
        case EventKind::ClientKeepAlive:
            return "client-keep-alive";
        case EventKind::ClientSilent:
            return "client-silent";
        case EventKind::FaultPlayed:
            return "fault";
        case EventKind::Forsaken:
            return "forsaken";
        case EventKind::Malformed:
            return "malformed";
        case EventKind::Trouble:
            return "trouble";
        case EventKind::HungUp:
            return "hung-up";
    }
    return "event";
}

bool IsOfDocument(const printserver::Event& event)
{
    return event.kind == EventKind::DocumentComplete || event.kind == EventKind::DocumentBroken;
}

Json JsonOf(const printserver::Event& event)
{
    Json line = {{"time", TimeText(event.time, true)},
                 {"event", WordOf(event.kind)},
                 {"channel", printserver::NameOf(event.channel)},
                 {"connection", event.connection}};
    if (event.session >= 0)
        line["session"] = event.session;
    if (event.kind == EventKind::QueuePosition || event.kind == EventKind::JobState)
        line["number"] = event.number;
    if (IsOfDocument(event)) {
        line["document"] = event.document;
        line["size"] = event.size;
    }
    line["text"] = event.text;
    return line;
}

}  // namespace

void TellEvent(const printserver::Event& event, bool json)
{
    if (json) {
        PrintJsonLine(JsonOf(event));
        return;
    }
    const std::string who =
        std::string(printserver::NameOf(event.channel)) + " " + std::to_string(event.connection);
    PrintLine(TimeText(event.time, false) + " " + who + ": " + event.text);
}

}  // namespace farlink
