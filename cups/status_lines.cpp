#include "cups/status_lines.h"

#include <poll.h>
#include <unistd.h>

#include <string>

#include "spooler/printing.h"

namespace farlink_cups {

namespace {

constexpr int kPatienceMs = 1000;
constexpr std::size_t kLongestText = 1500;  // cupsd takes lines of 2047 bytes

// In one piece: the pipe is the filters' too, and takes lines up to 4096 bytes whole.
void Write(const std::string& line)
{
    pollfd pipe{STDERR_FILENO, POLLOUT, 0};
    if (poll(&pipe, 1, kPatienceMs) == 1)
        (void)!write(STDERR_FILENO, line.data(), line.size());
}

void Say(const char* level, std::string_view text)
{
    Write(level + spooler::Printable(text.substr(0, kLongestText)) + '\n');
}

}  // namespace

void Info(std::string_view text)
{
    Say("INFO: ", text);
}

void Error(std::string_view text)
{
    Say("ERROR: ", text);
}

void Debug(std::string_view text)
{
    Say("DEBUG: ", text);
}

void SetReason(std::string_view keyword, bool stands)
{
    Write((stands ? "STATE: +" : "STATE: -") + std::string(keyword) + '\n');
}

}  // namespace farlink_cups
