#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "spooler/port_settings.h"
#include "spooler/printing.h"

namespace spooler {

// The part of a log line behind time, port and thread, without its end and with control characters made
// visible.
std::string MessageOf(std::string_view line);

// What the lines of the monitor tell about one attempt. Any thread.
class MonitorLines {
public:
    // A message as MessageOf gives it. True when it told the document's place in the print server's queue.
    bool Take(std::string_view message);

    std::optional<int> QueuePosition() const;
    // The print server said that somebody cancelled the document there.
    bool TellCancellation() const;

    // The first failure that was told, in plain words; `error` is the last error of the call that failed.
    Reason WhyItFailed(const PortSettings& port, DWORD error) const;
    // Why there was no final word on a document that is out.
    Reason WhyUnconfirmed() const;

private:
    mutable std::mutex lock;  // the rest
    std::optional<int> queuePosition;
    std::optional<int> boundJobState;
    bool silence = false;       // the link was given up, as nothing came from the print server
    std::string failure;        // the first one's text; empty without any
    bool silenceFirst = false;  // it came before that failure
    std::string unreachable;    // "10.0.0.7, port 9100", of a connection that could not be made
};

}  // namespace spooler
