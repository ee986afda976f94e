#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "spooler/printing.h"

namespace farlink {

// What is printed, as the person knows it.
struct Printed {
    std::string document;
    unsigned copy = 1;
    unsigned copies = 1;
    std::uint64_t bytes = 0;
};

// Shows how one document after the other comes along. Called by one thread at a time.
class PrintView {
public:
    virtual ~PrintView() = default;
    virtual void Begin(const Printed& printed) = 0;
    virtual void Show(const spooler::Progress& progress) = 0;
    virtual void ShowRetry(const spooler::Result& failed, std::chrono::milliseconds pause) = 0;
    virtual void ShowLogLine(std::string_view line) = 0;
    virtual void End(const spooler::Result& result) = 0;
    // A document that could not be printed at all.
    virtual void Refuse(const std::string& document, const std::string& why) = 0;
};

// JSON lines, one for each change of state; or a moving bar where standard output is a terminal and no log
// lines come; or plain lines, one for each change.
std::unique_ptr<PrintView> MakePrintView(bool json, bool verbose);

// "sent", "nothing listens on 10.0.0.7, port 9100; see whether ...": what became of a document, for people.
std::string SentenceOf(const spooler::Result& result);

}  // namespace farlink
