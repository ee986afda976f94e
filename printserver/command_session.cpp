#include "printserver/frame_reader.h"
#include "printserver/sessions.h"

#include <array>
#include <string>

namespace printserver {
namespace {

using Clock = std::chrono::steady_clock;

std::string Number(std::uint64_t value)
{
    return std::to_string(value);
}

// A client's keep-alive may leave a second late, and take another on its way.
constexpr std::chrono::seconds kLate{2};

std::string MeaningOf(unsigned state)
{
    switch (state) {
        case kFinished:
            return ": finished";
        case kFailed:
            return ": failed; for the client the document is through, and it does not print it again";
        case kCancelled:
            return ": cancelled; the client deletes the document";
        default:
            return "";
    }
}

// Answers the requests of one command connection, and sends keep-alives and notifications by its own clocks.
class CommandSession {
public:
    CommandSession(ServerState& server, const std::shared_ptr<Peer>& connection)
        : state(server), peer(connection), reader(*connection)
    {
    }

    // A client that is gone has given its document up, also if the data still flows.
    ~CommandSession()
    {
        if (!job)
            return;
        job->Unbind();
        const bool clientLeft =
            peer->TheEnding() == Ending::ByMonitor || peer->TheEnding() == Ending::ByMonitorReset;
        if (clientLeft && !job->IsTalk())
            job->data->AskToHangUp();
    }
    CommandSession(const CommandSession&) = delete;
    CommandSession& operator=(const CommandSession&) = delete;

    void Run()
    {
        if (!PlayMoment(state, *peer, Step::AcceptCommand) && !peer->IsOpen())
            return;
        while (peer->IsOpen()) {
            CommandFrame frame;
            switch (reader.Next(&frame, kSlice)) {
                case FrameState::Frame:
                    Answer(frame);
                    break;
                case FrameState::Malformed:
                    Drop("no message of this protocol");
                    break;
                default:
                    break;
            }
            if (peer->IsOpen())
                Tick();
        }
    }

private:
    using Handler = void (CommandSession::*)(const CommandFrame&);
    struct Request {
        std::uint32_t requestId;
        Handler handler;
    };
    static const std::array<Request, 7> requests;

    int Session() const { return job ? job->session : -1; }

    void Raise(EventKind kind, std::string text, int number = 0)
    {
        state.Raise(kind, *peer, Session(), std::move(text), number);
    }

    void Drop(const std::string& why)
    {
        Raise(EventKind::Malformed, "dropped: " + why);
        if (job)
            job->data->AskToHangUp();
        peer->End(Ending::ByServerReset);
    }

    void Send(Step step, const Bytes& message) { (void)SendMessage(state, *peer, step, message); }

    void Answer(const CommandFrame& frame)
    {
        if (frame.type == kTypePrinterData) {
            AnswerQuery(frame);
            return;
        }
        for (const Request& request : requests) {
            if (request.requestId == frame.requestId) {
                (this->*request.handler)(frame);
                return;
            }
        }
        Raise(EventKind::Malformed, "unknown request " + Number(frame.requestId) + " refused");
        (void)peer->Send(Reply(frame.requestId, kErrorUnknownRequest));
    }

    void AnswerVersion(const CommandFrame&)
    {
        versionText = state.settings.TheVersion();
        Raise(EventKind::VersionAsked,
              versionText.empty() ? "version asked, not told" : "version " + versionText);
        Send(Step::VersionReply,
             versionText.empty() ? Reply(kProtocolVersion, kErrorNoVersion) : VersionReply(versionText));
    }

    void AnswerBind(const CommandFrame& frame)
    {
        if (frame.payload.size() != 2) {
            Drop("a bind request of " + Number(frame.payload.size()) + " bytes");
            return;
        }
        const unsigned session = GetU16(frame.payload);
        const auto found = state.jobs.Find(session);
        if (!found && !state.settings.bindsAnySession)
            RefuseBind("unknown", session, kErrorUnknownSession);
        else if (found && found != job && (job || !found->Bind()))
            RefuseBind("taken", session, kErrorSessionTaken);
        else {
            if (found)
                job = found;
            Raise(EventKind::Bound, "bound to session " + Number(session));
            Send(Step::BindReply, Reply(kBindSession));
        }
    }

    void RefuseBind(const char* what, unsigned session, std::uint32_t error)
    {
        Raise(EventKind::Malformed,
              "bind to the " + std::string(what) + " session " + Number(session) + " refused");
        Send(Step::BindReply, Reply(kBindSession, error));
    }

    void AnswerStartKeepAlives(const CommandFrame& frame)
    {
        if (frame.payload.size() != 2 && frame.payload.size() != 4) {
            Drop("a start of keep-alives of " + Number(frame.payload.size()) + " bytes");
            return;
        }
        const std::chrono::seconds asked(GetU16(frame.payload));
        const std::chrono::seconds announced(
            frame.payload.size() == 4 ? GetU16(std::span(frame.payload).subspan(2)) : 0);
        // A period of 0 would flood the line.
        period = state.options.keepAliveEvery.value_or(std::max(asked, std::chrono::seconds(1)));
        timeout = state.options.clientTimeout.value_or(announced.count() > 0 ? announced + kLate : announced);
        lastSent = lastHeard = Clock::now();
        startedKeepAlives = true;
        Raise(EventKind::KeepAlivesStarted,
              "keep-alives every " + Number(static_cast<unsigned>(period.count())) + " ms");
        Send(Step::StartKeepAlivesReply, Reply(kStartKeepAlives));
    }

