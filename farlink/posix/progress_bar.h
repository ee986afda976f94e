#pragma once

#include <chrono>
#include <string>

#include "spooler/printing.h"

namespace farlink {

// "waiting in the print server's queue, place 3".
std::string PhaseText(const spooler::Progress& progress);
// "8 s", "3 min", "2 h 5 min": coarse enough to change seldom.
std::string DurationText(std::chrono::milliseconds duration);

// One line of a terminal that is written over and over: when something changed, twice a second at most, and
// at once when a phase begins.
class ProgressBar {
public:
    void Begin(const std::string& documentName);
    void Show(const spooler::Progress& progress);
    // Makes room for a line that stays.
    void Clear();

private:
    using Clock = std::chrono::steady_clock;

    std::string Line(const spooler::Progress& progress) const;

    std::string name;
    Clock::time_point begun;
    Clock::time_point drawnAt;
    std::string drawn;
    spooler::Phase phase = spooler::Phase::Pausing;
};

}  // namespace farlink
