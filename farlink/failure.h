#pragma once

#include <stdexcept>
#include <string>

#include "platform/platform.h"

namespace farlink {

// What the process ends with; every command's --help ends with these.
enum class ExitStatus : int {
    Done = 0,         // for documents: the print server said that they are through
    Failed = 1,       // the command, or a document that was given up
    Usage = 2,        // the command line makes no sense
    Deleted = 3,      // a document was cancelled, here or at the print server
    Unconfirmed = 4,  // the print server never said what became of a document
    Queued = 5  // Windows: the print spooler has taken the document, and what becomes of it is its to tell
};

// Ends a command with one line on standard error: what is wrong and what to do.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, ExitStatus exitStatus = ExitStatus::Failed)
        : std::runtime_error(text), status(exitStatus)
    {
    }
    ExitStatus Status() const { return status; }

private:
    ExitStatus status;
};

// "<what>: <what the word means>; <what to do> (ERROR_BUSY, 170)".
Failure PlatformFailure(const std::string& what, DWORD word);
// The same with another meaning; `what` may be empty.
Failure PlatformFailure(const std::string& what, DWORD word, std::string why);

// Of the calling thread's last failed spooler call, with the spooler's own text for what it means where
// there is one. `what` may be empty: such a text names the thing.
Failure SpoolerFailure(const std::string& what = {});

}  // namespace farlink
