#pragma once

// Printing a document as a print spooler does, in this process and in the foreground. It is what
// `farlink print` and the CUPS backend stand on.

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "spooler/api_visibility.h"
#include "spooler/document.h"
#include "spooler/policy.h"
#include "spooler/port_settings.h"

namespace spooler {

enum class Phase {
    Connecting,
    WaitingInQueue,  // at the print server; no byte is out
    Sending,
    WaitingForCard,  // every byte is out
    Pausing          // an attempt failed; the next one follows
};

struct Progress {
    Phase phase = Phase::Connecting;
    unsigned attempt = 1;
    std::uint64_t written = 0;  // bytes that the port took in this attempt
    std::uint64_t total = 0;
    std::optional<int> queuePosition;  // as the print server last told it in this attempt
};

// Why an attempt failed: the first failure that the monitor reported, in plain words. Both are sentences
// without a full stop; what comes from outside in them has no control characters.
struct Reason {
    std::string cause;   // "nothing listens on 10.0.0.7, port 9100"
    std::string remedy;  // what to do about it; may be empty
};

struct Result {
    Outcome outcome = Outcome::NotConnected;
    Reason reason;              // empty for Sent, CancelledHere and CancelledAtServer
    std::uint64_t written = 0;  // of the last attempt
    bool bytesWereOut = false;  // of any attempt
    unsigned attempts = 0;
};

// Hears how the printing comes along. The calls never overlap, and none comes after PrintDocument has
// returned. All but OnLogLine and OnProgress come on the thread that prints; these two also from threads of
// the monitor, which hold its locks: they must be quick and must not call the spooler or ask for the stop.
class Listener {
public:
    virtual ~Listener() = default;
    // Whenever something in it changed: each buffer of 64 KiB, each position.
    virtual void OnProgress(const Progress&) {}
    // Each line that the monitor writes for its log, without time, thread and line end, and with control
    // characters made visible. How much it says is in Order::eventTypes.
    virtual void OnLogLine(std::string_view) {}
    // An attempt ended so, and another follows after the pause. By RuleFor(result.outcome).follow it is
    // TryAgain or SendAgain.
    virtual void OnAttemptFailed(const Result&, std::chrono::milliseconds /*pause*/) {}
    // Once in an attempt, before the bytes are handed over without which no card can be whole. The print
    // server has let the document through by then: it never waits in the server's queue any more. Once this
    // has returned, a process that dies leaves behind a card that may have been printed; before, it does not.
    // Whatever is thrown here ends the printing without those bytes (DocumentFailed, with the text of a
    // SpoolerError or std::exception as its cause).
    virtual void OnBeforeLastByte() {}
    // What the printer sent back, if Order::readBack asks for it.
    virtual void OnReadBack(std::span<const BYTE>) {}
};

struct Order {
    // Asked before each attempt, so that a changed setting counts from the next one. What they throw
    // (SpoolerError) ends the printing and leaves PrintDocument.
    std::function<PortSettings()> port;
    std::function<LogSettings()> log = [] { return LogSettings{}; };
    std::string title;
    // For how long an outcome that allows it is tried again, counted while there is no link; 0: one attempt;
    // none: without limit.
    std::optional<std::chrono::milliseconds> retryFor;
    // Event bits (diagnostics/event_types.h) of lines for OnLogLine, beyond those of errors, warnings and
    // information, which come always. 0x3F: all there is.
    DWORD eventTypes = 0;
    bool readBack = false;  // at most once a second, between writes, never in the server's queue
};

// Prints the document by the policy, attempt by attempt, and returns with the outcome that stands. One
// document at a time in a process: a second call meanwhile throws ERROR_BUSY. A stop, from any thread, ends
// whatever is blocked at once (by deleting the attempt's private port) and gives CancelledHere, unless the
// document was through by then. What may keep it for a moment longer: the system's look-up of a host name.
SPOOLER_API Result PrintDocument(const Order& order, const Document& document, Listener& listener,
                                 std::stop_token stop);

// A text from outside as it may reach a terminal: control characters and what is no UTF-8 are replaced.
SPOOLER_API std::string Printable(std::string_view text);

}  // namespace spooler
