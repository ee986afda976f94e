#pragma once

#include "printserver/events.h"
#include "printserver/wire.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Faults of the freely running server, one line in a test:
//
//   server.FaultAt(Step::BindReply, Fault::Reset());
//   server.FaultAt(Step::VersionReply, Fault::Error(4));
//   server.FaultAt(Step::ParallelReadReply, Fault::InFront(KeepAlive()));
//   server.FaultAt(Step::DataMiddle, Fault::Close().AfterBytes(100000), 1);   // the first document only
namespace printserver {

enum class Step {
    // Messages from the server: every fault fits.
    SessionId,
    TransMode,
    VersionReply,
    BindReply,
    StartKeepAlivesReply,
    KeepAlive,
    FirstLpqInfo,
    Notification,
    SuppressReply,
    ParallelReadReply,
    QueryReply,
    // Moments: only Close, Reset, Silence and Delay fit.
    AcceptData,
    AcceptCommand,
    ClientKeepAlive,  // a keep-alive from the monitor has arrived
    DataMiddle,       // so many bytes of the document have arrived (AfterBytes); Silence stops reading
    EndOfData  // the data has ended in order; but for Delay the document is then broken, and no final state
               // comes
};
const char* NameOf(Step step);  // "bind-reply"
std::optional<Step> StepNamed(std::string_view name);
bool IsMessage(Step step);

class Fault {
public:
    enum class Kind {
        Close,
        Reset,
        Silence,
        Drop,
        Delay,
        Instead,
        Half,
        SingleBytes,
        WrongType,
        WrongId,
        Error,
        Payload,
        Length,
        InFront
    };

    static Fault Close() { return {Kind::Close, "close"}; }  // orderly, in place of the message
    static Fault Reset() { return {Kind::Reset, "reset"}; }  // RST, in place of the message
    // From here on nothing leaves on this connection, keep-alives included. It stays open and is read.
    static Fault Silence() { return {Kind::Silence, "silence"}; }
    static Fault Drop() { return {Kind::Drop, "drop"}; }  // this message is left out, all else goes on
    // The message leaves later. On the command channel keep-alives and notifications go on in the meantime.
    static Fault Delay(Milliseconds wait)
    {
        return {Kind::Delay, "delay", static_cast<std::uint32_t>(wait.count())};
    }
    // These bytes and not the message.
    static Fault Instead(Bytes bytes) { return {Kind::Instead, "instead", 0, std::move(bytes)}; }
    static Fault Garbage() { return Instead(Bytes(40, 0xEE)); }
    // The first bytes of the message, then silence or an orderly close.
    static Fault HalfThenSilence(unsigned count) { return {Kind::Half, "half", count}; }
    static Fault HalfThenClose(unsigned count) { return HalfThenSilence(count).ClosingAfter(); }
    // Each byte in a segment of its own.
    static Fault SingleBytes() { return {Kind::SingleBytes, "single-bytes"}; }
    static Fault WrongType(std::uint32_t type) { return {Kind::WrongType, "type", type}; }
    // The next two on the command channel only.
    static Fault WrongId(std::uint32_t id) { return {Kind::WrongId, "id", id}; }
    static Fault Error(std::uint32_t code) { return {Kind::Error, "error", code}; }
    static Fault Payload(Bytes payload) { return {Kind::Payload, "payload", 0, std::move(payload)}; }
    // In the header alone.
    static Fault Length(std::uint32_t length) { return {Kind::Length, "length", length}; }
    static Fault HugeLength() { return Length(0xFFFFFFF0); }
    // These bytes, whole messages or not, go out in front of the message.
    static Fault InFront(Bytes bytes) { return {Kind::InFront, "front", 0, std::move(bytes)}; }

    // For Step::DataMiddle: plays when exactly so many bytes have been read; without it at the first byte's
    // time.
    Fault AfterBytes(std::uint64_t count) const;

    Kind TheKind() const { return kind; }
    const char* Name() const { return name; }
    Milliseconds Wait() const { return Milliseconds(number); }
    std::uint64_t Threshold() const { return afterBytes; }
    bool ClosesAfter() const { return closesAfter; }
    bool FitsMomentsToo() const;
    // The message as it leaves: changed, cut or replaced.
    Bytes Change(Bytes message, Channel channel) const;

private:
    Fault(Kind what, const char* called, std::uint32_t value = 0, Bytes data = {})
        : kind(what), name(called), number(value), bytes(std::move(data))
    {
    }
    Fault ClosingAfter() const;

    Kind kind;
    const char* name;
    std::uint32_t number;
    Bytes bytes;
    std::uint64_t afterBytes = 0;
    bool closesAfter = false;
};

// Which faults are still to be played. Safe for many threads.
class FaultTable {
public:
    // Occurrence 0: each time the step comes up; n: the nth time only, counted from this call over all
    // connections. Throws std::invalid_argument when the fault does not fit the step.
    void Add(Step step, Fault fault, int occurrence);
    void Clear();

    // The step comes up now: the first fault that is due.
    std::optional<Fault> Take(Step step);

private:
    struct Entry {
        Step step;
        Fault fault;
        int occurrence;
        int seen;
    };

    std::mutex lock;
    std::vector<Entry> entries;
};

}  // namespace printserver
