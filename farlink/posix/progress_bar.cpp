#include "farlink/posix/progress_bar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "farlink/commands.h"
#include "farlink/sizes.h"

namespace farlink {

namespace {

using spooler::Phase;
using spooler::Progress;

constexpr std::chrono::milliseconds kDrawEvery{500};
constexpr std::size_t kCells = 20;
constexpr std::size_t kShortestName = 8;

std::size_t Columns()
{
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
}

bool BeginsCharacter(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

std::size_t WidthOf(const std::string& text)
{
    return static_cast<std::size_t>(std::ranges::count_if(text, BeginsCharacter));
}

// The first `width` characters.
std::string Cut(const std::string& text, std::size_t width)
{
    std::size_t end = 0;
    for (std::size_t count = 0; end < text.size(); ++end)
        if (BeginsCharacter(text[end]) && ++count > width)
            break;
    return text.substr(0, end);
}

std::string Bar(const Progress& progress)
{
    const std::size_t full =
        std::min<std::size_t>(kCells, progress.written * kCells / std::max<std::uint64_t>(1, progress.total));
    return "[" + std::string(full, '#') + std::string(kCells - full, '.') + "]";
}

}  // namespace

std::string PhaseText(const Progress& progress)
{
    const int place = progress.queuePosition.value_or(0);
    switch (progress.phase) {
        case Phase::Connecting:
            return "connecting to the print server";
        case Phase::WaitingInQueue:
            return "waiting in the print server's queue" +
                   (place > 0 ? ", place " + std::to_string(place) : std::string());
        case Phase::Sending:
            return "sending";
        case Phase::WaitingForCard:
            return "all bytes sent, waiting for the card";
        default:
            return "will try again";
    }
}

std::string DurationText(std::chrono::milliseconds duration)
{
    const auto seconds = std::chrono::round<std::chrono::seconds>(duration).count();
    if (seconds < 60)
        return std::to_string(std::max<long>(1, seconds)) + " s";
    const auto minutes = seconds / 60;
    if (minutes < 60)
        return std::to_string(minutes) + " min";
    return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
}

void ProgressBar::Begin(const std::string& documentName)
{
    name = documentName;
    begun = Clock::now();
    phase = Phase::Pausing;
}

void ProgressBar::Show(const Progress& progress)
{
    const Clock::time_point now = Clock::now();
    if (progress.phase == phase && now - drawnAt < kDrawEvery)
        return;
    const std::string line = Line(progress);
    if (line == drawn)
        return;
    phase = progress.phase;
    drawnAt = now;
    drawn = line;
    PrintText("\r\x1b[K" + line);
}

void ProgressBar::Clear()
{
    if (!drawn.empty())
        PrintText("\r\x1b[K");
    drawn.clear();
}

// The name gives way to what moves.
std::string ProgressBar::Line(const Progress& progress) const
{
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun);
    const std::string tail = " " + Bar(progress) + " " + SizeText(progress.written) + " of " +
                             SizeText(progress.total) + "  " + DurationText(elapsed) + "  " +
                             PhaseText(progress);
    const std::size_t columns = Columns() - 1;
    const std::size_t taken = std::min(columns, WidthOf(tail));
    const std::size_t room = std::max(std::min(kShortestName, columns), columns - taken);
    return Cut((WidthOf(name) > room ? Cut(name, room - 1) + "~" : name) + tail, columns);
}

}  // namespace farlink