    void StampKeepAlive(const CommandFrame&)
    {
        lastHeard = Clock::now();
        silenceTold = false;
        Raise(EventKind::ClientKeepAlive, "keep-alive from the monitor");
        (void)PlayMoment(state, *peer, Step::ClientKeepAlive);
    }

    void AnswerStartNotifications(const CommandFrame&)
    {
        notificationsStart = Clock::now();
        lastRecord = CurrentRecord();
        Raise(EventKind::NotificationsStarted, "notifications started");
        Tell(Lpq(-1, 0xFFFF), *lastRecord);
        Send(Step::FirstLpqInfo, Notification(*lastRecord));
    }

    void AnswerSuppress(const CommandFrame&)
    {
        if (job)
            job->MakeTalk();
        Raise(EventKind::SyslogSuppressed, "system log messages suppressed");
        Send(Step::SuppressReply, Reply(kSuppressSyslog));
    }

    void AnswerParallelRead(const CommandFrame& frame)
    {
        // The monitor widens a signed 16-bit number; its low 16 bits are the size of the reader's buffer.
        const Bytes offered =
            job ? state.settings.TakeParallelData(frame.replyLengthOrError & 0xFFFF) : Bytes();
        Raise(EventKind::ParallelRead, "parallel read of " + Number(offered.size()) + " bytes");
        Send(Step::ParallelReadReply, Reply(kParallelRead, 0, U16(static_cast<unsigned>(offered.size()))));
        if (!offered.empty())
            (void)job->data->Send(offered);
    }

    void AnswerQuery(const CommandFrame& frame)
    {
        Raise(EventKind::PrinterDataQuery, "printer data query " + Number(frame.requestId));
        Send(Step::QueryReply,
             QueryReply(frame.requestId, state.settings.AnswerQuery(frame.requestId, frame.payload)));
    }

    // What is due by the clock.
    void Tick()
    {
        if (!peer->SendDue())
            return;
        if (startedKeepAlives && state.settings.sendsKeepAlives && Clock::now() - lastSent >= period) {
            lastSent = Clock::now();
            Send(Step::KeepAlive, KeepAlive(KeepAliveId(ParseVersion(versionText))));
        }
        if (peer->IsOpen())
            NotifyChange();
        if (peer->IsOpen())
            WatchClient();
    }

    void NotifyChange()
    {
        if (!lastRecord)
            return;
        const Lpq record = CurrentRecord();
        if (record == *lastRecord)
            return;
        Tell(*lastRecord, record);
        lastRecord = record;
        Send(Step::Notification, Notification(record));
    }

    // Up to version 1.0 the monitor sends no keep-alives, so nothing can be said about its silence.
    void WatchClient()
    {
        if (!startedKeepAlives) {
            if (Clock::now() - connected >= state.options.bindWait)
                Drop("keep-alives were never started");
            return;
        }
        if (silenceTold || timeout.count() == 0 || ParseVersion(versionText) <= Version{1, 0} ||
            Clock::now() - lastHeard <= timeout) {
            return;
        }
        silenceTold = true;
        Raise(EventKind::ClientSilent,
              "no keep-alive from the monitor for " + Number(static_cast<unsigned>(timeout.count())) + " ms");
        if (!state.options.dropSilentClients)
            return;
        if (job)
            job->data->AskToHangUp();
        peer->End(Ending::ByServer);
    }

    Lpq CurrentRecord() const
    {
        Progress progress = job ? job->TheProgress() : Progress{};
        progress.sinceStart = std::chrono::duration_cast<Milliseconds>(Clock::now() - notificationsStart);
        return state.settings.TheCourse().RecordAt(progress);
    }

    void Tell(const Lpq& before, const Lpq& now)
    {
        if (job)
            job->TellPosition(now.queuePosition);
        if (before.queuePosition != now.queuePosition)
            Raise(EventKind::QueuePosition, "queue position " + std::to_string(now.queuePosition),
                  now.queuePosition);
        if (before.boundJobState != now.boundJobState)
            Raise(EventKind::JobState,
                  "job state " + Number(now.boundJobState) + MeaningOf(now.boundJobState), now.boundJobState);
    }

    ServerState& state;
    const std::shared_ptr<Peer> peer;
    FrameReader reader;
    std::shared_ptr<Job> job;  // once bound
    std::string versionText;   // as told; empty counts as 0.0, and so does a text without numbers
    bool startedKeepAlives = false;
    bool silenceTold = false;
    Milliseconds period{0};
    Milliseconds timeout{0};
    const Clock::time_point connected = Clock::now();
    Clock::time_point lastSent;
    Clock::time_point lastHeard;
    Clock::time_point notificationsStart;
    std::optional<Lpq> lastRecord;  // once notifications are started
};

const std::array<CommandSession::Request, 7> CommandSession::requests = {{
    {kProtocolVersion, &CommandSession::AnswerVersion},
    {kBindSession, &CommandSession::AnswerBind},
    {kStartKeepAlives, &CommandSession::AnswerStartKeepAlives},
    {kKeepAlive, &CommandSession::StampKeepAlive},
    {kLpqInfo, &CommandSession::AnswerStartNotifications},
    {kSuppressSyslog, &CommandSession::AnswerSuppress},
    {kParallelRead, &CommandSession::AnswerParallelRead},
}};

}  // namespace

void ServeCommand(ServerState& state, const std::shared_ptr<Peer>& peer)
{
    CommandSession(state, peer).Run();
}

}  // namespace printserver
