#include "spooler/monitor_lines.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "platform/platform.h"

namespace spooler {

namespace {

constexpr std::string_view kFailureMark = ": ERROR: ";
constexpr std::string_view kSilence = "Failed to receive keep-alives => disconnecting.";
constexpr std::string_view kUnreachable = "Failed to connect to ";
constexpr int kCancelledState = 9;

std::optional<int> NumberBehind(std::string_view message, std::string_view words)
{
    const std::size_t found = message.find(words);
    int number = 0;
    if (found == std::string_view::npos ||
        std::sscanf(std::string(message.substr(found + words.size())).c_str(), "%d", &number) != 1)
        return std::nullopt;
    return number;
}

// %1: the print server's name, %2: the connection that was tried, %3: the monitor's own text.
struct Meaning {
    const char* text;  // the failure begins so
    const char* cause;
    const char* remedy;
};

constexpr const char* kLookAtServer = "look at the print server, whether it is at work and not overloaded";
constexpr const char* kIsItAServer = "check the port's server and number: another service may listen there";

constexpr Meaning kMeanings[] = {
    {"Call to getaddrinfo() failed", "the print server's name %1 is not known",
     "check the port's server, and this machine's name service"},
    {"Server (", "the print server's name %1 has no IPv4 address", "check the port's server"},
    {"Call to socket() failed", "this machine has no room for another connection",
     "end programs that have many files or connections open"},
    {"Failed to create", "this machine has no room for another thread", "end programs that need many"},
    {"WSAStartup()", "this machine's network can't be used", ""},
    {"Call to recv() failed; WSAGetLastError returned 0.", "the print server closed the connection",
     kLookAtServer},
    {"Call to recv() failed", "the print server broke the connection off", kLookAtServer},
    {"Call to send() failed", "the print server broke the connection off", kLookAtServer},
    {"Failed to receive a", "the print server closed the connection", kLookAtServer},
    {"Received response indicates error", "the print server refused the session",
     "see the print server's own log and its list of permitted computers"},
    {"Response to 'start", "the print server refused the session",
     "see the print server's own log and its list of permitted computers"},
    {"Timed-out while waiting", "the print server does not answer on its command port", kLookAtServer},
    {"Received unexpected response", "what answers is no print server of this kind", kIsItAServer},
    {"Received an unexpected response", "what answers is no print server of this kind", kIsItAServer},
    {"Received unknown data channel message", "what answers is no print server of this kind", kIsItAServer},
    {"TRANS_MODE", "what answers is no print server of this kind", kIsItAServer},
    {"SESSION_ID", "what answers is no print server of this kind", kIsItAServer},
    {"Failed to extract version info", "what answers is no print server of this kind", kIsItAServer},
    {"", "the port monitor reported \"%3\"", kLookAtServer},
};

// Of a connection that could not be made, by the error that the system gave.
struct ConnectMeaning {
    DWORD error;
    const char* cause;
    const char* remedy;
};

constexpr const char* kCheckAddress =
    "see whether the print server is switched on and whether the port's server and number are its own";

constexpr ConnectMeaning kConnectMeanings[] = {
    {WSAECONNREFUSED, "nothing listens on %2", kCheckAddress},
    {WSAETIMEDOUT, "nothing answers at %2",
     "is it switched on? A firewall that drops connections looks so too"},
    {WSAENETUNREACH, "there is no way from here to the network of %2", "check this machine's network"},
    {WSAENETDOWN, "there is no way from here to the network of %2", "check this machine's network"},
    {WSAEHOSTUNREACH, "%2 can't be reached", "is it switched on? A firewall that refuses looks so too"},
    {WSAEACCES, "this machine does not allow the connection to %2", "see its firewall's rules"},
    {WSAECONNRESET, "%2 broke the connection off", kLookAtServer},
    {0, "no connection could be made to %2", kCheckAddress},
};

constexpr ConnectMeaning kSilentConnect = kConnectMeanings[1];

std::string Filled(const char* text, const std::string (&parts)[3])
{
    std::string filled;
    for (const char* at = text; *at != 0; ++at) {
        const bool isPart = at[0] == '%' && at[1] >= '1' && at[1] <= '3';
        if (isPart)
            filled += parts[*++at - '1'];
        else
            filled += *at;
    }
    return filled;
}

const Meaning& MeaningOf(const std::string& failure)
{
    return *std::ranges::find_if(kMeanings,
                                 [&](const Meaning& one) { return failure.starts_with(one.text); });
}

const ConnectMeaning& ConnectMeaningOf(DWORD error)
{
    const auto* found = std::ranges::find(kConnectMeanings, error, &ConnectMeaning::error);
    return found == std::end(kConnectMeanings) ? *std::prev(found) : *found;
}

}  // namespace

std::string Printable(std::string_view text)
{
    std::u16string wide = ToUtf16(text);  // which replaces what is no UTF-8
    std::ranges::replace_if(
        wide, [](char16_t unit) { return unit < 0x20 || (unit >= 0x7F && unit < 0xA0); }, u'\xFFFD');
    return ToUtf8(wide);
}

std::string MessageOf(std::string_view line)
{
    if (const std::size_t tab = line.find('\t'); tab != std::string_view::npos)
        line.remove_prefix(tab + 1);
    while (line.ends_with('\n') || line.ends_with('\r'))
        line.remove_suffix(1);
    return Printable(line);
}

bool MonitorLines::Take(std::string_view message)
{
    const std::lock_guard<std::mutex> guard(lock);
    if (const auto position = NumberBehind(message, "LPQInfo notification: queue position = ")) {
        queuePosition = position;
        boundJobState = NumberBehind(message, "bound job state = ");
        return true;
    }
    if (message.find(kSilence) != std::string_view::npos)
        silence = true;
    if (const std::size_t found = message.find(kUnreachable); found != std::string_view::npos) {
        unreachable = message.substr(found + kUnreachable.size());
        unreachable.erase(std::min(unreachable.rfind('.'), unreachable.size()));
    }
    if (const std::size_t found = message.find(kFailureMark);
        found != std::string_view::npos && failure.empty()) {
        failure = message.substr(found + kFailureMark.size());
        silenceFirst = silence;
    }
    return false;
}

std::optional<int> MonitorLines::QueuePosition() const
{
    const std::lock_guard<std::mutex> guard(lock);
    return queuePosition;
}

bool MonitorLines::TellCancellation() const
{
    const std::lock_guard<std::mutex> guard(lock);
    return boundJobState == kCancelledState;
}

Reason MonitorLines::WhyItFailed(const PortSettings& port, DWORD error) const
{
    const std::lock_guard<std::mutex> guard(lock);
    const std::string parts[] = {"'" + Printable(port.server) + "'",
                                 unreachable.empty() ? Printable(port.server) : unreachable, failure};
    if (failure.starts_with("Failed to connect") && !unreachable.empty()) {
        const ConnectMeaning& meaning = silence ? kSilentConnect : ConnectMeaningOf(error);
        return {Filled(meaning.cause, parts), meaning.remedy};
    }
    if (silence && (silenceFirst || failure.empty()))
        return queuePosition
                   ? Reason{"the print server fell silent", kLookAtServer}
                   : Reason{"the print server takes the connection, but says nothing", kIsItAServer};
    if (failure.empty())
        return {"the port monitor gave no reason", kLookAtServer};
    const Meaning& meaning = MeaningOf(failure);
    return {Filled(meaning.cause, parts), meaning.remedy};
}

Reason MonitorLines::WhyUnconfirmed() const
{
    static constexpr const char* kLookAtPrinter = "look at the printer before you print it again";
    const std::lock_guard<std::mutex> guard(lock);
    if (silence || !failure.empty())
        return {"the link was lost", kLookAtPrinter};
    return {"no word came in time", kLookAtPrinter};
}

}  // namespace spooler
